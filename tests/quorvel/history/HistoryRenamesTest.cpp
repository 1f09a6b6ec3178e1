// Histories follow their scripts, and earlier scripts of a name keep theirs.
#include "tests/quorvel/history/HistoryHouse.h"

namespace quorvel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class HistoryRenames : public HistoryHouse {
 protected:
  /// Keeps a version of a script that is on the disk, with its identifier as its text.
  void script(std::string_view identifier) {
    put(identifier);
    save(identifier, identifier);
  }

  /// Renames on the disk and in the history.
  void rename(std::string_view from, std::string_view to) {
    PendingRename rename = history.willRename(from, to);
    std::filesystem::rename(root / from, root / to);
    rename.done();
  }

  void remove(std::string_view identifier) const { std::filesystem::remove_all(root / identifier); }

  std::int64_t pendingRenames() const { return integer("SELECT count(*) FROM pendingRenames"); }
};

TEST_F(HistoryRenames, aRenamedScriptKeepsItsHistory) {
  script("Talk.md");
  rename("Talk.md", "Speech.md");
  save("more", "Speech.md");
  EXPECT_THAT(scripts(), ElementsAre("Speech.md: 2"));
  EXPECT_EQ(story("Speech.md"), "Talk.md more");
  EXPECT_EQ(story("Talk.md"), "");
  EXPECT_EQ(pendingRenames(), 0);
}

TEST_F(HistoryRenames, aRenamedFolderKeepsTheHistoriesBelowItAndNoOthers) {
  for (const auto* identifier :
       {"F/a.md", "F/G/b.md", "F/G/H/c.md", "F.md", "F0/d.md", "FF/e.md", "E/F/f.md", "f/g.md"}) {
    script(identifier);
  }
  save("gone", "F/gone.md");
  rename("F", "N");
  EXPECT_THAT(scripts(), ElementsAre("E/F/f.md: 1", "F.md: 1", "F0/d.md: 1", "FF/e.md: 1", "N/G/H/c.md: 1",
                                     "N/G/b.md: 1", "N/a.md: 1", "N/gone.md: 1", "f/g.md: 1"));
  EXPECT_EQ(story("N/G/H/c.md"), "F/G/H/c.md");
}

TEST_F(HistoryRenames, aRenamedFolderInAFolderKeepsTheHistoriesBelowIt) {
  script("A/F/a.md");
  script("B/F/a.md");
  rename("A/F", "A/N");
  EXPECT_THAT(scripts(), ElementsAre("A/N/a.md: 1", "B/F/a.md: 1"));
}

TEST_F(HistoryRenames, wildcardsInNamesAreOrdinaryCharacters) {
  const std::string_view names[] = {"%", "_", "*", "?", "[ab]", "a", "b", "ab", "%%", "\\", "'", "\"", "\xff", "\x01"};
  for (const std::string_view name : names) script(std::string(name) + "/x.md");
  for (const std::string_view name : names) {
    const std::string renamed = "renamed " + std::string(name);
    rename(name, renamed);
    EXPECT_EQ(story(renamed + "/x.md"), std::string(name) + "/x.md");
    EXPECT_EQ(integer("SELECT count(*) FROM scripts WHERE substr(identifier, 1, 8) = CAST('renamed ' AS BLOB)"), 1);
    rename(renamed, name);
  }
  EXPECT_EQ(scripts().size(), std::size(names));
}

TEST_F(HistoryRenames, aScriptAndAFolderOfTheSameNameAreNotTheSame) {
  script("Talk.md");
  remove("Talk.md");
  script("Talk.md/inside.md");
  rename("Talk.md", "Folder");
  EXPECT_THAT(scripts(), ElementsAre("Folder/inside.md: 1", "Talk.md: 1"));
  script("Talk.md");
  rename("Talk.md", "Speech.md");
  EXPECT_THAT(scripts(), ElementsAre("Folder/inside.md: 1", "Speech.md: 2"));
}

TEST_F(HistoryRenames, twoScriptsCanSwapNamesThroughAThird) {
  script("a.md");
  script("b.md");
  rename("a.md", "c.md");
  rename("b.md", "a.md");
  rename("c.md", "b.md");
  EXPECT_EQ(story("a.md"), "b.md");
  EXPECT_EQ(story("b.md"), "a.md");
  EXPECT_EQ(scripts().size(), 2U);
}

TEST_F(HistoryRenames, chainsOfRenamesAreFollowed) {
  script("a.md");
  for (const auto& [from, to] : {std::pair{"a.md", "b.md"}, {"b.md", "c.md"}, {"c.md", "a.md"}, {"a.md", "d.md"}}) {
    rename(from, to);
  }
  EXPECT_THAT(scripts(), ElementsAre("d.md: 1"));
}

TEST_F(HistoryRenames, aScriptRenamedToADeletedScriptsNameDoesNotMixTheirHistories) {
  script("gone.md");
  remove("gone.md");
  script("Talk.md");
  rename("Talk.md", "gone.md");
  EXPECT_EQ(story("gone.md"), "Talk.md");
  EXPECT_EQ(story("gone.md", 1), "gone.md");
  save("more", "gone.md");
  EXPECT_THAT(scripts(), ElementsAre("gone.md: 2", "gone.md (earlier 1): 1"));
}

TEST_F(HistoryRenames, aScriptWithoutHistoryGetsNoneFromADeletedScriptsName) {
  script("gone.md");
  remove("gone.md");
  put("Talk.md");
  rename("Talk.md", "gone.md");
  EXPECT_EQ(story("gone.md"), "");
  EXPECT_EQ(story("gone.md", 1), "gone.md");
}

TEST_F(HistoryRenames, aFolderRenamedToADeletedFoldersNameDoesNotMixTheirHistories) {
  for (const auto* identifier : {"gone/a.md", "gone/b.md", "gone/deep/c.md"}) script(identifier);
  remove("gone");
  script("F/a.md");
  put("F/b.md");
  rename("F", "gone");
  EXPECT_THAT(scripts(), ElementsAre("gone/a.md: 1", "gone/a.md (earlier 1): 1", "gone/b.md (earlier 1): 1",
                                     "gone/deep/c.md (earlier 1): 1"));
  EXPECT_EQ(story("gone/a.md"), "F/a.md");
  EXPECT_EQ(story("gone/a.md", 1), "gone/a.md");
}

TEST_F(HistoryRenames, earlierScriptsStayWhenAScriptIsRenamedAndMoveWithAFolder) {
  script("F/a.md");
  remove("F/a.md");
  history.setAside("F/a.md");
  put("F/a.md");
  save("second", "F/a.md");
  rename("F/a.md", "F/b.md");
  EXPECT_THAT(scripts(), ElementsAre("F/a.md (earlier 1): 1", "F/b.md: 1"));
  rename("F", "N");
  EXPECT_THAT(scripts(), ElementsAre("N/a.md (earlier 1): 1", "N/b.md: 1"));
}

TEST_F(HistoryRenames, earlierScriptsOfTwoFoldersKeepApart) {
  for (const auto* name : {"F", "gone"}) {
    const std::string identifier = std::string(name) + "/a.md";
    for (const auto* text : {"first", "second", "third"}) {
      history.setAside(identifier);
      save(std::string(name) + " " + text, identifier);
    }
  }
  put("F/a.md");
  rename("F", "gone");
  EXPECT_EQ(story("gone/a.md"), "F third");
  const char* earlier[] = {"gone first", "gone second", "gone third", "F first", "F second"};
  for (std::int64_t i = 0; i < 5; ++i) EXPECT_EQ(story("gone/a.md", i + 1), earlier[i]);
  EXPECT_THAT(history.problems(), IsEmpty());
}

TEST_F(HistoryRenames, aNewScriptUnderAnOldNameCountsFromOne) {
  save("old 1", "Talk.md");
  save("old 2", "Talk.md");
  history.setAside("Talk.md");
  EXPECT_THAT(history.versions(pathOf("Talk.md")), IsEmpty());
  EXPECT_FALSE(history.hasVersionWith("old 1", "Talk.md"));
  save("new 1", "Talk.md");
  EXPECT_EQ(story("Talk.md"), "new 1");
  EXPECT_EQ(history.text("Talk.md", {0, 1}), "new 1");
  EXPECT_EQ(story("Talk.md", 1), "old 1 old 2");
  EXPECT_EQ(history.entries("Talk.md", 1).front().version, (VersionNumber{1, 2}));
  EXPECT_EQ(history.scripts("Talk.md").size(), 2U);
}

TEST_F(HistoryRenames, earlierScriptsAreNumberedInTheirOrder) {
  for (const auto* text : {"first", "second", "third"}) {
    history.setAside("Talk.md");
    save(text, "Talk.md");
  }
  history.setAside("Talk.md");
  history.setAside("Talk.md");
  EXPECT_THAT(scripts(), ElementsAre("Talk.md (earlier 3): 1", "Talk.md (earlier 2): 1", "Talk.md (earlier 1): 1"));
  EXPECT_EQ(story("Talk.md", 2), "second");
}

TEST_F(HistoryRenames, settingAsideCanBeUndone) {
  EXPECT_FALSE(history.setAside("Talk.md"));
  for (const auto* text : {"first", "second"}) {
    save(text, "Talk.md");
    EXPECT_TRUE(history.setAside("Talk.md"));
  }
  for (int time = 0; time < 2; ++time) {  // the second time there is nothing to take back
    history.undoSetAside("Talk.md");
    EXPECT_THAT(scripts(), ElementsAre("Talk.md: 1", "Talk.md (earlier 1): 1"));
    EXPECT_EQ(story("Talk.md"), "second");
  }
  history.undoSetAside("Other.md");
  EXPECT_EQ(scripts().size(), 2U);
  EXPECT_THAT(history.problems(), IsEmpty());
}

TEST_F(HistoryRenames, aRenameWithoutHistoryIsNotRecorded) {
  script("Other.md");
  put("Talk.md");
  const std::string before = read(database);
  PendingRename rename = history.willRename("Talk.md", "Speech.md");
  EXPECT_EQ(read(database), before);
  rename.done();
  EXPECT_EQ(read(database), before);
}

TEST_F(HistoryRenames, aRenameOfAMissingScriptIsNotRecorded) {
  save("words", "gone.md");
  const std::string before = read(database);
  history.willRename("gone.md", "Talk.md").done();
  EXPECT_EQ(read(database), before);
}

TEST_F(HistoryRenames, aRenameThatDidNotHappenLeavesTheHistory) {
  script("Talk.md");
  { const PendingRename rename = history.willRename("Talk.md", "Speech.md"); }
  EXPECT_THAT(scripts(), ElementsAre("Talk.md: 1"));
  EXPECT_EQ(pendingRenames(), 0);
}

TEST_F(HistoryRenames, aRenameThatHappenedMovesTheHistoryAlsoWithoutDone) {
  script("Talk.md");
  {
    const PendingRename rename = history.willRename("Talk.md", "Speech.md");
    std::filesystem::rename(pathOf("Talk.md"), pathOf("Speech.md"));
  }
  EXPECT_THAT(scripts(), ElementsAre("Speech.md: 1"));
  EXPECT_EQ(pendingRenames(), 0);
}

TEST_F(HistoryRenames, aMovedPendingRenameIsFinishedOnce) {
  script("Talk.md");
  PendingRename first = history.willRename("Talk.md", "Speech.md");
  std::filesystem::rename(pathOf("Talk.md"), pathOf("Speech.md"));
  {
    PendingRename second = std::move(first);
    second.done();
    second.done();
  }
  script("Talk.md");
  EXPECT_THAT(scripts(), ElementsAre("Speech.md: 1", "Talk.md: 1"));
}

TEST_F(HistoryRenames, theNextWriterFinishesARenameThatCouldNotBeWritten) {
  script("Talk.md");
  {
    PendingRename rename = history.willRename("Talk.md", "Speech.md");
    std::filesystem::rename(pathOf("Talk.md"), pathOf("Speech.md"));
    sqlite::Connection other = openedDatabase(database, sqlite::Connection::Access::writing, patience);
    other.runAll("BEGIN IMMEDIATE");
    rename.done();
  }
  EXPECT_EQ(pendingRenames(), 1);
  EXPECT_THAT(scripts(), ElementsAre("Speech.md: 1"));
  save("more", "Speech.md");
  EXPECT_EQ(pendingRenames(), 0);
  EXPECT_EQ(story("Speech.md"), "Talk.md more");
}

}  // namespace
}  // namespace quorvel
