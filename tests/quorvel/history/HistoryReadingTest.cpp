// Looking at a history: what the lists say, and that looking changes nothing.
#include <thread>

#include "tests/quorvel/history/HistoryCalls.h"
#include "tests/quorvel/history/HistoryHouse.h"
#include "tests/support/ChildProcess.h"

namespace quorvel {
namespace {

using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class HistoryReading : public HistoryHouse {
 protected:
  /// Every operation that only looks.
  void lookAtEverything() const {
    EXPECT_THAT(history.versions(pathOf("Talk.md")), IsEmpty());
    EXPECT_THAT(history.entries("Talk.md"), IsEmpty());
    EXPECT_THAT(history.entries("Talk.md", 1), IsEmpty());
    EXPECT_EQ(history.text("Talk.md", {0, 1}), std::nullopt);
    EXPECT_THAT(history.scripts(), IsEmpty());
    EXPECT_THAT(history.scripts("Talk.md"), IsEmpty());
    EXPECT_FALSE(history.hasVersionWith("words", "Talk.md"));
    EXPECT_THAT(history.problems(), IsEmpty());
  }
};

TEST_F(HistoryReading, aLibraryWithoutAHistoryHasAnEmptyOneAndIsNotChanged) {
  lookAtEverything();
  history.setAside("Talk.md");
  put("Talk.md");
  history.willRename("Talk.md", "Speech.md").done();
  EXPECT_THAT(everything(), ElementsAre(std::pair(pathOf("Talk.md").string(), "words"s)));
}

TEST_F(HistoryReading, anOwnFolderWithoutADatabaseIsAnEmptyHistory) {
  std::filesystem::create_directory(root / ".kelvane");
  lookAtEverything();
  EXPECT_THAT(everything(), ElementsAre(std::pair((root / ".kelvane").string(), "(no file)"s)));
}

TEST_F(HistoryReading, anEmptyDatabaseIsAnEmptyHistory) {
  write(database, "");
  const auto before = everything();
  lookAtEverything();
  EXPECT_EQ(everything(), before);
}

TEST_F(HistoryReading, aMissingRootIsAnEmptyHistory) {
  const History gone(root / "gone");
  EXPECT_THAT(gone.scripts(), IsEmpty());
  EXPECT_THAT(gone.versions(root / "gone/Talk.md"), IsEmpty());
}

TEST_F(HistoryReading, readingChangesNoFile) {
  save("one", "Talk.md", "first");
  save("two", "Talk.md", "second");
  const auto before = everything();
  EXPECT_EQ(story("Talk.md"), "one two");
  EXPECT_EQ(history.versions(pathOf("Talk.md")).size(), 2U);
  EXPECT_THAT(scripts(), ElementsAre("Talk.md: 2"));
  EXPECT_EQ(history.scripts("Talk.md").size(), 1U);
  EXPECT_TRUE(history.hasVersionWith("one", "Talk.md"));
  EXPECT_THAT(history.problems(), IsEmpty());
  EXPECT_EQ(everything(), before);
}

TEST_F(HistoryReading, aReaderWithoutPermissionToWriteSeesEverything) {
  save("one", "Talk.md");
  std::filesystem::permissions(root, std::filesystem::perms(0555));
  std::filesystem::permissions(root / ".kelvane", std::filesystem::perms(0555));
  std::filesystem::permissions(database, std::filesystem::perms(0444));
  EXPECT_EQ(kelvane::tests::inChild([this] {
              kelvane::tests::becomeNobody();
              return story("Talk.md") + ", " + std::to_string(history.problems().size()) + " problems";
            }),
            "one, 0 problems");
  std::filesystem::permissions(root, std::filesystem::perms(0755));
  std::filesystem::permissions(root / ".kelvane", std::filesystem::perms(0755));
}

TEST_F(HistoryReading, anEntryHasEveryFieldOfAVersion) {
  save("one two", "Talk.md", "first");
  now += std::chrono::hours(1);
  save("caf\u00e9", "Talk.md", "second");
  EXPECT_THAT(history.entries("Talk.md"),
              ElementsAre(HistoryEntry{{0, 2}, now, "second", 1, 5},
                          HistoryEntry{{0, 1}, now - std::chrono::hours(1), "first", 2, 7}));
  EXPECT_THAT(history.scripts(), ElementsAre(HistoryOfScript{"Talk.md", 0, 2, now}));
}

TEST_F(HistoryReading, textsComeBackByteForByte) {
  const struct {
    const char* what;
    std::string text;
  } cases[] = {
      {"plain", "words"},
      {"a byte-order mark and CR LF", "\xef\xbb\xbf# One\r\n\r\ntext\r\n"},
      {"NULs", "a\0b\0"s},
      {"one NUL", "\0"s},
      {"bytes that are not UTF-8", "\xff\xc3\x28\x80"},
      {"composed and not", "caf\u00e9 cafe\u0301"},
      {"digits that SQL might take for a number", "0012"},
      {"more than a page", std::string(100'000, 'x') + "end"},
  };
  std::int64_t number = 0;
  for (const auto& [what, text] : cases) {
    save(text, "Talk.md", what);
    EXPECT_EQ(history.text("Talk.md", {0, ++number}), text) << what;
  }
  number = 0;
  for (const auto& [what, text] : cases) EXPECT_EQ(history.text("Talk.md", {0, ++number}), text) << what;
}

TEST_F(HistoryReading, aMissingVersionIsEmpty) {
  save("one", "Talk.md");
  const struct {
    const char* what;
    std::string_view identifier;
    VersionNumber version;
  } cases[] = {
      {"a number not reached yet", "Talk.md", {0, 2}}, {"no number", "Talk.md", {0, 0}},
      {"a negative one", "Talk.md", {0, -1}},          {"an earlier script's", "Talk.md", {1, 1}},
      {"another script's", "Other.md", {0, 1}},        {"another spelling", "talk.md", {0, 1}},
  };
  for (const auto& [what, identifier, version] : cases)
    EXPECT_EQ(history.text(identifier, version), std::nullopt) << what;
}

TEST_F(HistoryReading, aTextIsHeldIfThisScriptHasAVersionWithExactlyItsBytes) {
  save("one", "Talk.md");
  save("two", "Talk.md");
  save("other", "Other.md");
  const struct {
    const char* what;
    std::string_view text;
    bool isThere;
  } cases[] = {
      {"the newest", "two", true},  {"an older one", "one", true},  {"another script's", "other", false},
      {"none's", "three", false},   {"a part of one", "tw", false}, {"one and more", "two ", false},
      {"the empty text", "", true},
  };
  for (const auto& [what, text, isThere] : cases) EXPECT_EQ(history.hasVersionWith(text, "Talk.md"), isThere) << what;
  EXPECT_FALSE(history.hasVersionWith("one", "Gone.md"));
}

TEST_F(HistoryReading, theNewestVersionIsFoundWithoutReadingTheOlderOnes) {
  save("shared", "Other.md");
  const auto readsAmong = [this](int versions) {
    const std::string upTo = std::to_string(versions);
    change(
        "WITH RECURSIVE n (i) AS (SELECT coalesce(max(number), 0) + 1 FROM versions WHERE script = 2 UNION ALL"
        " SELECT i + 1 FROM n WHERE i < " +
        upTo + ") INSERT INTO versions SELECT 2, i, i, x'6C', 1, 6, 1 FROM n");
    save("newest of " + upTo, "Talk.md");
    HistoryCalls calls;
    int reads = 0;
    calls.before = [&](std::string_view call) { return reads += call == "readAt", 0; };
    EXPECT_TRUE(
        History(root, std::chrono::system_clock::now, patience, calls).hasVersionWith("newest of " + upTo, "Talk.md"));
    return reads;
  };
  save("first", "Talk.md");
  const int few = readsAmong(10'000);
  const int many = readsAmong(100'000);
  EXPECT_LE(many, few + 1) << "the tree may be one page higher";
}

TEST_F(HistoryReading, scriptsAreListedInTheOrderOfTheirBytes) {
  for (const auto* identifier : {"b.md", "a/c.md", "a.md", "B.md", "\xff.md"}) save("words", identifier);
  EXPECT_THAT(scripts(), ElementsAre("B.md: 1", "a.md: 1", "a/c.md: 1", "b.md: 1", "\xff.md: 1"));
}

TEST_F(HistoryReading, aPathOutsideTheRootIsRefused) {
  const struct {
    const char* what;
    std::filesystem::path path;
  } cases[] = {
      {"the root itself", root},
      {"the root with a slash", root / ""},
      {"another folder", "/elsewhere/Talk.md"},
      {"a folder whose name begins like the root's", root.string() + "2/Talk.md"},
      {"a relative path", "Talk.md"},
      {"nothing", ""},
  };
  for (const auto& [what, given] : cases) {
    const std::filesystem::path& path = given;
    const std::string sentence = "\"" + path.string() + "\" is not inside the library.";
    EXPECT_EQ(sentenceOf([&] { history.versions(path); }), sentence) << what;
    EXPECT_EQ(sentenceOf([&] { history.snapshot("words", path, ""); }), sentence) << what;
  }
  EXPECT_FALSE(std::filesystem::exists(root / ".kelvane"));
}

TEST_F(HistoryReading, theRootMayEndInASlashOrBeALink) {
  save("one", "Talk.md");
  const std::filesystem::path link = folder.path().string() + "-link";
  std::filesystem::create_directory_symlink(root, link);
  EXPECT_EQ(story(History(root / ""), "Talk.md"), "one");
  EXPECT_EQ(History(root / "").versions(root / "Talk.md").size(), 1U);
  History linked(link);
  linked.snapshot("two", link / "Talk.md", "");
  EXPECT_EQ(story("Talk.md"), "one two");
  std::filesystem::remove(link);
}

TEST_F(HistoryReading, tenThousandVersionsAreListedWithoutTheirTexts) {
  save("words", "Talk.md");
  change(
      "WITH RECURSIVE n (i) AS (VALUES (2) UNION ALL SELECT i + 1 FROM n WHERE i < 10000)"
      " INSERT INTO versions SELECT 1, i, i * 1000, CAST('label ' || i AS BLOB), i, 5, 1 FROM n");
  EXPECT_THAT(history.problems(), IsEmpty());
  // With the texts gone the list is still whole, so it cannot have come from them.
  change("PRAGMA ignore_check_constraints = ON; DELETE FROM texts");
  const auto entries = history.entries("Talk.md");
  ASSERT_EQ(entries.size(), 10'000U);
  EXPECT_EQ(entries.front(), (HistoryEntry{{0, 10'000}, Moment(std::chrono::seconds(10)), "label 10000", 10'000, 5}));
  for (std::size_t i = 0; i < entries.size(); ++i) {
    ASSERT_EQ(entries[i].version.number, static_cast<std::int64_t>(entries.size() - i));
  }
}

}  // namespace
}  // namespace quorvel
