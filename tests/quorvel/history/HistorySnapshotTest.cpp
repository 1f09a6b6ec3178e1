// Keeping versions: what is stored, how numbers go on, and many writers at once.
#include <fstream>

#include "tests/quorvel/history/HistoryCalls.h"
#include "tests/quorvel/history/HistoryHouse.h"
#include "tests/support/ChildProcess.h"

namespace quorvel {
namespace {

using kelvane::tests::ChildProcess;
using ::testing::IsEmpty;

using HistorySnapshot = HistoryHouse;

TEST_F(HistorySnapshot, theFirstVersionCreatesThePrivateFolderAndTheDatabaseOnly) {
  save("words", "Talk.md");
  EXPECT_EQ(everything().size(), 2U);
  EXPECT_TRUE(std::filesystem::exists(database));
  EXPECT_EQ(std::filesystem::status(root / ".kelvane").permissions(), std::filesystem::perms(0700));
}

TEST_F(HistorySnapshot, anEmptyTextCreatesNothing) {
  save("", "Talk.md");
  EXPECT_THAT(everything(), IsEmpty());
}

TEST_F(HistorySnapshot, theDatabaseHasItsMarksAndNoWriteAheadLog) {
  save("words", "Talk.md");
  EXPECT_EQ(integer("PRAGMA application_id"), 0x4b6c766e);
  EXPECT_EQ(integer("PRAGMA user_version"), 2);
  EXPECT_EQ(read(database).substr(18, 2), "\1\1") << "a rollback journal, not a write-ahead log";
}

TEST_F(HistorySnapshot, equalTextsShareTheirBytesAndEachIsAVersion) {
  const std::string long1 = std::string(5'000, 'x') + "1";
  const std::string long2 = std::string(5'000, 'x') + "2";
  const struct {
    const char* what;
    std::string_view text;
    std::string_view identifier;
    std::int64_t texts;
  } cases[] = {
      {"a text", "words", "Talk.md", 1},
      {"the same again", "words", "Talk.md", 1},
      {"the same of another script", "words", "Other.md", 1},
      {"another", "words ", "Talk.md", 2},
      {"canonically equivalent ones are not equal: composed", "caf\u00e9", "Talk.md", 3},
      {"canonically equivalent ones are not equal: not composed", "cafe\u0301", "Talk.md", 4},
      {"a long one", long1, "Talk.md", 5},
      {"a long one that differs at its end", long2, "Talk.md", 6},
      {"the first once more", "words", "Talk.md", 6},
  };
  std::int64_t versions = 0;
  for (const auto& [what, text, identifier, texts] : cases) {
    save(text, identifier);
    EXPECT_EQ(integer("SELECT count(*) FROM texts"), texts) << what;
    EXPECT_EQ(integer("SELECT count(*) FROM versions"), ++versions) << what;
  }
}

TEST_F(HistorySnapshot, textsWithEqualHashesAreDistinguishedByTheirBytes) {
  save("one", "Talk.md");
  save("two", "Talk.md");
  change("UPDATE texts SET hash = (SELECT hash FROM texts WHERE bytes = CAST('two' AS BLOB))");
  save("two", "Talk.md");
  EXPECT_EQ(story("Talk.md"), "one two two");
  EXPECT_EQ(integer("SELECT count(*) FROM texts"), 2);
  EXPECT_TRUE(history.hasVersionWith("two", "Talk.md"));
}

TEST_F(HistorySnapshot, numbersCountFromOneForEachScript) {
  for (const auto* text : {"one", "two", "three"}) {
    save(text, "Talk.md");
    save(text, "Other.md");
  }
  for (const auto* identifier : {"Talk.md", "Other.md"}) {
    EXPECT_EQ(history.text(identifier, {0, 1}), "one");
    EXPECT_EQ(history.text(identifier, {0, 3}), "three");
    EXPECT_EQ(history.text(identifier, {0, 4}), std::nullopt);
  }
}

TEST_F(HistorySnapshot, aVersionKeepsItsNumberWhenOthersAreAdded) {
  save("one", "Talk.md");
  const VersionNumber chosen = history.entries("Talk.md").front().version;
  for (int i = 0; i < 20; ++i) save(std::to_string(i), "Talk.md");
  EXPECT_EQ(history.text("Talk.md", chosen), "one");
}

TEST_F(HistorySnapshot, concurrentProcessesLoseNothingAndLeaveNoGaps) {
  constexpr int processCount = 4;
  constexpr int each = 15;
  std::vector<ChildProcess> processes;
  for (int process = 0; process < processCount; ++process) {
    processes.emplace_back([this, process] {
      History own(root);
      for (int i = 0; i < each; ++i) {
        own.snapshot(std::to_string(process) + "." + std::to_string(i), pathOf("Talk.md"), "");
      }
      return std::string("done");
    });
  }
  for (ChildProcess& process : processes) EXPECT_EQ(process.answer(), "done");
  const auto entries = history.entries("Talk.md");
  ASSERT_EQ(entries.size(), std::size_t{processCount * each});
  std::vector<int> next(processCount, 0);
  int changesOfHand = 0;
  int last = -1;
  for (std::int64_t number = 1; number <= processCount * each; ++number) {
    const std::string text = history.text("Talk.md", {0, number}).value_or("?.?");
    const int process = text[0] - '0';
    ASSERT_EQ(text, std::to_string(process) + "." + std::to_string(next.at(static_cast<std::size_t>(process))++));
    changesOfHand += process != last;
    last = process;
  }
  EXPECT_GE(changesOfHand, processCount);
  EXPECT_THAT(history.problems(), IsEmpty());
}

TEST_F(HistorySnapshot, concurrentProcessesCreateOneDatabase) {
  for (int round = 0; round < 5; ++round) {
    std::filesystem::remove_all(root / ".kelvane");
    std::vector<ChildProcess> processes;
    for (int process = 0; process < 4; ++process) {
      processes.emplace_back([this] {
        History(root).snapshot("words", pathOf("Talk.md"), "");
        return std::string("done");
      });
    }
    for (ChildProcess& process : processes) EXPECT_EQ(process.answer(), "done");
    EXPECT_EQ(history.entries("Talk.md").size(), 4U);
  }
}

/// A writer in another process that is killed in the middle of changing the database: its journal is left behind, and
/// pages of the database are changed already.
void dieWhileWriting(const std::filesystem::path& database) {
  kelvane::tests::inChild([&]() -> std::string {
    sqlite::Connection writer = openedDatabase(database, sqlite::Connection::Access::writing, std::chrono::seconds(1));
    writer.runAll(
        "PRAGMA cache_size = 1; PRAGMA cache_spill = 1; BEGIN IMMEDIATE;"
        "UPDATE texts SET bytes = CAST('ruined' AS BLOB);"
        "WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 200)"
        " INSERT INTO texts (hash, bytes) SELECT i, zeroblob(5000) FROM n");
    kelvane::tests::dieAtOnce();
  });
}

TEST_F(HistorySnapshot, theNextWriterUndoesTheChangeOfAKilledOne) {
  save("one", "Talk.md");
  dieWhileWriting(database);
  ASSERT_TRUE(std::filesystem::exists(journal));
  save("two", "Talk.md");
  EXPECT_FALSE(std::filesystem::exists(journal));
  EXPECT_EQ(story("Talk.md"), "one two");
  EXPECT_THAT(history.problems(), IsEmpty());
}

TEST_F(HistorySnapshot, aReaderUndoesTheChangeOfAKilledWriter) {
  save("one", "Talk.md");
  dieWhileWriting(database);
  ASSERT_TRUE(std::filesystem::exists(journal));
  EXPECT_EQ(story("Talk.md"), "one");
  EXPECT_FALSE(std::filesystem::exists(journal));
}

TEST_F(HistorySnapshot, aReaderPutsNothingIntoADatabaseWhoseFirstWriterWasKilled) {
  int repaired = 0;
  bool isDone = false;
  for (int call = 0; !isDone; ++call) {
    ASSERT_LT(call, 10'000);
    std::filesystem::remove_all(root / ".kelvane");
    isDone = kelvane::tests::inChild([&]() -> std::string {
               HistoryCalls calls;
               calls.before = [left = call](std::string_view) mutable {
                 if (left-- == 0) kelvane::tests::dieAtOnce();
                 return 0;
               };
               History(root, std::chrono::system_clock::now, patience, calls).snapshot("one", pathOf("Talk.md"), "");
               return "done";
             }) == "done";
    if (!std::filesystem::exists(journal)) continue;
    const bool isChanged = std::filesystem::file_size(database) > 0;
    EXPECT_EQ(story("Talk.md"), "") << call;
    EXPECT_EQ(std::filesystem::file_size(database), 0U) << call;
    repaired += isChanged;
  }
  EXPECT_GT(repaired, 0) << "No writer was killed after it changed the database, so nothing was shown.";
}

TEST_F(HistorySnapshot, aReaderWithoutPermissionToWriteReportsTheChangeOfAKilledWriter) {
  save("one", "Talk.md");
  dieWhileWriting(database);
  const auto before = everything();
  const struct {
    const char* what;
    std::filesystem::perms folder;
    std::filesystem::perms file;
  } cases[] = {
      {"neither folder nor file may be written", std::filesystem::perms(0555), std::filesystem::perms(0444)},
      {"the folder may, the file may not", std::filesystem::perms(0777), std::filesystem::perms(0444)},
  };
  std::filesystem::permissions(root, std::filesystem::perms(0755));
  for (const auto& [what, folderMode, fileMode] : cases) {
    std::filesystem::permissions(root / ".kelvane", folderMode);
    for (const auto& file : {database, journal}) std::filesystem::permissions(file, fileMode);
    EXPECT_EQ(kelvane::tests::inChild([this] {
                kelvane::tests::becomeNobody();
                return sentenceOf([this] { history.versions(pathOf("Talk.md")); });
              }),
              "The version history of this library (.kelvane/history.sqlite) was left in the middle of a "
              "change by a program that ended early, and this user is not permitted to repair it, so it cannot be "
              "read. Use it "
              "once as a user who is permitted to write in the folder .kelvane.")
        << what;
    EXPECT_EQ(everything(), before) << what;
  }
  std::filesystem::permissions(root / ".kelvane", std::filesystem::perms(0700));
}

TEST_F(HistorySnapshot, writersKilledAtAnyCallLoseNoAcknowledgedVersion) {
  int journals = 0;
  for (int round = 0; round < 60; ++round) {
    // The child says after each version that it is kept, and is killed at a later call in each round.
    const std::filesystem::path said = root / "said";
    EXPECT_EQ(kelvane::tests::inChild([&]() -> std::string {
                HistoryCalls calls;
                calls.before = [left = round](std::string_view) mutable {
                  if (left-- == 0) kelvane::tests::dieAtOnce();
                  return 0;
                };
                std::ofstream out(said, std::ios::app);
                History own(root, std::chrono::system_clock::now, patience, calls);
                for (int i = 0;; ++i) {
                  const std::string text = std::to_string(round) + ":" + std::to_string(i);
                  own.snapshot(text, pathOf("Talk.md"), "");
                  out << text << ' ' << std::flush;
                }
              }),
              "killed by signal 9");
    journals += std::filesystem::exists(journal);
    const std::string kept = story("Talk.md");
    std::string acknowledged = read(said);
    // One version may have been kept of which it was not said any more.
    if (!acknowledged.empty()) acknowledged.pop_back();
    std::size_t at = 0;
    for (std::size_t begin = 0; begin < acknowledged.size();) {
      const std::size_t end = std::min(acknowledged.find(' ', begin), acknowledged.size());
      const std::string text = acknowledged.substr(begin, end - begin);
      at = (" " + kept + " ").find(" " + text + " ", at);
      ASSERT_NE(at, std::string::npos) << text << " was lost from: " << kept;
      begin = end + 1;
    }
  }
  EXPECT_GT(journals, 0) << "No writer was killed while it wrote, so nothing was shown.";
  EXPECT_THAT(history.problems(), IsEmpty());
}

}  // namespace
}  // namespace quorvel
