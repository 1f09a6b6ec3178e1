#include "quorvel/library/Renaming.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "quorvel/library/OpenWriters.h"
#include "quorvel/library/TemporaryName.h"
#include "tests/quorvel/library/LibraryHouse.h"
#include "tests/support/ChildProcess.h"

namespace quorvel {
namespace {

using kelvane::tests::becomeNobody;
using kelvane::tests::dieAtOnce;
using kelvane::tests::inChild;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// With and without the system's own way to rename only to a free name.
class Renaming : public LibraryHouse, public ::testing::WithParamInterface<int> {
 protected:
  Renaming() {
    if (GetParam() != 0) calls.lack({"renameToFreeName"}, GetParam());
    put("Talk.md", "words");
    put("Scenes/End.md", "the end");
    history->snapshot("words", root / "Talk.md", "kept");
    history->snapshot("the end", root / "Scenes/End.md", "kept");
  }
};

INSTANTIATE_TEST_SUITE_P(Ways, Renaming, ::testing::Values(0, EINVAL, ENOSYS, EPERM), [](const auto& way) {
  return way.param == 0 ? "own" : "without" + std::to_string(way.param);
});

TEST_P(Renaming, theHistoryFollowsAScript) {
  EXPECT_EQ(library.rename(script("Talk.md"), "Speech").identifier, "Speech.md");
  EXPECT_THAT(names(), ElementsAre("Scenes", "Speech.md"));
  EXPECT_EQ(bytesOf("Speech.md"), "words");
  EXPECT_EQ(story("Speech.md"), "kept: words\n");
  EXPECT_EQ(story("Talk.md"), "");
}

TEST_P(Renaming, theHistoryFollowsEveryScriptInAFolder) {
  std::filesystem::permissions(root / "Scenes", std::filesystem::perms(0750));
  EXPECT_EQ(library.rename(folderItem("Scenes"), "Acts").identifier, "Acts");
  EXPECT_THAT(names(), ElementsAre("Acts", "Talk.md"));
  EXPECT_EQ(bytesOf("Acts/End.md"), "the end");
  EXPECT_EQ(story("Acts/End.md"), "kept: the end\n");
  EXPECT_EQ(std::filesystem::status(root / "Acts").permissions(), std::filesystem::perms(0750));
}

TEST_P(Renaming, whateverHasTheNameIsLeftAlone) {
  std::filesystem::create_symlink("nowhere", root / "New.md");
  put("New 2.md", "other words");
  std::filesystem::create_directory(root / "New 3.md");
  EXPECT_EQ(library.rename(script("Talk.md"), "New").identifier, "New 4.md");
  std::filesystem::create_directory(root / "Acts");  // even empty
  put("Acts 2", "no folder");
  EXPECT_EQ(library.rename(folderItem("Scenes"), "Acts").identifier, "Acts 3");
  EXPECT_THAT(names(), ElementsAre("Acts", "Acts 2", "Acts 3", "New 2.md", "New 3.md", "New 4.md", "New.md"));
  EXPECT_EQ(bytesOf("New 2.md"), "other words");
}

TEST_P(Renaming, aNameThatIsTakenAfterTheLookIsNotTaken) {
  bool taken = false;
  calls.before = [&](std::string_view call) {
    if (call == "renameToFreeName" && !std::exchange(taken, true)) put("New.md", "other words");
    return call == "renameToFreeName" ? GetParam() : 0;
  };
  EXPECT_EQ(library.rename(script("Talk.md"), "New").identifier, "New 2.md");
  EXPECT_EQ(bytesOf("New.md"), "other words");
  EXPECT_EQ(story("New 2.md"), "kept: words\n");
  EXPECT_EQ(story("New.md"), "");
}

TEST_P(Renaming, aFolderNameThatIsTakenAfterTheLookIsNotTaken) {
  bool taken = false;
  calls.before = [&](std::string_view call) {
    if (call == "renameToFreeName" && !std::exchange(taken, true)) std::filesystem::create_directory(root / "Acts");
    return call == "renameToFreeName" ? GetParam() : 0;
  };
  EXPECT_EQ(library.rename(folderItem("Scenes"), "Acts").identifier, "Acts 2");
  EXPECT_EQ(story("Acts 2/End.md"), "kept: the end\n");
}

TEST_P(Renaming, aScriptThatIsGoneHasNoNewName) {
  std::filesystem::remove(root / "Talk.md");
  EXPECT_THAT(sentenceOf([&] { library.rename(script("Talk.md"), "New"); }),
              HasSubstr("\"Talk.md\" could not be renamed, because it is not there any more."));
  EXPECT_EQ(story("Talk.md"), "kept: words\n");
}

TEST_P(Renaming, aScriptThatBecameAFolderIsRefusedAndTheOtherWayRound) {
  EXPECT_EQ(sentenceOf([&] { library.rename(script("Scenes"), "New"); }),
            "\"Scenes\" could not be renamed, because it is no script any more. List the library again to see what is "
            "there now.");
  EXPECT_EQ(sentenceOf([&] { library.rename(folderItem("Talk.md"), "New"); }),
            "\"Talk.md\" could not be renamed, because it is no folder any more. List the library again to see what is "
            "there now.");
}

TEST_P(Renaming, saysWhatIsTrueWhenTheFolderCannotBeFlushed) {
  calls.before = [&](std::string_view call) {
    return call == "flush" ? EIO : call == "renameToFreeName" ? GetParam() : 0;
  };
  EXPECT_EQ(
      sentenceOf([&] { library.rename(script("Talk.md"), "New"); }),
      "\"Talk.md\" was renamed to \"New.md\", but that may not outlast a power failure, because the disk reports an "
      "error. Check the disk.");
  EXPECT_EQ(bytesOf("New.md"), "words");
  EXPECT_EQ(story("New.md"), "kept: words\n");
}

TEST_P(Renaming, thatFailsLeavesTheNameAndTheHistory) {
  const auto fail = [&](std::string_view lastCall) {
    calls.before = [&, lastCall](std::string_view call) {
      if (call == "renameToFreeName" && GetParam() != 0) return GetParam();
      return call == "renameToFreeName" || call == lastCall ? EIO : 0;
    };
  };
  const std::string why = " could not be renamed, because the disk reports an error. Check the disk.";
  fail("link");
  EXPECT_EQ(sentenceOf([&] { library.rename(script("Talk.md"), "New"); }), "\"Talk.md\"" + why);
  fail("rename");
  EXPECT_EQ(sentenceOf([&] { library.rename(folderItem("Scenes"), "Acts"); }), "\"Scenes\"" + why);
  EXPECT_THAT(names(), ElementsAre("Scenes", "Talk.md"));
  EXPECT_EQ(bytesOf("Talk.md"), "words");
  EXPECT_EQ(story("Talk.md"), "kept: words\n");
  EXPECT_EQ(story("Scenes/End.md"), "kept: the end\n");
}

TEST_P(Renaming, toANameThatMakesThePathTooLongIsRefused) {
  std::optional<std::string> parent;
  const auto room = [&] { return PATH_MAX - 1 - root.native().size() - 1 - (parent ? parent->size() + 1 : 0); };
  while (room() > 52)
    parent = library.createFolder(std::string(std::min<std::size_t>(240, room() - 51), 'd'), parent).identifier;
  const ScriptItem talk = library.create("Talk", parent);
  const ScriptItem scenes = library.createFolder("Scenes", parent);
  history->snapshot("words", root / talk.identifier, "kept");
  const std::string why =
      " could not be renamed, because its path is too long for the system. Use shorter names or fewer nested folders.";
  EXPECT_EQ(sentenceOf([&] { library.rename(talk, std::string(60, 'x')); }), quorvel::quoted(talk.identifier) + why);
  EXPECT_EQ(sentenceOf([&] { library.rename(scenes, std::string(60, 'x')); }),
            quorvel::quoted(scenes.identifier) + why);
  EXPECT_THAT(names(*parent), ElementsAre("Scenes", "Talk.md"));
  EXPECT_EQ(story(talk.identifier), "kept: words\n");
}

TEST_P(Renaming, ofAFolderLosesNothingBelowItFromSight) {
  std::string deepest = "Top";
  std::filesystem::create_directory(root / deepest);
  const auto room = [&] { return PATH_MAX - 1 - root.native().size() - 1 - (deepest.size() + 1); };
  while (room() > 50) {
    deepest = library.createFolder(std::string(room() <= 291 ? room() - 51 : 200, 'd'), deepest).identifier;
  }
  ASSERT_EQ(room(), 50U);
  library.create(std::string(44, 's'), deepest);  // its path may be 3 bytes longer
  const std::string below = tree(library.contents(root / "Top"));
  EXPECT_EQ(sentenceOf([&] { library.rename(folderItem("Top"), "Longer."); }),
            "\"Top\" could not be renamed, because the path of something in it would be too long for the system then. "
            "Use a shorter name.");
  EXPECT_EQ(tree(library.contents(root / "Top")), below);
  EXPECT_EQ(library.rename(folderItem("Top"), "Longer").identifier, "Longer");
  EXPECT_EQ(tree(library.contents(root / "Longer")), below);
}

TEST_P(Renaming, ofAFolderThatMayNotBeReadIsNotRefused) {
  put("Closed/Talk.md");
  giveToNobody();
  std::filesystem::permissions(root / "Closed", std::filesystem::perms(0));
  EXPECT_EQ(inChild([&] {
              becomeNobody();
              return library.rename(folderItem("Closed"), "Closed to all").identifier;
            }),
            "Closed to all");
  std::filesystem::permissions(root / "Closed to all", std::filesystem::perms(0700));
}

TEST_P(Renaming, ofAFolderThatCannotBeLookedThroughIsRefused) {
  calls.before = [&](std::string_view call) {
    return call == "nextEntry" ? EIO : call == "renameToFreeName" ? GetParam() : 0;
  };
  EXPECT_EQ(
      sentenceOf([&] { library.rename(folderItem("Scenes"), "Longer Scenes"); }),
      "The library could not be listed: the folder \"Scenes\" could not be read, because the disk reports an error. "
      "Check the disk.");
  EXPECT_THAT(names(), ElementsAre("Scenes", "Talk.md"));
}

TEST_P(Renaming, aDamagedHistoryRefusesIt) {
  put(".kelvane/history.sqlite", std::string(8192, 'x'));
  EXPECT_THROW(library.rename(script("Talk.md"), "New"), HistoryError);
  EXPECT_THROW(library.rename(folderItem("Scenes"), "Acts"), HistoryError);
  EXPECT_THAT(names(), ElementsAre("Scenes", "Talk.md"));
}

TEST_P(Renaming, aPresentNameThatCleaningWouldChangeStays) {
  put(" odd .md", "words");
  EXPECT_EQ(library.rename(script(" odd .md"), " odd ").identifier, " odd .md");
  EXPECT_EQ(library.rename(script(" odd .md"), "odd").identifier, "odd.md");
}

TEST_P(Renaming, aProcessThatDiesAtAnyCallLosesNeitherTheTextNorItsHistory) {
  int deaths = 0;
  for (int time = 1;; ++time) {
    const std::string from = "From " + std::to_string(time) + ".md";
    const std::string to = "To " + std::to_string(time) + ".md";
    put(from, "words");
    history->snapshot("words", root / from, "kept");
    const std::string answer = inChild([&]() -> std::string {
      calls.before = [&, made = 0](std::string_view call) mutable {
        if (call == "openBeneath" || call == "nextEntry") return 0;
        if (++made == time) dieAtOnce();
        return call == "renameToFreeName" ? GetParam() : 0;
      };
      library.rename(script(from), to);
      return "renamed";
    });
    EXPECT_EQ(tree().find(".kelvane"), std::string::npos);
    const bool isAtOldPlace = std::filesystem::exists(root / from);
    const bool isAtNewPlace = std::filesystem::exists(root / to);
    EXPECT_TRUE(isAtOldPlace || isAtNewPlace) << time;
    EXPECT_EQ(bytesOf(isAtNewPlace ? to : from), "words");
    if (isAtOldPlace != isAtNewPlace) {
      EXPECT_EQ(story(isAtNewPlace ? to : from), "kept: words\n") << time;
    }
    EXPECT_TRUE(history->holds("words", from) || history->holds("words", to)) << time;
    if (answer == "renamed") break;
    ASSERT_EQ(answer, "killed by signal 9");
    ++deaths;
  }
  EXPECT_GE(deaths, 2);
}

TEST_P(Renaming, aProcessThatDiesAtAnyCallLeavesTheHistoriesBelowAFolderWhereTheFolderIs) {
  int deaths = 0;
  for (int time = 1;; ++time) {
    const std::string from = "From " + std::to_string(time);
    const std::string to = "To " + std::to_string(time);
    put(from + "/Deep/End.md", "words");
    history->snapshot("words", root / from / "Deep/End.md", "kept");
    const std::string answer = inChild([&]() -> std::string {
      calls.before = [&, made = 0](std::string_view call) mutable {
        if (call == "openBeneath" || call == "nextEntry") return 0;
        if (++made == time) dieAtOnce();
        return call == "renameToFreeName" ? GetParam() : 0;
      };
      library.rename(folderItem(from), to);
      return "renamed";
    });
    const std::string is = std::filesystem::exists(root / from) ? from : to;
    const std::string isNot = is == from ? to : from;
    EXPECT_EQ(bytesOf(is + "/Deep/End.md"), "words") << time;
    EXPECT_FALSE(std::filesystem::exists(root / isNot / "Deep")) << time;
    EXPECT_EQ(story(is + "/Deep/End.md"), "kept: words\n") << time;
    EXPECT_EQ(story(isNot + "/Deep/End.md"), "") << time;
    if (answer == "renamed") break;
    ASSERT_EQ(answer, "killed by signal 9");
    ++deaths;
  }
  EXPECT_GE(deaths, 2);
}

// Another program saves a file of one of the two names while a script is renamed by a second name.
struct Meeting {
  const char* description;
  const char* call;  // just before which it does
  const char* name;
  bool isFolder;
  bool isRefused;
  std::vector<std::string> left;
};

class RenamingByASecondName : public LibraryHouse, public ::testing::WithParamInterface<Meeting> {};

TEST_P(RenamingByASecondName, neverUnlinksAFileOfAnotherProgram) {
  const Meeting& meeting = GetParam();
  put("Talk.md", "words");
  const auto theirs = meeting.isFolder ? std::filesystem::path(meeting.name) / "theirs" : meeting.name;
  calls.before = [&, met = false](std::string_view call) mutable {
    if (call == meeting.call && !std::exchange(met, true)) {
      if (meeting.isFolder) {
        std::filesystem::remove(root / meeting.name);
        put(theirs, "theirs");
      } else {
        put("saved~", "theirs");
        std::filesystem::rename(root / "saved~", root / meeting.name);
      }
    }
    return call == "renameToFreeName" ? EINVAL : 0;
  };
  const std::string sentence = sentenceOf([&] { library.rename(script("Talk.md"), "New"); });
  EXPECT_EQ(bytesOf(theirs), "theirs") << meeting.description;
  EXPECT_EQ(names(), meeting.left) << meeting.description;
  EXPECT_THAT(sentence, HasSubstr(meeting.isRefused ? "another program is using it" : "(no failure)"))
      << meeting.description;
}

const Meeting meetings[] = {
    {"the old name, before the second one is given", "link", "Talk.md", false, true, {"Talk.md"}},
    {"the old name, after that", "rename", "Talk.md", false, true, {"Talk.md"}},
    {"the old name, with a folder", "rename", "Talk.md", true, true, {"Talk.md"}},
    {"the old name, when the file has lost it", "unlink", "Talk.md", false, false, {"New.md", "Talk.md"}},
    {"the new name", "rename", "New.md", false, true, {"New.md", "Talk.md"}},
    {"the new name, with a folder", "rename", "New.md", true, true, {"New.md", "Talk.md"}},
};

INSTANTIATE_TEST_SUITE_P(Rows, RenamingByASecondName, ::testing::ValuesIn(meetings),
                         [](const auto& row) { return "row" + std::to_string(row.index); });

TEST_F(LibraryHouse, aFileThatCannotLoseItsOldNameKeepsIt) {
  put("Talk.md", "words");
  calls.lack({"renameToFreeName", "rename"}, EPERM);
  EXPECT_THAT(sentenceOf([&] { library.rename(script("Talk.md"), "New"); }), HasSubstr("does not permit it"));
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
  EXPECT_EQ(bytesOf("Talk.md"), "words");
}

TEST_F(LibraryHouse, aRenamingThatWasMadeThoughTheDiskDeniesItCounts) {
  put("Talk.md", "words");
  calls.lack({"renameToFreeName"}, EINVAL);
  calls.renamingToBeDenied = 1;
  EXPECT_EQ(library.rename(script("Talk.md"), "New").identifier, "New.md");
  EXPECT_THAT(names(), ElementsAre("New.md"));
  EXPECT_EQ(bytesOf("New.md"), "words");
}

TEST_F(LibraryHouse, aScriptIsNotRenamedWhileItsLastTextIsStillBeingSaved) {
  put("Talk.md", "new");
  TemporaryName name = TemporaryName::fresh("Talk.md").ofTakenFile();
  put(name.text(), "half ");
  Descriptor editor(::open((root / name.text()).c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  if (waitForWriters(Descriptor(::open((root / name.text()).c_str(), O_RDONLY | O_CLOEXEC)).get(),
                     std::chrono::seconds(0)))
    GTEST_SKIP() << "this disk does not tell who has a file open";
  EXPECT_EQ(
      sentenceOf([&] { library.rename(script("Talk.md"), "New"); }),
      "\"Talk.md\" could not be renamed, because another program has it open for writing. Save and close it there, "
      "then try again.");
  ASSERT_EQ(::write(editor.get(), "and whole", 9), 9);
  editor = Descriptor();
  EXPECT_EQ(library.rename(script("Talk.md"), "New").identifier, "New.md");
  EXPECT_THAT(names(), ElementsAre("New.md"));
  EXPECT_THAT(story("New.md"), HasSubstr("half and whole"));
}

TEST_F(LibraryHouse, renamingIsRefusedWhereItCouldReplaceAnotherFile) {
  put("Talk.md", "words");
  calls.before = [](std::string_view call) { return call == "renameToFreeName" ? EINVAL : call == "link" ? EPERM : 0; };
  EXPECT_EQ(sentenceOf([&] { library.rename(script("Talk.md"), "New"); }),
            "\"Talk.md\" could not be renamed, because this disk has no way to rename a file without the danger of "
            "replacing another one. Rename it in another program.");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

TEST_F(LibraryHouse, renamingInAFolderThatIsNotPermittedIsRefused) {
  put("Closed/Talk.md", "words");
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  ASSERT_TRUE(::geteuid() != 0 || ::chown(root.c_str(), 65534, 65534) == 0);
  std::filesystem::permissions(root / "Closed", std::filesystem::perms(0555));
  EXPECT_EQ(
      inChild([&] {
        becomeNobody();
        return sentenceOf([&] { library.rename(script("Closed/Talk.md"), "New"); });
      }),
      "\"Closed/Talk.md\" could not be renamed, because the system does not permit it. Check who may read and write "
      "there.");
  EXPECT_THAT(names("Closed"), ElementsAre("Talk.md"));
}

// --- The library's own folder ---

class TheOwnFolder : public LibraryHouse {
 protected:
  static constexpr const char* why =
      ", because it belongs to the folder that the library keeps its history in. Leave that folder to the library.";
};

TEST_F(TheOwnFolder, isNeitherChangedNorRenamedInWhateverSpelling) {
  put(".kelvane/notes.md", "words");
  put(".kelvane/folder/notes.md", "words");
  for (const char* identifier : {".kelvane", "./.kelvane", ".kelvane/", ".kelvane/folder", ".//.kelvane/folder"}) {
    EXPECT_EQ(sentenceOf([&] { library.rename(folderItem(identifier), "New"); }),
              quorvel::quoted(identifier) + " could not be renamed" + why);
    EXPECT_EQ(sentenceOf([&] { library.create("New", identifier); }),
              std::string("The script \"New\" could not be made") + why);
    EXPECT_EQ(sentenceOf([&] { library.createFolder("New", identifier); }),
              std::string("The folder \"New\" could not be made") + why);
  }
  for (const char* identifier : {".kelvane/notes.md", "./.kelvane//notes.md", ".kelvane/folder/notes.md"}) {
    EXPECT_EQ(sentenceOf([&] { library.rename(script(identifier), "New"); }),
              quorvel::quoted(identifier) + " could not be renamed" + why);
    EXPECT_EQ(sentenceOf([&] { library.write("new", script(identifier)); }),
              quorvel::quoted(identifier) + " could not be written" + why);
  }
  EXPECT_EQ(bytesOf(".kelvane/notes.md"), "words");
  EXPECT_THAT(names(".kelvane"), ElementsAre("folder", "notes.md"));
  EXPECT_THAT(names(), ElementsAre());
}

TEST_F(TheOwnFolder, hasNoVersions) {
  put(".kelvane/notes.md", "words");
  put(".kelvanes/notes.md", "words");
  put("Scenes/.kelvane/notes.md", "words");
  for (const char* identifier : {".kelvane/notes.md", ".kelvane/folder/notes.md", ".kelvane"}) {
    EXPECT_EQ(sentenceOf([&] { history->snapshot("words", root / identifier, "kept"); }),
              "No version of " + quorvel::quoted(identifier) + " was kept" + why);
  }
  EXPECT_FALSE(std::filesystem::exists(root / ".kelvane/history.sqlite"));
  for (const char* identifier : {".kelvanes/notes.md", "Scenes/.kelvane/notes.md"}) {
    history->snapshot("words", root / identifier, "kept");
    EXPECT_EQ(story(identifier), "kept: words\n");
  }
}

TEST_F(TheOwnFolder, isRefusedBeforeItIsThere) {
  EXPECT_THAT(sentenceOf([&] { library.create("New", ".kelvane"); }), HasSubstr(why));
  EXPECT_THAT(sentenceOf([&] { library.rename(folderItem(".kelvane"), "New"); }), HasSubstr(why));
  EXPECT_FALSE(std::filesystem::exists(root / ".kelvane"));
}

TEST_F(TheOwnFolder, isKnownByWhatItIsWhereItsNameLeadsElsewhere) {
  put("Hidden/notes.md", "words");
  std::filesystem::create_directory_symlink("Hidden", root / ".kelvane");
  EXPECT_THAT(sentenceOf([&] { library.write("new", script("Hidden/notes.md")); }), HasSubstr(why));
  EXPECT_THAT(sentenceOf([&] { library.create("New", "Hidden"); }), HasSubstr(why));
  EXPECT_THAT(sentenceOf([&] { library.rename(folderItem("Hidden"), "New"); }), HasSubstr(why));
}

TEST_F(TheOwnFolder, mayBeTheNameOfAFolderFurtherDown) {
  put("Scenes/.kelvane/notes.md", "words");
  put(".kelvane/lock", "");
  EXPECT_NO_THROW(library.write("new", script("Scenes/.kelvane/notes.md")));
}

TEST_F(TheOwnFolder, cannotComeFromAName) {
  EXPECT_EQ(library.createFolder(".kelvane", std::nullopt).identifier, "kelvane");
  EXPECT_EQ(library.create(".kelvane", std::nullopt).identifier, "kelvane.md");
  EXPECT_EQ(library.rename(folderItem("kelvane"), ".kelvane").identifier, "kelvane");
}

TEST_F(TheOwnFolder, theRootHasNoNameToChange) {
  for (const char* identifier : {"", ".", "./"}) {
    EXPECT_EQ(sentenceOf([&] { library.rename(folderItem(identifier), "New"); }),
              quorvel::quoted(identifier) + " could not be renamed, because it is the library's own root folder.");
  }
}

TEST_F(TheOwnFolder, aFolderCannotGoIntoItself) {
  put("Scenes/End.md");
  EXPECT_EQ(library.rename(folderItem("Scenes"), "Scenes/Inside").identifier, "Scenes-Inside");
  EXPECT_THAT(names(), ElementsAre("Scenes-Inside"));
}

}  // namespace
}  // namespace quorvel
