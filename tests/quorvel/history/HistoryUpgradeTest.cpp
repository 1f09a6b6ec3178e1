// A history of format 1: who reads it leaves it as it is, and the first change makes it one of today's. Every word of
// it stays, at whatever moment the change ends.
#include <cerrno>

#include "quorvel/files/FNV1a.h"
#include "quorvel/history/HistoryTexts.h"
#include "tests/quorvel/history/HistoryCalls.h"
#include "tests/quorvel/history/HistoryHouse.h"
#include "tests/support/ChildProcess.h"

namespace quorvel {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class HistoryUpgrade : public HistoryHouse {
 protected:
  /// Makes a history as the program of format 1 made it: a script with two versions of one text and a long one, another
  /// script, and an earlier one.
  void makeFormat1() const {
    std::filesystem::remove_all(root / ".kelvane");
    std::filesystem::create_directory(root / ".kelvane");
    const HistoryMigrations first{historyMigrations().steps.first(1), 1};
    sqlite::Connection connection = HistoryFile(root, patience, first).writing(OpenedRoot::find(root));
    const std::string texts[] = {"one", longText, "other"};
    for (const std::string& text : texts) {
      connection.run("INSERT INTO texts (hash, bytes) VALUES (?, ?)", static_cast<std::int64_t>(fnv1a(text)), text);
    }
    for (const char* script : {"('Talk.md', 0)", "('Other.md', 0)", "('Talk.md', 1)"}) {
      connection.runAll(
          std::string("INSERT INTO scripts (identifier, earlier) SELECT CAST(column1 AS BLOB), column2 FROM"
                      " (VALUES ")
              .append(script)
              .append(")"));
    }
    connection.runAll(
        "INSERT INTO versions SELECT column1, column2, 1000 * column2, CAST('note' AS BLOB), 1,"
        " (SELECT length(bytes) FROM texts WHERE id = column3), column3"
        " FROM (VALUES (1, 1, 1), (1, 2, 2), (1, 3, 1), (2, 1, 3), (3, 1, 3))");
    connection.run("COMMIT");
  }

  std::int64_t format() const { return integer("PRAGMA user_version"); }

  /// That every text has the hash of that format, and no text that of another.
  void expectFormat(std::int64_t expected, const std::string& what) const {
    EXPECT_EQ(format(), expected) << what;
    sqlite::Connection connection = openedDatabase(database, sqlite::Connection::Access::reading, patience);
    auto texts = connection.prepare("SELECT bytes, hash FROM texts");
    std::size_t count = 0;
    for (; texts.next(); ++count) {
      const std::string text = texts.bytes(0);
      EXPECT_EQ(texts.integer(1), expected == 1 ? static_cast<std::int64_t>(fnv1a(text)) : textHash(text)) << what;
    }
    EXPECT_GE(count, 3U) << what;
  }

  /// That every version of `makeFormat1` can be read, whatever the format is.
  void expectEverything(const std::string& what) const {
    EXPECT_EQ(story("Talk.md"), std::string("one ").append(longText).append(" one")) << what;
    EXPECT_EQ(story("Other.md") + story("Talk.md", 1), "otherother") << what;
    for (const std::string& text : {std::string("one"), longText})
      EXPECT_TRUE(history.hasVersionWith(text, "Talk.md")) << what;
    EXPECT_FALSE(history.hasVersionWith("another", "Talk.md")) << what;
    EXPECT_THAT(history.problems(), IsEmpty()) << what;
  }

  /// Saves a version, which takes every step of a change, and each system call may be made to fail.
  void saveLater(const HistoryCalls& calls) const {
    History(root, std::chrono::system_clock::now, patience, calls).snapshot("later", pathOf("Later.md"), "");
  }

  /// That the file has today's format if the version of `saveLater` is in it, and that of format 1 otherwise; and that
  /// the next writer leaves today's.
  void expectAllOrNothing(const std::string& what) {
    expectEverything(what);
    expectFormat(story("Later.md") == "later" ? 2 : 1, what);
    save("once more", "Later.md");
    expectEverything(what);
    expectFormat(2, what);
  }

  const std::string longText = std::string(20'000, 'x');  // of several pages
};

TEST_F(HistoryUpgrade, isMadeByNobodyWhoReads) {
  const struct {
    const char* what;
    std::function<void()> come;
  } cases[] = {
      {"one who lists versions", [this] { EXPECT_EQ(history.entries("Talk.md").size(), 3U); }},
      {"one who shows a version",
       [this] {
         EXPECT_EQ(history.text("Talk.md", {0, 2}), longText);
       }},
      {"one who lists scripts", [this] { EXPECT_EQ(scripts().size(), 3U); }},
      {"one who lists what was done", [this] { EXPECT_EQ(history.timeLine({}, 10).size(), 5U); }},
      {"one who looks for a text", [this] { EXPECT_TRUE(history.hasVersionWith("one", "Talk.md")); }},
      {"one who looks for a text in vain", [this] { EXPECT_FALSE(history.hasVersionWith("other", "Talk.md")); }},
      {"one who checks", [this] { EXPECT_THAT(history.problems(), IsEmpty()); }},
      {"one who creates a script that nobody knows", [this] { EXPECT_FALSE(history.setAside("New.md")); }},
  };
  for (const auto& [what, come] : cases) {
    makeFormat1();
    const auto before = everything();
    come();
    EXPECT_EQ(everything(), before) << what;
    expectFormat(1, what);
  }
}

TEST_F(HistoryUpgrade, isMadeByWhoeverWritesFirst) {
  put("Other.md");
  const struct {
    const char* what;
    std::function<void()> come;
  } cases[] = {
      {"one who saves a version", [this] { save("later", "Later.md"); }},
      {"one who sets a script aside, and gives it back",
       [this] {
         EXPECT_TRUE(history.setAside("Other.md"));
         history.undoSetAside("Other.md");
       }},
      {"one who is about to rename a script, and does not",
       [this] { const PendingRename rename = history.willRename("Other.md", "New.md"); }},
  };
  for (const auto& [what, come] : cases) {
    makeFormat1();
    expectFormat(1, what);
    expectEverything(what);
    come();
    expectFormat(2, what);
    expectEverything(what);
  }
}

TEST_F(HistoryUpgrade, isNotNeededToFollowARename) {
  makeFormat1();
  put("Moved.md");
  change(
      "INSERT INTO pendingRenames (source, target, isFolder, inode)"
      " VALUES (CAST('Other.md' AS BLOB), CAST('Moved.md' AS BLOB), 0, 0)");
  const auto before = everything();
  EXPECT_THAT(scripts(), ElementsAre("Moved.md: 1", "Talk.md: 3", "Talk.md (earlier 1): 1"));
  EXPECT_EQ(story("Moved.md"), "other");
  EXPECT_EQ(everything(), before);
}

TEST_F(HistoryUpgrade, isNotNeededToFindAChangedText) {
  makeFormat1();
  change("UPDATE texts SET bytes = CAST('othEr' AS BLOB) WHERE id = 3");
  EXPECT_THAT(history.problems(), ElementsAre("Text 3 of the version history has other bytes than were kept."));
  EXPECT_EQ(format(), 1);
}

TEST_F(HistoryUpgrade, keepsEqualTextsShared) {
  makeFormat1();
  for (const std::string& text : {std::string("one"), longText, std::string("other")}) save(text, "Talk.md");
  EXPECT_EQ(integer("SELECT count(*) FROM texts"), 3);
  EXPECT_THAT(scripts(), ElementsAre("Other.md: 1", "Talk.md: 6", "Talk.md (earlier 1): 1"));
}

TEST_F(HistoryUpgrade, isAllOrNothingWhenItsProcessIsKilledAtAnyCall) {
  bool isDone = false;
  int halves = 0;
  for (int call = 0; !isDone; ++call) {
    ASSERT_LT(call, 10'000);
    makeFormat1();
    isDone = kelvane::tests::inChild([&]() -> std::string {
               HistoryCalls calls;
               calls.before = [left = call](std::string_view) mutable {
                 if (left-- == 0) kelvane::tests::dieAtOnce();
                 return 0;
               };
               saveLater(calls);
               return "done";
             }) == "done";
    halves += std::filesystem::exists(journal);
    expectAllOrNothing("killed at call " + std::to_string(call));
  }
  EXPECT_GT(halves, 0) << "No process was killed within the change, so nothing was shown.";
}

TEST_F(HistoryUpgrade, isAllOrNothingWhenAnyCallFails) {
  bool isDone = false;
  for (int call = 0; !isDone; ++call) {
    ASSERT_LT(call, 10'000);
    makeFormat1();
    HistoryCalls calls;
    int left = call;
    calls.before = [&](std::string_view) { return left-- == 0 ? ENOSPC : 0; };
    const std::string sentence = sentenceOf([&] { saveLater(calls); });
    isDone = left >= 0;
    expectAllOrNothing("failed at call " + std::to_string(call) + ": " + sentence);
  }
}

TEST_F(HistoryUpgrade, isNotNeededByOneWhoMayNotWrite) {
  makeFormat1();
  std::filesystem::permissions(root, std::filesystem::perms(0755));
  std::filesystem::permissions(root / ".kelvane", std::filesystem::perms(0555));
  std::filesystem::permissions(database, std::filesystem::perms(0444));
  const auto before = everything();
  EXPECT_EQ(kelvane::tests::inChild([this] {
              kelvane::tests::becomeNobody();
              const std::string sizes = std::to_string(history.entries("Talk.md").size()) + " versions, " +
                                        std::to_string(history.problems().size()) + " problems: ";
              return sizes + history.text("Talk.md", {0, 1}).value_or("(none)") + ' ' + story("Other.md") + ' ' +
                     story("Talk.md", 1) + ". " + sentenceOf([this] { save("later", "Later.md"); });
            }),
            "3 versions, 0 problems: one other other. The version history of this library (.kelvane/history.sqlite) "
            "could not be written, because the system does not permit it, so nothing was changed. Check who may read "
            "and write in the folder .kelvane.");
  EXPECT_EQ(everything(), before);
  std::filesystem::permissions(root / ".kelvane", std::filesystem::perms(0700));
  std::filesystem::permissions(database, std::filesystem::perms(0600));
  save("later", "Later.md");
  expectFormat(2, "afterwards");
  expectEverything("afterwards");
}

TEST_F(HistoryUpgrade, leavesALaterFormatAsItIs) {
  save("one", "Talk.md");
  change("PRAGMA user_version = 3");
  const auto before = everything();
  EXPECT_THAT(sentenceOf([this] { history.entries("Talk.md"); }), HasSubstr("newer version"));
  EXPECT_THAT(sentenceOf([this] { save("two", "Talk.md"); }), HasSubstr("newer version"));
  EXPECT_EQ(everything(), before);
}

}  // namespace
}  // namespace quorvel
