// How a history of format 1 becomes one of today's: every word of it stays, at whatever moment the change ends.
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
    const std::span<const std::string_view> first = historyMigrations().first(1);
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

  /// How many of the texts are found by today's hash.
  std::size_t foundTexts() const {
    sqlite::Connection connection = openedDatabase(database, sqlite::Connection::Access::reading, patience);
    std::size_t found = 0;
    for (const std::string& text : {std::string("one"), longText, std::string("other")})
      found += findText(connection, text).has_value();
    return found;
  }

  void expectFormat(std::int64_t expected, const std::string& what) const {
    EXPECT_EQ(format(), expected) << what;
    EXPECT_EQ(foundTexts(), expected == 1 ? 0U : 3U) << what;
  }

  /// That every version is there, and that whoever reads them leaves the format of today.
  void expectEverything(const std::string& what) const {
    EXPECT_EQ(story("Talk.md"), std::string("one ").append(longText).append(" one")) << what;
    EXPECT_EQ(story("Other.md") + story("Talk.md", 1), "otherother") << what;
    expectFormat(2, what);
    EXPECT_THAT(history.problems(), IsEmpty()) << what;
  }

  const std::string longText = std::string(20'000, 'x');  // of several pages
};

TEST_F(HistoryUpgrade, isMadeByWhoeverComesFirst) {
  const struct {
    const char* what;
    std::function<void()> come;
  } cases[] = {
      {"one who lists versions", [this] { history.entries("Talk.md"); }},
      {"one who shows a version",
       [this] {
         history.text("Talk.md", {0, 2});
       }},
      {"one who looks for a text", [this] { EXPECT_TRUE(history.hasVersionWith("one", "Talk.md")); }},
      {"one who checks", [this] { EXPECT_THAT(history.problems(), IsEmpty()); }},
      {"one who saves a version", [this] { save("later", "Later.md"); }},
      {"one who sets a script aside", [this] { history.setAside("Gone.md"); }},
  };
  for (const auto& [what, come] : cases) {
    makeFormat1();
    expectFormat(1, what);
    come();
    expectFormat(2, what);
    expectEverything(what);
  }
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
               History(root, std::chrono::system_clock::now, patience, calls).entries("Talk.md");
               return "done";
             }) == "done";
    halves += std::filesystem::exists(journal);
    const std::string what = "killed at call " + std::to_string(call);
    change("SELECT 1 FROM texts");  // which undoes what was left half done
    expectFormat(format(), what);
    expectEverything(what);
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
    const std::string sentence =
        sentenceOf([&] { History(root, std::chrono::system_clock::now, patience, calls).entries("Talk.md"); });
    isDone = left >= 0;
    expectEverything("failed at call " + std::to_string(call) + ": " + sentence);
  }
}

TEST_F(HistoryUpgrade, isNotMadeByOneWhoMayNotWrite) {
  makeFormat1();
  std::filesystem::permissions(root, std::filesystem::perms(0755));
  std::filesystem::permissions(root / ".kelvane", std::filesystem::perms(0555));
  std::filesystem::permissions(database, std::filesystem::perms(0444));
  const auto before = everything();
  EXPECT_EQ(kelvane::tests::inChild([this] {
              kelvane::tests::becomeNobody();
              return sentenceOf([this] { history.entries("Talk.md"); });
            }),
            "The version history of this library (.kelvane/history.sqlite) could not be read, because the system does "
            "not permit it. Check who may read and write in the folder .kelvane.");
  EXPECT_EQ(everything(), before);
  EXPECT_EQ(format(), 1);
  std::filesystem::permissions(root / ".kelvane", std::filesystem::perms(0700));
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
