// Another program moves the library's own folder away and puts a link to a folder outside in its place, at any moment.
#include <sqlite3.h>

#include <set>

#include "tests/quorvel/history/HistoryCalls.h"
#include "tests/quorvel/history/HistoryHouse.h"
#include "tests/support/ChildProcess.h"

namespace quorvel {
namespace {

using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

const std::string subject = "The version history of this library (.kelvane/history.sqlite) ";

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

  /// What a use says that is interrupted by something before each of its system calls.
  std::string sentenceOfInterrupted(const std::function<void()>& use, std::function<void(std::string_view)> before) {
    calls.before = [&](std::string_view call) { return before(call), 0; };
    const std::string sentence = sentenceOf(use);
    calls.before = [](std::string_view) { return 0; };
    return sentence;
  }

  /// Keeps a version with system calls that can be interrupted.
  void keepStaged(std::string_view text) { staged.snapshot(text, pathOf("Talk.md"), ""); }

  HistoryCalls calls;
  History staged{root, [this] { return now; }, patience, calls};
  const kelvane::tests::TemporaryFolder elsewhere;
  const std::filesystem::path own = root / ".kelvane";
  const std::filesystem::path away = root / ".away";
  const std::filesystem::path outside = elsewhere.path() / "outside";
};

TEST_F(SwappedOwnFolder, touchesNothingOutsideAndLosesNothingWhenSwappedAtAnyCall) {
  const auto keepOne = [&] { keepStaged("one"); };
  const Use uses[] = {
      {"the first version", false, [] {}, keepOne, {"", "one"}},
      {"another version", false, keepOne, [&] { keepStaged("two"); }, {"one", "one two"}},
      {"a version after a torn change",
       false,
       [&] {
         keepOne();
         dieInAChange();
       },
       [&] { keepStaged("two"); },
       {"one", "one two"}},
      {"reading", true, keepOne, [&] { staged.entries("Talk.md"); }, {"one"}},
      {"reading after a torn change",
       true,
       [&] {
         keepOne();
         dieInAChange();
       },
       [&] { staged.entries("Talk.md"); },
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
      const std::string sentence = sentenceOfInterrupted(use, [&](std::string_view call) {
        if (++made != time) return;
        interrupted.emplace(call);
        swap();
      });
      if (made < time) break;
      EXPECT_TRUE(std::filesystem::is_empty(outside));
      (sentence == "(no failure)" ? answered : refused) += 1;
      EXPECT_TRUE(isReading || sentence != "(no failure)");
      swapBack();
      EXPECT_THAT(before, ::testing::Contains(story("Talk.md"))) << sentence;
      EXPECT_THAT(history.problems(), IsEmpty());
    }
  }
  std::cout << refused << " refused, " << answered << " answered\n";
  EXPECT_GT(refused, 20);
  EXPECT_GT(answered, 5);
  EXPECT_THAT(interrupted, IsSupersetOf({"open", "readAt", "writeAt", "flushBytes", "flush", "unlink"}));
}

TEST_F(SwappedOwnFolder, aVersionIsRefusedIfTheFolderWasMovedAway) {
  save("one", "Talk.md");
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

TEST_F(SwappedOwnFolder, aVersionIsRefusedIfTheDatabaseWasReplaced) {
  save("one", "Talk.md");
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

TEST_F(SwappedOwnFolder, aVersionIsNotAcknowledgedIfTheFolderWasMovedAwayAtTheEnd) {
  save("one", "Talk.md");
  const std::string sentence = sentenceOfInterrupted([&] { keepStaged("two"); },
                                                     [&](std::string_view call) {
                                                       if (call == "unlink") swap();  // of the journal: the end
                                                     });
  EXPECT_EQ(sentence,
            subject +
                "was moved away or replaced by another just after it was written. What was written is in the "
                "one that was moved away. Look which library folder is the right one, put it in its place and "
                "try again.");
  swapBack();
  EXPECT_EQ(story("Talk.md"), "one two");
}

TEST_F(SwappedOwnFolder, aRenameIsNotFinishedInAFolderThatWasMovedAway) {
  for (const bool isDone : {true, false}) {
    startAfresh();
    put("Talk.md");
    save("one", "Talk.md");
    {
      PendingRename rename = staged.willRename("Talk.md", "Speech.md");
      std::filesystem::rename(pathOf("Talk.md"), pathOf("Speech.md"));
      calls.before = [&, isSwapped = false](std::string_view call) mutable {
        if (call == "readAt" && !std::exchange(isSwapped, true)) swap();  // the database is open then
        return 0;
      };
      if (isDone) rename.done();
    }
    calls.before = [](std::string_view) { return 0; };
    swapBack();
    EXPECT_EQ(integer("SELECT count(*) FROM pendingRenames"), 1) << isDone;
    EXPECT_EQ(story("Speech.md"), "one") << isDone;
    save("two", "Speech.md");
    EXPECT_EQ(integer("SELECT count(*) FROM pendingRenames"), 0) << isDone;
    EXPECT_EQ(story("Speech.md"), "one two") << isDone;
    std::filesystem::remove(pathOf("Speech.md"));
  }
}

TEST_F(SwappedOwnFolder, aDatabaseOrJournalThatBecomesALinkIsNotOpened) {
  const struct {
    const std::filesystem::path& file;
    std::string sentence;
  } cases[] = {
      {database,
       subject + "is not a file but a link or a folder, so nothing was changed. Move that link or folder away."},
      {journal, subject + "has something beside it that is not a file but has the name of its journal "
                          "(.kelvane/history.sqlite-journal), so nothing was changed. Move that away."},
  };
  for (const auto& each : cases) {
    const std::filesystem::path& file = each.file;
    startAfresh();
    save("one", "Talk.md");
    int opened = 0;
    const int time = file == database ? 1 : 2;
    const std::string sentence = sentenceOfInterrupted([&] { keepStaged("two"); },
                                                       [&](std::string_view call) {
                                                         if (call != "open" || ++opened != time) return;
                                                         std::filesystem::remove(file);
                                                         std::filesystem::create_symlink(outside / "target", file);
                                                       });
    EXPECT_EQ(sentence, each.sentence);
    EXPECT_TRUE(std::filesystem::is_empty(outside));
  }
}

}  // namespace
}  // namespace quorvel
