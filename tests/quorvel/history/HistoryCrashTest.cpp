// A rename is two changes, of the folder and of the history. Here the process is killed around each of them.
#include "tests/quorvel/history/HistoryHouse.h"
#include "tests/support/ChildProcess.h"

namespace quorvel {
namespace {

using kelvane::tests::becomeNobody;
using kelvane::tests::dieAtOnce;
using kelvane::tests::inChild;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Lines = std::vector<std::string>;

enum class Death { beforeAll, afterWritingDown, afterTheRename, afterAll };

constexpr Death everyDeath[] = {Death::beforeAll, Death::afterWritingDown, Death::afterTheRename, Death::afterAll};

class HistoryCrash : public HistoryHouse {
 protected:
  /// Another process renames, and is killed at that moment.
  void renameAndDie(std::string_view from, std::string_view to, Death death) {
    const std::string end = inChild([&]() -> std::string {
      History own(root);
      if (death == Death::beforeAll) dieAtOnce();
      PendingRename rename = own.willRename(from, to);
      if (death == Death::afterWritingDown) dieAtOnce();
      std::filesystem::rename(root / from, root / to);
      if (death == Death::afterTheRename) dieAtOnce();
      rename.done();
      dieAtOnce();
    });
    ASSERT_EQ(end, "killed by signal 9");
  }

  void script(std::string_view identifier) {
    put(identifier);
    save(identifier, identifier);
  }

  static bool isRenamed(Death death) { return death == Death::afterTheRename || death == Death::afterAll; }

  /// What a reader sees, who changes nothing by looking, and one who could not; then the same after a writer was there.
  void expectScripts(const Lines& expected, const std::string& what) {
    const auto before = everything();
    EXPECT_EQ(scripts(), expected) << what << ", to a reader";
    EXPECT_EQ(everything(), before) << what << ", to a reader";
    EXPECT_THAT(history.problems(), IsEmpty()) << what;
    save("later", "a writer.md");
    EXPECT_EQ(integer("SELECT count(*) FROM pendingRenames"), 0) << what << ", to a writer";
    Lines afterwards = expected;
    afterwards.insert(std::lower_bound(afterwards.begin(), afterwards.end(), "a writer.md: 1"), "a writer.md: 1");
    EXPECT_EQ(scripts(), afterwards) << what << ", to a writer";
  }

  void startAfresh() const {
    for (const auto& entry : std::filesystem::directory_iterator(root)) std::filesystem::remove_all(entry.path());
  }
};

TEST_F(HistoryCrash, aScriptsHistoryIsWhereTheScriptIs) {
  for (const Death death : everyDeath) {
    startAfresh();
    script("b.md");
    renameAndDie("b.md", "c.md", death);
    expectScripts(isRenamed(death) ? Lines{"c.md: 1"} : Lines{"b.md: 1"}, std::to_string(static_cast<int>(death)));
  }
}

TEST_F(HistoryCrash, theHistoriesBelowAFolderAreWhereTheFolderIs) {
  for (const Death death : everyDeath) {
    startAfresh();
    for (const auto* identifier : {"F/a.md", "F/G/b.md", "F0/c.md"}) script(identifier);
    renameAndDie("F", "N", death);
    expectScripts(isRenamed(death) ? Lines{"F0/c.md: 1", "N/G/b.md: 1", "N/a.md: 1"}
                                   : Lines{"F/G/b.md: 1", "F/a.md: 1", "F0/c.md: 1"},
                  std::to_string(static_cast<int>(death)));
  }
}

TEST_F(HistoryCrash, theHistoryUnderTheNewNameIsAnEarlierScriptsOnceTheRenameHappened) {
  for (const Death death : everyDeath) {
    startAfresh();
    for (const auto* identifier : {"gone.md", "gone/a.md", "gone/b.md"}) save("words", identifier);
    script("b.md");
    script("F/a.md");
    renameAndDie("b.md", "gone.md", death);
    expectScripts(isRenamed(death)
                      ? Lines{"F/a.md: 1", "gone.md: 1", "gone.md (earlier 1): 1", "gone/a.md: 1", "gone/b.md: 1"}
                      : Lines{"F/a.md: 1", "b.md: 1", "gone.md: 1", "gone/a.md: 1", "gone/b.md: 1"},
                  "a script, " + std::to_string(static_cast<int>(death)));
    startAfresh();
    for (const auto* identifier : {"gone/a.md", "gone/b.md"}) save("words", identifier);
    script("F/a.md");
    renameAndDie("F", "gone", death);
    expectScripts(isRenamed(death) ? Lines{"gone/a.md: 1", "gone/a.md (earlier 1): 1", "gone/b.md (earlier 1): 1"}
                                   : Lines{"F/a.md: 1", "gone/a.md: 1", "gone/b.md: 1"},
                  "a folder, " + std::to_string(static_cast<int>(death)));
  }
}

TEST_F(HistoryCrash, laterChangesOfTheFilesDoNotMislead) {
  const auto saveAsEditorsDo = [this](std::string_view identifier) {
    write(root / "temporary", "saved");
    std::filesystem::rename(root / "temporary", root / identifier);
  };
  const struct {
    const char* what;
    Death death;
    std::function<void()> meanwhile;
    const char* expected;
  } cases[] = {
      {"the renamed script is saved as a new file", Death::afterTheRename, [&] { saveAsEditorsDo("c.md"); }, "c.md: 1"},
      {"the script that was not renamed is saved as a new file", Death::afterWritingDown,
       [&] { saveAsEditorsDo("b.md"); }, "b.md: 1"},
      {"the old name is taken anew", Death::afterTheRename, [&] { put("b.md"); }, "c.md: 1"},
      {"the new name is taken by another", Death::afterWritingDown, [&] { put("c.md"); }, "b.md: 1"},
      {"the renamed script is deleted", Death::afterTheRename, [&] { std::filesystem::remove(pathOf("c.md")); },
       "b.md: 1"},
      {"the script that was not renamed is deleted", Death::afterWritingDown,
       [&] { std::filesystem::remove(pathOf("b.md")); }, "b.md: 1"},
      {"the script that was not renamed is renamed so by somebody else", Death::afterWritingDown,
       [&] { std::filesystem::rename(pathOf("b.md"), pathOf("c.md")); }, "c.md: 1"},
      {"the file has both names, because it was given the new one and had not lost the old one yet",
       Death::afterWritingDown, [&] { std::filesystem::create_hard_link(pathOf("b.md"), pathOf("c.md")); }, "b.md: 1"},
      {"both names are other files", Death::afterTheRename,
       [&] {
         // Keeps the number of the file from being given to one of the others.
         std::filesystem::create_hard_link(pathOf("c.md"), root / "held");
         saveAsEditorsDo("c.md");
         saveAsEditorsDo("b.md");
       },
       "b.md: 1"},
  };
  for (const auto& [what, death, meanwhile, expected] : cases) {
    startAfresh();
    script("b.md");
    renameAndDie("b.md", "c.md", death);
    meanwhile();
    expectScripts({expected}, what);
  }
}

TEST_F(HistoryCrash, laterChangesOfTheFoldersDoNotMislead) {
  const struct {
    const char* what;
    Death death;
    std::function<void()> meanwhile;
    const char* expected;
  } cases[] = {
      {"the old name is taken anew", Death::afterTheRename, [&] { put("F/a.md"); }, "N/a.md: 1"},
      {"the new name is taken by another", Death::afterWritingDown, [&] { put("N/a.md"); }, "F/a.md: 1"},
      {"the folder that was not renamed is deleted", Death::afterWritingDown,
       [&] { std::filesystem::remove_all(root / "F"); }, "F/a.md: 1"},
      {"the renamed folder is copied anew, so that its number is another", Death::afterTheRename,
       [&] {
         std::filesystem::copy(root / "N", root / "copy", std::filesystem::copy_options::recursive);
         std::filesystem::remove_all(root / "N");
         std::filesystem::rename(root / "copy", root / "N");
       },
       "N/a.md: 1"},
      {"what is inside is saved as new files", Death::afterTheRename,
       [&] {
         std::filesystem::remove(root / "N/a.md");
         put("N/a.md");
       },
       "N/a.md: 1"},
  };
  for (const auto& [what, death, meanwhile, expected] : cases) {
    startAfresh();
    script("F/a.md");
    renameAndDie("F", "N", death);
    meanwhile();
    expectScripts({expected}, what);
  }
}

TEST_F(HistoryCrash, theNextRenameOfTheSameScriptFindsItsHistory) {
  script("b.md");
  renameAndDie("b.md", "c.md", Death::afterTheRename);
  PendingRename rename = history.willRename("c.md", "d.md");
  std::filesystem::rename(pathOf("c.md"), pathOf("d.md"));
  rename.done();
  expectScripts({"d.md: 1"}, "renamed on");
}

TEST_F(HistoryCrash, severalCrashesInARowAreRepairedInOrder) {
  script("b.md");
  renameAndDie("b.md", "c.md", Death::afterTheRename);
  renameAndDie("c.md", "d.md", Death::afterTheRename);
  renameAndDie("d.md", "b.md", Death::afterTheRename);
  expectScripts({"b.md: 1"}, "renamed three times");
}

TEST_F(HistoryCrash, swappingNamesSurvivesADeathAtEachStep) {
  for (int deadly = 0; deadly < 3; ++deadly) {
    startAfresh();
    script("b.md");
    script("c.md");
    const std::pair<const char*, const char*> steps[] = {{"b.md", "t.md"}, {"c.md", "b.md"}, {"t.md", "c.md"}};
    for (int step = 0; step < 3; ++step) {
      renameAndDie(steps[step].first, steps[step].second, step == deadly ? Death::afterTheRename : Death::afterAll);
    }
    EXPECT_EQ(story("b.md"), "c.md") << deadly;
    EXPECT_EQ(story("c.md"), "b.md") << deadly;
    expectScripts({"b.md: 1", "c.md: 1"}, std::to_string(deadly));
  }
}

TEST_F(HistoryCrash, aNewScriptUnderTheOldNameHasNoHistory) {
  script("b.md");
  renameAndDie("b.md", "c.md", Death::afterTheRename);
  history.setAside("b.md");
  EXPECT_EQ(integer("SELECT count(*) FROM pendingRenames"), 0) << "settled while the files still tell";
  script("b.md");
  EXPECT_THAT(scripts(), ElementsAre("b.md: 1", "c.md: 1"));
}

TEST_F(HistoryCrash, aRenameOfAnotherScriptFinishesThePendingOneFirst) {
  script("b.md");
  put("other.md");
  renameAndDie("b.md", "c.md", Death::afterTheRename);
  history.willRename("other.md", "b.md").done();
  EXPECT_EQ(integer("SELECT count(*) FROM pendingRenames"), 0);
}

TEST_F(HistoryCrash, aReaderWithoutPermissionToWriteSeesTheHistoryWhereTheScriptIs) {
  script("b.md");
  renameAndDie("b.md", "c.md", Death::afterTheRename);
  save("later", "c.md");
  renameAndDie("c.md", "d.md", Death::afterTheRename);
  std::filesystem::permissions(root, std::filesystem::perms(0555));
  std::filesystem::permissions(root / ".kelvane", std::filesystem::perms(0555));
  std::filesystem::permissions(database, std::filesystem::perms(0444));
  EXPECT_EQ(inChild([this] {
              becomeNobody();
              return story("d.md");
            }),
            "b.md later");
  std::filesystem::permissions(root, std::filesystem::perms(0700));
  std::filesystem::permissions(root / ".kelvane", std::filesystem::perms(0700));
  std::filesystem::permissions(database, std::filesystem::perms(0600));
}

TEST_F(HistoryCrash, aFolderThatCannotBeSearchedIsReported) {
  script("F/b.md");
  renameAndDie("F/b.md", "F/c.md", Death::afterTheRename);
  std::filesystem::permissions(root, std::filesystem::perms(0755));
  std::filesystem::permissions(root / ".kelvane", std::filesystem::perms(0755));
  std::filesystem::permissions(root / "F", std::filesystem::perms(0000));
  EXPECT_EQ(inChild([this] {
              becomeNobody();
              return sentenceOf([this] { history.entries("F/c.md"); });
            }),
            "The version history of this library (.kelvane/history.sqlite) could not be read, because the system does "
            "not permit it. Check who may read and write in the folder .kelvane.");
  std::filesystem::permissions(root / "F", std::filesystem::perms(0755));
}

TEST_F(HistoryCrash, aReaderDuringARenameSeesTheHistoryWhereTheScriptIs) {
  script("b.md");
  PendingRename rename = history.willRename("b.md", "c.md");
  EXPECT_THAT(scripts(), ElementsAre("b.md: 1"));
  std::filesystem::rename(pathOf("b.md"), pathOf("c.md"));
  EXPECT_THAT(scripts(), ElementsAre("c.md: 1"));
  rename.done();
  EXPECT_THAT(scripts(), ElementsAre("c.md: 1"));
}

}  // namespace
}  // namespace quorvel
