// Locks, beside those of a program that opens the database in SQLite's usual way.
#include "quorvel/history/DatabaseLock.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "quorvel/files/Descriptor.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace quorvel::sqlite {
namespace {

using kelvane::tests::inChild;
using ::testing::ElementsAre;
using Level = DatabaseLock::Level;

/// A connection as other programs have it.
class UsualConnection {
 public:
  explicit UsualConnection(const std::filesystem::path& file) {
    if (sqlite3_open(file.c_str(), &connection_) != SQLITE_OK) throw std::runtime_error("The database did not open.");
  }
  UsualConnection(const UsualConnection&) = delete;
  UsualConnection& operator=(const UsualConnection&) = delete;
  ~UsualConnection() { sqlite3_close(connection_); }

  std::string answerTo(const char* sql) {
    return sqlite3_errstr(sqlite3_exec(connection_, sql, nullptr, nullptr, nullptr));
  }

 private:
  sqlite3* connection_ = nullptr;
};

class DatabaseLocks : public ::testing::Test {
 protected:
  DatabaseLocks() { UsualConnection(file).answerTo("CREATE TABLE t (x); INSERT INTO t VALUES (1)"); }

  /// One of our locks, on a descriptor of its own.
  struct Own {
    explicit Own(const std::filesystem::path& file) : descriptor(::open(file.c_str(), O_RDWR | O_CLOEXEC)) {}
    Descriptor descriptor;
    DatabaseLock lock{descriptor.get()};
  };

  /// What another process is answered that begins to read, to write, and to write without readers.
  std::vector<std::string> answersElsewhere() const {
    std::vector<std::string> answers;
    for (const char* sql : {"SELECT * FROM t", "BEGIN IMMEDIATE; ROLLBACK", "BEGIN EXCLUSIVE; ROLLBACK"})
      answers.push_back(inChild([&] { return UsualConnection(file).answerTo(sql); }));
    return answers;
  }

  /// How far another process gets with our lock, from `none` on: the highest level.
  std::string levelElsewhere() const {
    return inChild([&] {
      Own own(file);
      for (const Level level : {Level::shared, Level::reserved, Level::exclusive}) {
        if (!own.lock.raise(level)) break;
      }
      return std::to_string(own.lock.level());
    });
  }

  const kelvane::tests::TemporaryFolder folder;
  const std::filesystem::path file = folder.path() / "database.sqlite";
};

constexpr const char* done = "not an error";
constexpr const char* locked = "database is locked";

TEST_F(DatabaseLocks, excludeOtherProgramsAsSQLitesOwnDo) {
  Own own(file);
  EXPECT_THAT(answersElsewhere(), ElementsAre(done, done, done)) << "none";
  ASSERT_TRUE(own.lock.raise(Level::shared));
  EXPECT_THAT(answersElsewhere(), ElementsAre(done, done, locked)) << "shared";
  ASSERT_TRUE(own.lock.raise(Level::reserved));
  EXPECT_THAT(answersElsewhere(), ElementsAre(done, locked, locked)) << "reserved";
  {
    Own reader(file);
    ASSERT_TRUE(reader.lock.raise(Level::shared));
    EXPECT_FALSE(own.lock.raise(Level::exclusive));
    EXPECT_EQ(own.lock.level(), Level::pending);
    EXPECT_FALSE(Own(file).lock.raise(Level::shared)) << "pending";
    EXPECT_THAT(answersElsewhere(), ElementsAre(locked, locked, locked)) << "pending";
  }
  ASSERT_TRUE(own.lock.raise(Level::exclusive));
  EXPECT_THAT(answersElsewhere(), ElementsAre(locked, locked, locked)) << "exclusive";
  own.lock.lower(Level::shared);
  EXPECT_THAT(answersElsewhere(), ElementsAre(done, done, locked)) << "shared again";
  own.lock.lower(Level::none);
  EXPECT_THAT(answersElsewhere(), ElementsAre(done, done, done)) << "none again";
  ASSERT_TRUE(own.lock.raise(Level::shared) && own.lock.raise(Level::exclusive));
  EXPECT_THAT(answersElsewhere(), ElementsAre(locked, locked, locked)) << "exclusive, to play a journal back";
  own.lock.lower(Level::none);
  EXPECT_THAT(answersElsewhere(), ElementsAre(done, done, done)) << "none at last";
}

TEST_F(DatabaseLocks, areExcludedByOtherPrograms) {
  const struct {
    const char* what;
    const char* sql;
    Level expected;
  } cases[] = {
      {"nobody", "", Level::exclusive},
      {"a reader", "BEGIN; SELECT * FROM t", Level::pending},
      {"a writer", "BEGIN IMMEDIATE", Level::shared},
      {"a writer without readers", "BEGIN EXCLUSIVE", Level::none},
  };
  for (const auto& [what, sql, expected] : cases) {
    UsualConnection other(file);
    ASSERT_EQ(other.answerTo(sql), done) << what;
    EXPECT_EQ(levelElsewhere(), std::to_string(expected)) << what;
  }
  UsualConnection reader(file);
  UsualConnection writer(file);
  ASSERT_EQ(reader.answerTo("BEGIN; SELECT * FROM t"), done);
  ASSERT_EQ(writer.answerTo("BEGIN IMMEDIATE; INSERT INTO t VALUES (2); COMMIT"), locked);
  EXPECT_EQ(levelElsewhere(), std::to_string(Level::none)) << "a writer who waits for a reader";
}

// A journal beside a database is played back unless its writer still has the reserved lock.
TEST_F(DatabaseLocks, tellALivingWriterFromOneThatPlaysAJournalBack) {
  Own own(file);
  Own other(file);
  ASSERT_TRUE(own.lock.raise(Level::shared));
  EXPECT_FALSE(other.lock.isReserved());
  ASSERT_TRUE(own.lock.raise(Level::exclusive));
  EXPECT_FALSE(other.lock.isReserved()) << "playing back";
  EXPECT_TRUE(own.lock.isReserved());
  own.lock.lower(Level::shared);
  ASSERT_TRUE(own.lock.raise(Level::reserved));
  EXPECT_TRUE(other.lock.isReserved()) << "writing";
  ASSERT_TRUE(own.lock.raise(Level::exclusive));
  EXPECT_TRUE(other.lock.isReserved()) << "writing";
  own.lock.lower(Level::none);
  EXPECT_FALSE(other.lock.isReserved());
  UsualConnection usual(file);
  ASSERT_EQ(usual.answerTo("BEGIN IMMEDIATE"), done);
  EXPECT_EQ(inChild([&] { return std::to_string(Own(file).lock.isReserved()); }), "1");
}

TEST_F(DatabaseLocks, outliveOtherDescriptorsOfTheFileInTheProcess) {
  Own own(file);
  ASSERT_TRUE(own.lock.raise(Level::shared) && own.lock.raise(Level::reserved));
  ::close(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  { UsualConnection(file).answerTo("SELECT * FROM t"); }
  EXPECT_THAT(answersElsewhere(), ElementsAre(done, locked, locked));
}

TEST_F(DatabaseLocks, areReleasedWhenTheProcessIsKilled) {
  EXPECT_EQ(inChild([&]() -> std::string {
              Own own(file);
              if (!own.lock.raise(Level::shared) || !own.lock.raise(Level::exclusive)) return "not locked";
              kelvane::tests::dieAtOnce();
            }),
            "killed by signal 9");
  EXPECT_THAT(answersElsewhere(), ElementsAre(done, done, done));
}

TEST_F(DatabaseLocks, throwWhatTheSystemSays) {
  DatabaseLock lock(-1);
  EXPECT_THROW(lock.raise(Level::shared), std::system_error);
  EXPECT_THROW(lock.isReserved(), std::system_error);
  EXPECT_EQ(lock.level(), Level::none);
}

}  // namespace
}  // namespace quorvel::sqlite
