// Another program moves the library's own folder away and puts a link to a folder outside in its place, at any moment.
#include <sched.h>
#include <sys/mount.h>

#include <set>

#include "tests/quorvel/history/HistoryHouse.h"
#include "tests/quorvel/history/SQLiteCalls.h"
#include "tests/support/ChildProcess.h"

namespace quorvel {
namespace {

using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

const std::string subject = "The version history of this library (.kelvane/history.sqlite) ";

/// How many calls SQLite makes at most to close the database, behind the last look at where it is.
constexpr int closing = 2;

/// A use of the history, on a library that is made ready for it.
struct Use {
  const char* what;
  bool isReading;
  std::function<void()> prepare;
  std::function<void()> use;
  std::vector<std::string> before;  // what the history may hold afterwards, by its story
};

class SwappedOwnFolder : public HistoryHouse {
 protected:
  SwappedOwnFolder() { std::filesystem::create_directory(outside); }

  void startAfresh() const {
    std::filesystem::remove_all(own);
    std::filesystem::remove_all(away);
    std::filesystem::remove_all(outside);
    std::filesystem::create_directory(outside);
  }

  void swap() const {
    std::filesystem::rename(own, away);
    std::filesystem::create_directory_symlink(outside, own);
  }

  void swapBack() const {
    std::filesystem::remove(own);
    std::filesystem::rename(away, own);
  }

  /// A change that a program has begun which dies in the midst of it: the database and its journal.
  void dieInAChange() const {
    ASSERT_EQ(kelvane::tests::inChild([&]() -> std::string {
                sqlite3* other = nullptr;
                if (sqlite3_open(database.c_str(), &other) != SQLITE_OK) return "not opened";
                sqlite3_exec(other,
                             "PRAGMA cache_size = 1; PRAGMA cache_spill = 1; BEGIN IMMEDIATE;"
                             "UPDATE texts SET bytes = CAST('ruined' AS BLOB);"
                             "WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 200)"
                             " INSERT INTO texts (hash, bytes) SELECT i, zeroblob(5000) FROM n",
                             nullptr, nullptr, nullptr);
                kelvane::tests::dieAtOnce();
              }),
              "killed by signal 9");
    ASSERT_TRUE(std::filesystem::exists(journal));
  }

  /// In this process, and in none that is there already.
  static bool hideTheProcesses() {
    return ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("tmpfs", "/proc", "tmpfs", 0, nullptr) == 0;
  }

  const kelvane::tests::TemporaryFolder elsewhere;
  const std::filesystem::path own = root / ".kelvane";
  const std::filesystem::path away = root / ".away";
  const std::filesystem::path outside = elsewhere.path() / "outside";
};

TEST_F(SwappedOwnFolder, atAnyCallNothingIsTouchedOutsideAndNothingIsLost) {
  const auto keepOne = [&] { keep("one", "Talk.md"); };
  const Use uses[] = {
      {"the first version", false, [] {}, keepOne, {"", "one"}},
      {"another version", false, keepOne, [&] { keep("two", "Talk.md"); }, {"one", "one two"}},
      {"a version after a torn change",
       false,
       [&] {
         keepOne();
         dieInAChange();
       },
       [&] { keep("two", "Talk.md"); },
       {"one", "one two"}},
      {"reading", true, keepOne, [&] { history.entries("Talk.md"); }, {"one"}},
      {"reading after a torn change",
       true,
       [&] {
         keepOne();
         dieInAChange();
       },
       [&] { history.entries("Talk.md"); },
       {"one"}},
  };
  std::set<std::string> interrupted;
  int refused = 0;
  int answered = 0;
  for (const auto& [what, isReading, prepare, use, before] : uses) {
    for (int time = 1;; ++time) {
      SCOPED_TRACE(std::string(what) + ", call " + std::to_string(time));
      startAfresh();
      prepare();
      int made = 0;
      std::string sentence;
      {
        const SQLiteCalls calls([&](std::string_view call) {
          if (++made != time) return;
          interrupted.emplace(call);
          swap();
        });
        sentence = sentenceOf(use);
      }
      if (made < time) break;
      EXPECT_TRUE(std::filesystem::is_empty(outside));
      (sentence == "(no failure)" ? answered : refused) += 1;
      EXPECT_TRUE(isReading || sentence != "(no failure)" || made - time < closing);
      swapBack();
      EXPECT_THAT(before, ::testing::Contains(story("Talk.md"))) << sentence;
      EXPECT_THAT(history.problems(), IsEmpty());
    }
  }
  std::cout << refused << " refused, " << answered << " answered\n";
  EXPECT_GT(refused, 20);
  EXPECT_GT(answered, 5);
  EXPECT_THAT(interrupted, IsSupersetOf({"open", "stat", "unlink", "pwrite"}));
}

TEST_F(SwappedOwnFolder, aVersionThatWouldBeInTheOneThatWasMovedAwayIsNotKept) {
  keep("one", "Talk.md");
  History clocked(
      root,
      [&] {
        swap();
        return now;
      },
      patience);
  EXPECT_EQ(sentenceOf([&] { clocked.snapshot("two", pathOf("Talk.md"), ""); }),
            subject +
                "was moved away or replaced by another while it was to be written, so nothing was changed. Look which "
                "library folder is the right one, put it in its place and try again.");
  EXPECT_TRUE(std::filesystem::is_empty(outside));
  swapBack();
  EXPECT_EQ(story("Talk.md"), "one");
}

TEST_F(SwappedOwnFolder, aVersionThatWouldBeInADatabaseThatWasReplacedIsNotKept) {
  keep("one", "Talk.md");
  const std::string bytes = read(database);
  History clocked(
      root,
      [&] {
        std::filesystem::rename(database, root / "replaced");
        write(database, bytes);
        return now;
      },
      patience);
  EXPECT_THAT(sentenceOf([&] { clocked.snapshot("two", pathOf("Talk.md"), ""); }),
              ::testing::StartsWith(subject + "was moved away or replaced by another while it was to be written"));
  EXPECT_EQ(story("Talk.md"), "one");
}

TEST_F(SwappedOwnFolder, aVersionThatIsInTheOneThatWasMovedAwayIsNotAcknowledged) {
  keep("one", "Talk.md");
  std::string sentence;
  {
    const SQLiteCalls calls([&](std::string_view call) {
      if (call == "unlink") swap();  // of the journal, which ends the change
    });
    sentence = sentenceOf([&] { keep("two", "Talk.md"); });
  }
  EXPECT_EQ(sentence,
            subject +
                "was moved away or replaced by another just after it was written. What was written is in the "
                "one that was moved away. Look which library folder is the right one, put it in its place and "
                "try again.");
  swapBack();
  EXPECT_EQ(story("Talk.md"), "one two");
}

// SQLite itself follows no link at the last piece either; this is looked at before.
TEST_F(SwappedOwnFolder, aDatabaseThatBecomesALinkIsNotOpened) {
  keep("one", "Talk.md");
  const std::string bytes = read(database);
  for (const bool journalToo : {false, true}) {
    startAfresh();
    keep("one", "Talk.md");
    std::string sentence;
    {
      const SQLiteCalls calls([&](std::string_view call) {
        if (call != "open" || std::filesystem::is_symlink(journalToo ? journal : database)) return;
        std::filesystem::path link = journalToo ? journal : database;
        std::filesystem::remove(link);
        std::filesystem::create_symlink(outside / "target", link);
      });
      sentence = sentenceOf([&] { keep("two", "Talk.md"); });
    }
    EXPECT_THAT(sentence, ::testing::StartsWith(subject + "could not be written, because ")) << journalToo;
    EXPECT_TRUE(std::filesystem::is_empty(outside));
  }
}

TEST_F(SwappedOwnFolder, withoutAPathThatLeadsToAnOpenedFolderNothingIsOpened) {
  keep("one", "Talk.md");
  const std::string answer = kelvane::tests::inChild([&]() -> std::string {
    if (!hideTheProcesses()) return "not hidden";
    return sentenceOf([&] { keep("two", "Talk.md"); }) + '\n' + sentenceOf([&] { history.entries("Talk.md"); });
  });
  if (answer == "not hidden") GTEST_SKIP() << "Only root can hide /proc.";
  const std::string why =
      "cannot be opened without the danger of opening something outside the library, because /proc is missing, so ";
  EXPECT_EQ(answer, subject + why + "nothing was changed. Mount /proc and try again.\n" + subject + why +
                        "it cannot be read. Mount /proc and try again.");
  EXPECT_EQ(story("Talk.md"), "one");
}

}  // namespace
}  // namespace quorvel
