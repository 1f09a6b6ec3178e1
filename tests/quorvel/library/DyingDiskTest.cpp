// A disk that goes read-only, fills up or dies: every call of a kind fails from some moment on, for good. Whatever that
// moment is, a tool ends, and what it says is what is on the disk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "protocol/JSON.h"
#include "quorvel/library/FreeNumber.h"
#include "scripttools/ScriptTools.h"
#include "tests/quorvel/SystemAbilities.h"
#include "tests/quorvel/library/LibraryHouse.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FailingSystemCalls.h"
#include "tests/support/RowName.h"

namespace quorvel {
namespace {

using kelvane::JSON;
using kelvane::tests::FailingSystemCalls;
using kelvane::tests::inChild;
using kelvane::tests::KindOfCalls;
using kelvane::tests::kindsOfCalls;

const std::string old = "# One\n\nalpha\n";
constexpr const char* noFailure = "(no failure)";
constexpr const char* notStaged = "the system does not let calls fail";

struct ToolCall {
  const char* description;
  const char* tool;
  JSON::Object arguments;
  std::string made;             // what the script is to hold
  bool savedMeanwhile = false;  // another program saves "theirs" just before the two files change places
  bool exchanges = true;        // whether the system can let them do so
};

/// An error of the system's, by its name.
struct Errno {
  int number;
  const char* name;
};

void PrintTo(const ToolCall& call, std::ostream* out) {
  *out << call.description;
}
void PrintTo(const Errno& error, std::ostream* out) {
  *out << error.name;
}

class DyingDisk : public LibraryHouse, public ::testing::WithParamInterface<std::tuple<ToolCall, Errno>> {
 protected:
  DyingDisk() : LibraryHouse(kelvane::tests::folderInMemory()) {
    put("Talk.md", old);
    history->snapshot(old, root / "Talk.md", "kept");
    library.lock();
    keepAsSound();
  }

  /// The library as it is now is what each run begins with.
  void keepAsSound() {
    std::filesystem::remove_all(sound_);
    std::filesystem::copy(root, sound_, std::filesystem::copy_options::recursive);
  }

  /// Runs the tool once for each kind of calls and each of them that can be the first to fail, and has a look at what
  /// it said then and at the disk, which is sound again.
  void forEachMoment(const std::function<void(const std::string& said)>& look, bool isForGood = true, int least = 50) {
    const int error = std::get<1>(GetParam()).number;
    int moments = 0;
    for (const KindOfCalls& kind : kindsOfCalls()) {
      for (int first = 1;; ++first) {
        SCOPED_TRACE(kind.name + " fails at call " + std::to_string(first) + (isForGood ? " and from there on" : ""));
        std::filesystem::remove_all(root);
        std::filesystem::copy(sound_, root, std::filesystem::copy_options::recursive);
        const std::string said = inChild([&] { return runUntil(kind, first, error, isForGood); });
        if (said == notStaged) GTEST_SKIP() << notStaged;
        if (said.empty()) break;
        SCOPED_TRACE(said);
        look(said);
        ++moments;
      }
    }
    std::cout << moments << " moments\n";
    EXPECT_GT(moments, least);
  }

  static bool says(std::string_view said, std::string_view part) { return said.find(part) != std::string_view::npos; }

  /// Where nothing is at an identifier, the sentence is the catalogue's own.
  static bool isSentence(std::string_view said) {
    return said == noFailure || said.ends_with('.') || said.starts_with("Nothing at \"") ||
           said.starts_with("No folder at \"");
  }

 private:
  // What the tool says; nothing when the first call to fail was never made.
  std::string runUntil(const KindOfCalls& kind, int first, int error, bool isForGood) const {
    const ToolCall& call = std::get<0>(GetParam());
    StagedCalls staged;
    staged.before = [&, isSaved = false](std::string_view made) mutable {
      if (made == "exchange" && call.savedMeanwhile && !std::exchange(isSaved, true)) {
        FailingSystemCalls::unstaged([&] {
          put("Talk.md~", "theirs");
          std::filesystem::rename(root / "Talk.md~", root / "Talk.md");
        });
      }
      return made == "exchange" && !call.exchanges ? EINVAL : 0;
    };
    constexpr std::chrono::milliseconds patience(20);
    const auto own = std::make_shared<History>(root, std::chrono::system_clock::now, patience);
    const auto tools =
        kelvane::ScriptTools(std::make_shared<FolderLibrary>(root, own, FolderLibrary::Options{staged, patience}), own)
            .tools(true);
    const int last = isForGood ? FailingSystemCalls::mostCalls : first;
    if (!FailingSystemCalls::begin(kind, first, error, last)) return notStaged;
    std::string said = "no such tool";
    for (const kelvane::Tool& tool : tools) {
      if (tool.name() == call.tool) said = sentenceOf([&] { tool.run(call.arguments); });
    }
    FailingSystemCalls::stop();
    return FailingSystemCalls::count() < first ? std::string() : said;
  }

  const std::filesystem::path sound_ = folder.path() / "Sound";
};

const Errno errors[] = {{EIO, "EIO"}, {ENOSPC, "ENOSPC"}, {EROFS, "EROFS"}, {EACCES, "EACCES"}};

// --- Replacing a text ---

class DyingDiskUnderAText : public DyingDisk {};

TEST_P(DyingDiskUnderAText, isToldAsItIsAndLosesNoWord) {
  const ToolCall& call = std::get<0>(GetParam());
  forEachMoment([&](const std::string& said) {
    const std::string present = bytesOf("Talk.md");
    const bool isSaidToStand = said == noFailure || says(said, "The new text of \"Talk.md\" is in its place") ||
                               says(said, "The new text of \"Talk.md\" was written");
    EXPECT_EQ(present == call.made, isSaidToStand) << "there is: " << present;
    EXPECT_TRUE(isSentence(said));
    if (said == noFailure) {
      EXPECT_TRUE(history->hasVersionWith(old, "Talk.md"));
    }
    if (says(said, "in a hidden file beside the script")) {
      EXPECT_EQ(leftovers(), 1U);
    }

    writeLocked("next", "Talk.md");
    EXPECT_EQ(bytesOf("Talk.md"), "next");
    EXPECT_EQ(leftovers(), 0U);
    EXPECT_TRUE(history->hasVersionWith(old, "Talk.md"));
    if (isSaidToStand && call.savedMeanwhile) {
      EXPECT_TRUE(history->hasVersionWith("theirs", "Talk.md"));
    }
    if (isSaidToStand) {
      EXPECT_TRUE(history->hasVersionWith(call.made, "Talk.md"));
    }
  });
}

const ToolCall rewriting[] = {
    {"a text that is replaced", "update_script", {{"id", "Talk.md"}, {"text", "new"}, {"note", "n"}}, "new"},
    {"one that grows", "append_to_script", {{"id", "Talk.md"}, {"text", "x"}, {"note", "n"}}, old + "\nx"},
    {"a chapter's title",
     "rename_chapter",
     {{"id", "Talk.md"}, {"chapter", "1"}, {"title", "Two"}},
     "# Two\n\nalpha\n"},
    {"a text that another program saves meanwhile",
     "update_script",
     {{"id", "Talk.md"}, {"text", "new"}, {"note", "n"}},
     "new",
     true},
    {"no exchange", "update_script", {{"id", "Talk.md"}, {"text", "new"}, {"note", "n"}}, "new", false, false},
    {"no exchange, and another program",
     "update_script",
     {{"id", "Talk.md"}, {"text", "new"}, {"note", "n"}},
     "new",
     true,
     false},
};

INSTANTIATE_TEST_SUITE_P(Rows, DyingDiskUnderAText,
                         ::testing::Combine(::testing::ValuesIn(rewriting), ::testing::Values(errors[0])),
                         kelvane::tests::RowName());

INSTANTIATE_TEST_SUITE_P(Errors, DyingDiskUnderAText,
                         ::testing::Combine(::testing::Values(rewriting[0]),
                                            ::testing::Values(errors[1], errors[2], Errno{ENOENT, "ENOENT"})),
                         kelvane::tests::RowName());

// --- Making and renaming a script, and keeping its text ---

class DyingDiskUnderANewScript : public DyingDisk {};

TEST_P(DyingDiskUnderANewScript, isToldAsItIs) {
  forEachMoment([&](const std::string& said) {
    EXPECT_TRUE(isSentence(said));
    const bool isThere = std::filesystem::exists(root / "New.md");
    const bool isSaidToStand = said == noFailure || says(said, "The new text of \"New.md\" is in its place") ||
                               says(said, "The new text of \"New.md\" was written");
    EXPECT_EQ(isThere && bytesOf("New.md") == "words", isSaidToStand);
    const bool isSaidToBeEmpty = says(said, "\"New.md\" was made");
    EXPECT_EQ(isThere, isSaidToStand || isSaidToBeEmpty);
  });
}

const ToolCall making[] = {
    {"a script with a text", "create_script", {{"name", "New"}, {"text", "words"}}, "words"},
};

INSTANTIATE_TEST_SUITE_P(Rows, DyingDiskUnderANewScript,
                         ::testing::Combine(::testing::ValuesIn(making), ::testing::ValuesIn(errors)),
                         kelvane::tests::RowName());

class DyingDiskUnderAName : public DyingDisk {};

// Where the system cannot rename in one step, a disk can die half-way. The sentence then tells which names are left.
TEST_P(DyingDiskUnderAName, isToldAsItIsAndTheHistoryFollows) {
  int timesUnknown = 0;
  int timesHidden = 0;
  forEachMoment([&](const std::string& said) {
    EXPECT_TRUE(isSentence(said));
    const bool isSaidToBeRenamed = said == noFailure || says(said, "was renamed to");
    std::vector<std::string> there = names();
    const bool hasNew = std::erase(there, "New.md") == 1;
    const bool hasOld = std::erase(there, "Talk.md") == 1;
    const std::string script = hasOld ? "Talk.md" : "New.md";
    const bool isSaidToBeUnknown = says(said, "does not tell which name it has now");
    const bool areSaidToBeBoth = says(said, "it has a second name now, \"New.md\"");
    const bool isSaidToBeHidden = says(said, "a hidden file left beside it");
    if (isSaidToBeUnknown) {
      EXPECT_TRUE(hasNew || hasOld);
    } else {
      EXPECT_EQ(hasNew, isSaidToBeRenamed || areSaidToBeBoth);
      EXPECT_EQ(hasOld, !isSaidToBeRenamed);
      EXPECT_EQ(there.size(), isSaidToBeHidden ? 1U : 0U);
    }
    timesUnknown += isSaidToBeUnknown;
    timesHidden += isSaidToBeHidden;
    EXPECT_EQ(bytesOf(script), old);
    EXPECT_EQ(story(script), "kept: " + old + "\n");

    writeLocked("next", script);
    EXPECT_EQ(leftovers(), 0U);
    EXPECT_EQ(bytesOf(script), "next");
  });
  std::cout << timesUnknown << " unknown, " << timesHidden << " hidden\n";
  const bool isInOneStep = systemSwaps();
  EXPECT_EQ(timesUnknown == 0, isInOneStep);
  EXPECT_EQ(timesHidden == 0, isInOneStep);
}

class DyingDiskUnderAFoldersName : public DyingDisk {};

TEST_P(DyingDiskUnderAFoldersName, isToldAsItIs) {
  int timesEmpty = 0;
  std::filesystem::create_directory(root / "Box");
  put("Box/Inner.md", old);
  keepAsSound();
  forEachMoment(
      [&](const std::string& said) {
        EXPECT_TRUE(isSentence(said));
        const bool isSaidToBeRenamed = said == noFailure || says(said, "was renamed to");
        EXPECT_EQ(bytesOf(isSaidToBeRenamed ? "New/Inner.md" : "Box/Inner.md"), old);
        EXPECT_NE(std::filesystem::exists(root / "Box"), isSaidToBeRenamed);
        const bool isSaidToBeEmpty = says(said, "an empty folder \"New\" is left");
        EXPECT_EQ(std::filesystem::exists(root / "New"), isSaidToBeRenamed || isSaidToBeEmpty);
        timesEmpty += isSaidToBeEmpty;
      },
      true, 40);  // a folder's new name takes the fewest system calls
  std::cout << timesEmpty << " empty folders\n";
  EXPECT_EQ(timesEmpty == 0, systemSwaps());
}

const ToolCall naming[] = {{"a script", "rename", {{"id", "Talk.md"}, {"name", "New"}}, ""}};

INSTANTIATE_TEST_SUITE_P(Rows, DyingDiskUnderAName,
                         ::testing::Combine(::testing::ValuesIn(naming), ::testing::ValuesIn(errors)),
                         kelvane::tests::RowName());

const ToolCall namingFolders[] = {{"a folder", "rename", {{"id", "Box"}, {"name", "New"}}, ""}};

INSTANTIATE_TEST_SUITE_P(Rows, DyingDiskUnderAFoldersName,
                         ::testing::Combine(::testing::ValuesIn(namingFolders), ::testing::ValuesIn(errors)),
                         kelvane::tests::RowName());

class DyingDiskUnderAVersion : public DyingDisk {};

TEST_P(DyingDiskUnderAVersion, isToldAsItIs) {
  forEachMoment([&](const std::string& said) {
    EXPECT_TRUE(isSentence(said));
    EXPECT_THAT(names(), ::testing::ElementsAre("Talk.md"));
    EXPECT_EQ(bytesOf("Talk.md"), old);
    const std::string version = "n: " + old + "\n";
    const std::string kept = "kept: " + old + "\n";
    const bool isUncertain = says(said, "it is not certain whether the history was");
    EXPECT_EQ(story("Talk.md"), said == noFailure || (isUncertain && story("Talk.md") != kept) ? kept + version : kept);
  });
}

const ToolCall keeping[] = {{"a version", "save_version", {{"id", "Talk.md"}, {"note", "n"}}, ""}};

INSTANTIATE_TEST_SUITE_P(Rows, DyingDiskUnderAVersion,
                         ::testing::Combine(::testing::ValuesIn(keeping), ::testing::ValuesIn(errors)),
                         kelvane::tests::RowName());

// --- A disk that fails for a moment ---

class FlickeringDisk : public DyingDisk {};

// Whoever asked a second time why a look has failed would be told that all is well.
TEST_P(FlickeringDisk, isNotTakenForALibraryThatWasMovedAway) {
  const auto isBlamed = [](const std::string& said) {
    return says(said, "moved away") || says(said, "not the library any more");
  };
  forEachMoment([&](const std::string& said) { EXPECT_FALSE(isBlamed(said)); }, false);
}

TEST_P(FlickeringDisk, isNotTakenForAScriptThatIsGoneOrInUse) {
  const auto isBlamed = [](const std::string& said) {
    return says(said, "Nothing at") || says(said, "not there any more") || says(said, "is using it") ||
           says(said, "saved it at the same moment");
  };
  forEachMoment([&](const std::string& said) { EXPECT_FALSE(isBlamed(said)); }, false);
}

INSTANTIATE_TEST_SUITE_P(Rows, FlickeringDisk,
                         ::testing::Combine(::testing::Values(rewriting[0], rewriting[4], making[0], naming[0],
                                                              keeping[0]),
                                            ::testing::Values(errors[0])),
                         kelvane::tests::RowName());

// --- A disk that never lets a loop end ---

class EndlessAnswer : public LibraryHouse {
 protected:
  EndlessAnswer() { put("Talk.md", old); }
};

TEST_F(EndlessAnswer, thatATemporaryFileIsGoneEndsTheWrite) {
  calls.lack({"rename"}, ENOENT);
  EXPECT_EQ(
      sentenceOf([&] { library.write("new", script("Talk.md")); }),
      "\"Talk.md\" could not be written, because the temporary files that it needs are taken away again and again. "
      "Close other programs that tidy up this folder, check the disk, and try again.");
  EXPECT_EQ(bytesOf("Talk.md"), old);
  EXPECT_THAT(names(), ::testing::ElementsAre("Talk.md"));
}

TEST_F(EndlessAnswer, thatANameIsUsedEndsTheRenaming) {
  calls.lack({"renameToFreeName"}, EEXIST);
  EXPECT_EQ(sentenceOf([&] { library.rename(script("Talk.md"), "New"); }),
            "\"Talk.md\" could not be renamed, because each name that was free was taken when it was to be used. Give "
            "another name, and check the disk.");
  EXPECT_THAT(names(), ::testing::ElementsAre("Talk.md"));
}

TEST_F(EndlessAnswer, thatANumberIsUsedEndsTheSearchForAFreeOne) {
  int looks = 0;
  const std::size_t found = findFreeNumber(1, [&](std::size_t) { return ++looks, true; });
  EXPECT_GT(found, std::size_t{1} << 30);
  EXPECT_LT(looks, 200);
}

}  // namespace
}  // namespace quorvel
