// What lies beside the database, or is written in it, leads to no other file.
#include "quorvel/history/ConfinedVFS.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "tests/quorvel/history/HistoryHouse.h"
#include "tests/support/ChildProcess.h"

namespace quorvel {
namespace {

using kelvane::tests::inChild;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const std::string subject = "The version history of this library (.kelvane/history.sqlite) ";

std::string bigEndian(std::size_t number) {
  std::string bytes;
  for (const int shift : {24, 16, 8, 0}) bytes.push_back(static_cast<char>(number >> shift & 0xff));
  return bytes;
}

class ConfinedDatabase : public HistoryHouse {
 protected:
  ConfinedDatabase() { startAfresh(); }

  void startAfresh() {
    std::filesystem::remove_all(root / ".kelvane");
    put("Talk.md");
    save("words", "Talk.md", "label");
    write(elsewhere, "of somebody else");
  }

  /// A journal as a program leaves it that dies in a change of this database and others at once: it names the file
  /// that lists their journals, and whoever is done with the journal deletes that file.
  void leaveJournalThatNames(const std::filesystem::path& file) const {
    constexpr std::size_t pageSize = 4096;
    const std::string magic = "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7";
    const std::string name = file.native();
    std::size_t checksum = 0;
    for (const char byte : name) checksum += static_cast<unsigned char>(byte);
    std::string bytes = magic + bigEndian(0) + bigEndian(0) + bigEndian(read(database).size() / pageSize) +
                        bigEndian(512) + bigEndian(pageSize);
    bytes.resize(512, '\0');
    bytes += bigEndian(0x40000000 / pageSize + 1) + name + bigEndian(name.size()) + bigEndian(checksum) + magic;
    write(journal, bytes);
  }

  /// Runs statements as programs do that open the database in the usual way.
  void asAnotherProgram(const char* sql) const {
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(database.c_str(), &other), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(other, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sql;
    EXPECT_EQ(sqlite3_close(other), SQLITE_OK);
  }

  void expectUnusable(const std::string& happened, const std::string& advice, const std::string& what) {
    const auto before = everything();
    const std::string reading = subject + happened + ", so it cannot be read. " + advice;
    const std::string writing = subject + happened + ", so nothing was changed. " + advice;
    EXPECT_EQ(sentenceOf([&] { history.entries("Talk.md"); }), reading) << what;
    EXPECT_EQ(sentenceOf([&] { history.text("Talk.md", {0, 1}); }), reading) << what;
    EXPECT_EQ(sentenceOf([&] { history.willRename("Talk.md", "Speech.md").done(); }), reading) << what;
    EXPECT_EQ(sentenceOf([&] { save("words", "Talk.md"); }), writing) << what;
    EXPECT_THAT(history.problems(), ElementsAre(reading)) << what;
    EXPECT_EQ(everything(), before) << what;
    EXPECT_EQ(read(elsewhere), "of somebody else") << what;
  }

  const kelvane::tests::TemporaryFolder outside;
  const std::filesystem::path elsewhere = outside.path() / "elsewhere";
  const std::filesystem::path log = root / ".kelvane/history.sqlite-wal";
};

TEST_F(ConfinedDatabase, isRefusedWithAJournalThatNamesAnotherFile) {
  const std::filesystem::path named[] = {
      elsewhere,   outside.path() / "none",    root / "Talk.md", database, root / ".kelvane/lock",
      "elsewhere", outside.path() / "-journal"};
  for (const auto& file : named) {
    startAfresh();
    write(root / ".kelvane/lock", "");
    leaveJournalThatNames(file);
    expectUnusable(
        "has a journal beside it (.kelvane/history.sqlite-journal) that another program left and that leads to other "
        "files",
        "Move that journal away, and see with \"kelvane doctor\" whether the history is whole.", file);
    std::filesystem::remove(journal);
    EXPECT_EQ(story("Talk.md"), "words") << file;
  }
}

TEST_F(ConfinedDatabase, isRefusedAtOnceWithAPipeInPlaceOfItsJournal) {
  leaveJournalThatNames(root / "none");
  std::filesystem::remove(journal);
  ASSERT_EQ(::mkfifo(journal.c_str(), 0600), 0);
  const std::string why =
      "has something beside it that is not a file but has the name of its journal (.kelvane/history.sqlite-journal)";
  EXPECT_THAT(sentenceOf([&] { history.entries("Talk.md"); }), ::testing::HasSubstr(why));
  EXPECT_THAT(sentenceOf([&] { save("more", "Talk.md"); }), ::testing::HasSubstr(why));
  std::filesystem::remove(journal);
  EXPECT_EQ(story("Talk.md"), "words");
}

TEST_F(ConfinedDatabase, isRefusedWithALinkInPlaceOfItsJournal) {
  leaveJournalThatNames(root / "none");
  std::filesystem::rename(journal, elsewhere);
  const std::string bytes = read(elsewhere);
  std::filesystem::create_symlink(elsewhere, journal);
  EXPECT_NE(sentenceOf([&] { history.entries("Talk.md"); }), "(no failure)");
  EXPECT_NE(sentenceOf([&] { save("more", "Talk.md"); }), "(no failure)");
  EXPECT_EQ(read(elsewhere), bytes);
  std::filesystem::remove(journal);
  EXPECT_EQ(story("Talk.md"), "words");
}

TEST_F(ConfinedDatabase, isNotChangedWhereItsJournalWouldOverwriteAFileWithAnotherName) {
  for (const std::string& bytes : {std::string(), std::string(4096, '\0')}) {
    write(elsewhere, bytes);
    std::filesystem::create_hard_link(elsewhere, journal);
    EXPECT_THAT(sentenceOf([&] { save("more", "Talk.md"); }),
                ::testing::HasSubstr("has the name of its journal (.kelvane/history.sqlite-journal) and another name "
                                     "elsewhere, so nothing was changed. Move that file away."));
    EXPECT_EQ(read(elsewhere), bytes);
    std::filesystem::remove(journal);
    EXPECT_EQ(story("Talk.md"), "words");
  }
}

TEST_F(ConfinedDatabase, isRefusedWithAWriteAheadLog) {
  const struct {
    const char* what;
    std::function<void()> done;
  } cases[] = {
      {"set to one", [&] { asAnotherProgram("PRAGMA journal_mode = WAL"); }},
      {"set to one, changed with it",
       [&] { asAnotherProgram("PRAGMA journal_mode = WAL; UPDATE versions SET saved = 1"); }},
      {"one beside it", [&] { write(log, "log"); }},
  };
  for (const auto& [what, done] : cases) {
    startAfresh();
    done();
    expectUnusable(
        "was made to use a write-ahead log by another program",
        "In the library's folder, the command sqlite3 .kelvane/history.sqlite \"PRAGMA journal_mode=DELETE\" undoes "
        "that.",
        what);
    asAnotherProgram("PRAGMA journal_mode = DELETE");
    EXPECT_EQ(story("Talk.md"), "words") << what;
    save("more", "Talk.md");
    EXPECT_EQ(story("Talk.md"), "words more") << what;
  }
}

TEST_F(ConfinedDatabase, isRefusedWhileAnotherProgramUsesAWriteAheadLog) {
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(database.c_str(), &other), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(other, "PRAGMA journal_mode = WAL; UPDATE versions SET saved = 1", nullptr, nullptr, nullptr),
            SQLITE_OK);
  ASSERT_TRUE(std::filesystem::exists(log));
  expectUnusable(
      "was made to use a write-ahead log by another program",
      "In the library's folder, the command sqlite3 .kelvane/history.sqlite \"PRAGMA journal_mode=DELETE\" undoes "
      "that.",
      "open elsewhere");
  EXPECT_EQ(sqlite3_close(other), SQLITE_OK);
}

TEST_F(ConfinedDatabase, isLockedByOneProgramAtATime) {
  const auto tried = [&](const char* sql) -> std::string {
    sqlite3* other = nullptr;
    if (sqlite3_open(database.c_str(), &other) != SQLITE_OK) return "not opened";
    const int code = sqlite3_exec(other, sql, nullptr, nullptr, nullptr);
    sqlite3_close(other);
    return sqlite3_errstr(code);
  };
  const char* write = "UPDATE versions SET saved = 1";
  const char* look = "SELECT count(*) FROM versions";
  {
    auto own = openedDatabase(database, sqlite::Connection::Access::writing, patience);
    own.runAll("BEGIN IMMEDIATE");
    for (const bool inAnother : {false, true}) {
      EXPECT_EQ(inAnother ? inChild([&] { return tried(write); }) : tried(write), "database is locked") << inAnother;
      EXPECT_EQ(inAnother ? inChild([&] { return tried(look); }) : tried(look), "not an error") << inAnother;
    }
    own.runAll("COMMIT; BEGIN EXCLUSIVE");
    EXPECT_EQ(tried(look), "database is locked");
    EXPECT_EQ(inChild([&] { return tried(look); }), "database is locked");
  }
  EXPECT_EQ(inChild([&] { return tried(write); }), "not an error");

  // Anew each time: our connection's end takes the locks of this process's usual connections away.
  for (const bool inAnother : {true, false}) {
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(database.c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    const auto kept = [&] { return sentenceOf([&] { save("more", "Talk.md"); }); };
    EXPECT_EQ(
        inAnother ? inChild(kept) : kept(),
        subject + "has been in use by another program for 1 second, so nothing was changed. Try again in a moment.")
        << inAnother;
    EXPECT_EQ(sqlite3_close(other), SQLITE_OK);
  }
  EXPECT_EQ(story("Talk.md"), "words");
}

// SQLite sorts, and keeps what it may have to take back, in files unless it is told otherwise.
TEST_F(ConfinedDatabase, needsNoTemporaryFiles) {
  sqlite::Connection connection = openedDatabase(database, sqlite::Connection::Access::writing, patience);
  connection.runAll(
      "PRAGMA cache_size = 1; BEGIN;"
      "CREATE TABLE numbers (n UNIQUE); CREATE TEMP TABLE own (n);"
      "WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 50000)"
      " INSERT INTO numbers SELECT i || hex(zeroblob(50)) FROM n;"
      "UPDATE numbers SET n = n || 'x';"
      "INSERT INTO own SELECT n FROM numbers ORDER BY n DESC; COMMIT");
  EXPECT_EQ(connection.integer("SELECT count(*) FROM own"), 50000);
}

TEST_F(ConfinedDatabase, isTheOnlyOneThatAStatementCanOpen) {
  sqlite::Connection connection = openedDatabase(database, sqlite::Connection::Access::writing, patience);
  const std::string attach = "ATTACH '" + elsewhere.native() + "' AS other; SELECT * FROM other.sqlite_schema";
  try {
    connection.runAll(attach);
    ADD_FAILURE() << "opened";
  } catch (const sqlite::Error& error) {
    EXPECT_EQ(error.code(), sqlite::ConfinedVFS::otherFile);
  }
}

TEST_F(ConfinedDatabase, leavesNoFileSystemRegisteredAfterItsConnection) {
  const auto registered = [] {
    std::vector<std::string> names;
    for (const sqlite3_vfs* files = sqlite3_vfs_find(nullptr); files; files = files->pNext)
      names.push_back(files->zName);
    return names;
  };
  const auto before = registered();
  {
    sqlite::Connection one = openedDatabase(database, sqlite::Connection::Access::reading, patience);
    sqlite::Connection other = openedDatabase(database, sqlite::Connection::Access::reading, patience);
    EXPECT_THAT(registered(), SizeIs(before.size() + 2));
    EXPECT_EQ(one.integer("SELECT count(*) FROM versions"), 1);
    EXPECT_EQ(other.integer("SELECT count(*) FROM versions"), 1);
  }
  EXPECT_EQ(registered(), before);
}

}  // namespace
}  // namespace quorvel
