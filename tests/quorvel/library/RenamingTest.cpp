#include "quorvel/files/Renaming.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include "tests/quorvel/library/LibraryHouse.h"
#include "tests/support/ChildProcess.h"

namespace quorvel {
namespace {

using kelvane::tests::becomeNobody;
using kelvane::tests::dieAtOnce;
using kelvane::tests::inChild;
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
  return way.param == 0 ? "theSystemsOwn" : std::string("lacking") + ::strerrorname_np(way.param);
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

TEST_P(Renaming, whatIsThereIsNeverReplaced) {
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

TEST_P(Renaming, aNameThatAnotherProgramUsesJustBeforeGetsANumber) {
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

TEST_P(Renaming, aFolderNameThatAnotherProgramUsesJustBeforeGetsANumber) {
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
  EXPECT_EQ(
      sentenceOf([&] { library.rename(script("Scenes"), "New"); }),
      "\"Scenes\" could not be renamed, because it is not a script any more. List the library again to see what is "
      "there now.");
  EXPECT_EQ(
      sentenceOf([&] { library.rename(folderItem("Talk.md"), "New"); }),
      "\"Talk.md\" could not be renamed, because it is not a folder any more. List the library again to see what is "
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
  EXPECT_EQ(sentenceOf([&] { library.rename(talk, std::string(60, 'x')); }), inQuotes(talk.identifier) + why);
  EXPECT_EQ(sentenceOf([&] { library.rename(scenes, std::string(60, 'x')); }), inQuotes(scenes.identifier) + why);
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

TEST_P(Renaming, ofAFolderThatWeAreNotPermittedToReadIsAllowed) {
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
    return call == "readEntries" || call == "nextEntry" ? EIO : call == "renameToFreeName" ? GetParam() : 0;
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
        if (readsFolders(call)) return 0;
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
    EXPECT_TRUE(history->hasVersionWith("words", from) || history->hasVersionWith("words", to)) << time;
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
        if (readsFolders(call)) return 0;
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

}  // namespace
}  // namespace quorvel
