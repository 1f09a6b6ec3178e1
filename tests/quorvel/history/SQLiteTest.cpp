#include "quorvel/history/SQLite.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "quorvel/history/ConfinedVFS.h"
#include "tests/quorvel/history/OpenedDatabase.h"
#include "tests/support/TemporaryFolder.h"

namespace quorvel::sqlite {
namespace {

using Access = Connection::Access;
using namespace std::chrono_literals;

class SQLite : public ::testing::Test {
 protected:
  static int codeOf(const std::function<void()>& attempt) {
    try {
      attempt();
    } catch (const Error& error) {
      return error.code();
    }
    return SQLITE_OK;
  }

  const kelvane::tests::TemporaryFolder folder;
  const std::filesystem::path file = folder.path() / "test.sqlite";
};

TEST_F(SQLite, bytesAreReadAsTheyWereWritten) {
  using namespace std::string_literals;
  Connection connection = openedDatabase(file, Access::creating, 0ms);
  connection.run("CREATE TABLE t (x BLOB NOT NULL) STRICT");
  const std::string_view values[] = {"", "words", "a\0b", "\0", "\xff", std::string_view()};
  for (const std::string_view value :
       {std::string_view("a\0b", 3), std::string_view("\0", 1), std::string_view(), values[0], values[1], values[4]}) {
    connection.run("DELETE FROM t");
    connection.run("INSERT INTO t VALUES (?)", value);
    auto row = connection.prepare("SELECT x, length(x), x = ? FROM t", value);
    ASSERT_TRUE(row.next());
    EXPECT_EQ(row.bytes(0), value);
    EXPECT_EQ(row.integer(1), static_cast<std::int64_t>(value.size()));
    EXPECT_EQ(row.integer(2), 1);
    EXPECT_FALSE(row.next());
  }
}

TEST_F(SQLite, integersHaveAllTheirBits) {
  Connection connection = openedDatabase(file, Access::creating, 0ms);
  for (const std::int64_t value : {INT64_MIN, std::int64_t{-1}, std::int64_t{0}, INT64_MAX}) {
    EXPECT_EQ(connection.integer("SELECT ?", value), value);
  }
}

TEST_F(SQLite, anUnfinishedTransactionIsRolledBackAtTheConnectionsEnd) {
  openedDatabase(file, Access::creating, 0ms).runAll("CREATE TABLE t (x); BEGIN; INSERT INTO t VALUES (1)");
  EXPECT_EQ(openedDatabase(file, Access::reading, 0ms).integer("SELECT count(*) FROM t"), 0);
}

// What SQLite knows of a database before it has a lock is of no matter.
TEST_F(SQLite, databasesHaveThePagesThatTheyWereMadeWith) {
  for (const int size : {512, 4096, 65536}) {
    std::filesystem::remove(file);
    openedDatabase(file, Access::creating, 0ms)
        .runAll("PRAGMA page_size = " + std::to_string(size) + "; CREATE TABLE t (x); INSERT INTO t VALUES (1)");
    openedDatabase(file, Access::writing, 0ms).runAll("INSERT INTO t VALUES (zeroblob(100000))");
    Connection reading = openedDatabase(file, Access::reading, 0ms);
    EXPECT_EQ(reading.integer("SELECT count(*) FROM t"), 2) << size;
    EXPECT_EQ(reading.integer("PRAGMA page_size"), size);
    EXPECT_EQ(reading.integer("SELECT integrity_check = 'ok' FROM pragma_integrity_check"), 1) << size;
    EXPECT_EQ(std::filesystem::file_size(file) % static_cast<unsigned>(size), 0U);
  }
}

TEST_F(SQLite, failuresCarryTheirCode) {
  openedDatabase(file, Access::creating, 0ms).runAll("CREATE TABLE t (x UNIQUE)");
  const auto link = folder.path() / "link.sqlite";
  std::filesystem::create_symlink(file, link);
  Connection connection = openedDatabase(file, Access::writing, 0ms);
  Connection other = openedDatabase(file, Access::writing, 0ms);
  other.runAll("INSERT INTO t VALUES (1)");
  const struct {
    const char* what;
    std::function<void()> attempt;
    int code;
  } cases[] = {
      {"a file that is missing", [&] { openedDatabase(folder.path() / "none", Access::reading, 0ms); },
       SQLITE_CANTOPEN},
      {"a link", [&] { openedDatabase(link, Access::reading, 0ms); }, ConfinedVFS::databaseIsNoFile},
      {"no SQL", [&] { connection.run("SELEKT"); }, SQLITE_ERROR},
      {"no SQL among others", [&] { connection.runAll("SELECT 1; SELEKT"); }, SQLITE_ERROR},
      {"a rule broken", [&] { connection.run("INSERT INTO t VALUES (1)"); }, SQLITE_CONSTRAINT_UNIQUE},
      {"writing while only reading is asked for",
       [&] { openedDatabase(file, Access::reading, 0ms).run("DELETE FROM t"); }, SQLITE_READONLY},
      {"a database in use",
       [&] {
         other.run("BEGIN IMMEDIATE");
         connection.run("BEGIN IMMEDIATE");
       },
       SQLITE_BUSY},
      {"a text that is too large", [&] { connection.run("SELECT zeroblob(?)", std::int64_t{1} << 40); }, SQLITE_TOOBIG},
  };
  for (const auto& [what, attempt, code] : cases) EXPECT_EQ(codeOf(attempt), code) << what;
}

}  // namespace
}  // namespace quorvel::sqlite
