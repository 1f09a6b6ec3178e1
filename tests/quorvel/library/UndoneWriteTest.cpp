#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <new>
#include <optional>
#include <string>

#include "tests/quorvel/ScarceMemory.h"
#include "tests/quorvel/SystemAbilities.h"
#include "tests/quorvel/library/OtherPrograms.h"
#include "tests/support/ChildProcess.h"

namespace quorvel {
namespace {

using kelvane::tests::dieAtOnce;
using kelvane::tests::inChild;
using ::testing::ElementsAre;
using ::testing::EndsWith;

// The history is whole again for the next writer: what was damaged here is put back.
class UndoneWrite : public OtherPrograms {
 protected:
  UndoneWrite() { calls.swaps = true; }
  void repairHistory() const { put(".kelvane/history.sqlite", sound_); }
  const std::string sound_ = bytesOf(".kelvane/history.sqlite");
};

const std::string savedMeanwhile =
    " Another program has opened \"Talk.md\" to save it meanwhile, so what it saved, or the new text, is in its place. "
    "What was there just before is in a hidden file beside the script, and the next change of the script takes it into "
    "the version history.";

TEST_F(UndoneWrite, losesNoTextIfAnotherProgramSavesAgainMeanwhile) {
  for (const bool renaming : {true, false}) {
    SCOPED_TRACE(renaming ? "by renaming" : "in place, onto the new text");
    const std::string third = renaming ? "third" : "fourth";
    calls.before = [&, exchanges = 0](std::string_view call) mutable {
      if (call == "exchange" && ++exchanges == 1) {
        saveByRenaming("not " + third);
        damageHistory();
      } else if (call == "exchange" && exchanges == 2) {
        renaming ? saveByRenaming(third) : saveInPlace(third);
      }
      return 0;
    };
    EXPECT_THAT(sentenceOf([&] { writeNew(); }), EndsWith(savedMeanwhile));
    EXPECT_EQ(bytesOf("Talk.md"), third);
    EXPECT_EQ(leftovers(), 1U);

    repairHistory();
    writeNew();
    EXPECT_EQ(bytesOf("Talk.md"), "new");
    EXPECT_THAT(names(), ElementsAre("Talk.md"));
    EXPECT_EQ(story("Talk.md"),
              "kept: old\nBefore — found after an interrupted change: not " + third + "\n" + meanwhile + third + "\n");
  }
}

TEST_F(UndoneWrite, leavesAProgramThatBeganToSaveOntoTheNewTextItsFile) {
  if (!systemTells()) GTEST_SKIP() << "this disk does not tell who has a file open";
  Descriptor editor;
  calls.before = [&, exchanges = 0](std::string_view call) mutable {
    if (call == "exchange" && ++exchanges == 1) {
      saveByRenaming("theirs");
      damageHistory();
    } else if (call == "exchange" && exchanges == 2) {
      editor = Descriptor(::open((root / "Talk.md").c_str(), O_WRONLY | O_CLOEXEC));
    }
    return 0;
  };
  EXPECT_THAT(sentenceOf([&] { writeNew(); }), EndsWith(savedMeanwhile));
  ASSERT_EQ(::write(editor.get(), "third", 5), 5);
  editor = Descriptor();
  EXPECT_EQ(bytesOf("Talk.md"), "third");
  repairHistory();
  writeNew();
  EXPECT_EQ(story("Talk.md"),
            std::string("kept: old\nBefore — found after an interrupted change: theirs\n") + meanwhile + "third\n");
}

TEST_F(UndoneWrite, saysWhereBothTextsAreIfProgramsKeepBothOpen) {
  if (!systemTells()) GTEST_SKIP() << "this disk does not tell who has a file open";
  Descriptor first;
  Descriptor second;
  calls.before = [&, exchanges = 0](std::string_view call) mutable {
    if (call == "exchange" && ++exchanges == 1) {
      first = Descriptor(::open((root / "Talk.md").c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
      if (::write(first.get(), "half", 4) != 4) return EIO;
    } else if (call == "exchange" && exchanges == 2) {
      second = Descriptor(::open((root / "Talk.md").c_str(), O_WRONLY | O_CLOEXEC));
    }
    return 0;
  };
  EXPECT_THAT(
      sentenceOf([&] { impatient().write("new", script("Talk.md")); }),
      EndsWith(" Other programs keep \"Talk.md\" open to save it, so nobody can tell which text is the last. One "
               "is in its place. The other is in a hidden file beside the script, and the next change of the "
               "script takes it into the version history."));
  EXPECT_EQ(bytesOf("Talk.md"), "half");
  EXPECT_EQ(leftovers(), 1U);
  first = Descriptor();
  second = Descriptor();
  writeNew();
  EXPECT_TRUE(history->hasVersionWith("half", "Talk.md"));
  EXPECT_EQ(leftovers(), 0U);
}

TEST_F(UndoneWrite, losesNothingInAProcessThatDiesAtAnyCall) {
  int deaths = 0;
  int thirdSaves = 0;
  for (int time = 1;; ++time) {
    SCOPED_TRACE("call " + std::to_string(time));
    saveByRenaming("old");
    std::filesystem::remove(root / "saved");
    const std::string answer = inChild([&]() -> std::string {
      calls.before = [&, exchanges = 0, made = 0](std::string_view call) mutable {
        if (readsFolders(call)) return 0;
        if (call == "exchange" && ++exchanges == 1) {
          saveByRenaming("theirs");
          damageHistory();
        } else if (call == "exchange" && exchanges == 2) {
          saveInPlace("third");
          put("saved", "");
        }
        if (++made == time) dieAtOnce();
        return 0;
      };
      return sentenceOf([&] { writeNew(); });
    });
    repairHistory();
    FolderLibrary(root, history).write("next", script("Talk.md"));
    EXPECT_EQ(leftovers(), 0U);
    const bool saved = std::filesystem::exists(root / "saved");
    EXPECT_TRUE(!saved || history->hasVersionWith("third", "Talk.md"));
    EXPECT_TRUE(!saved || history->hasVersionWith("theirs", "Talk.md"));
    thirdSaves += saved;
    if (!answer.starts_with("killed")) break;
    ++deaths;
  }
  EXPECT_GE(deaths, 7);
  EXPECT_GE(thirdSaves, 3);
}

TEST_F(UndoneWrite, saysWhereTheTextsAreWithoutTheMemoryToReadThem) {
  const std::string big(100'000, 'o');
  const std::string text(100'000, 'n');
  const std::string hidden =
      " is in a hidden file beside the script, and the next change of the script takes it into the version history.";
  const std::string mayBeHidden =
      "\"Talk.md\" could not be written, because the system is out of memory. Close some programs and try again. What "
      "another program may have saved there at the same moment" +
      hidden;
  const struct {
    const char* description;
    std::size_t failures;  // of allocations, from the first exchange on
    bool canChangeBack;
    bool isSavedMeanwhile;
    std::string sentence;
    std::string inPlace;
    std::size_t leftovers;
  } cases[] = {
      {"no memory, and the files change back", 9, true, false, mayBeHidden, big, 1},
      {"they cannot change back", 9, false, false,
       "The new text of \"Talk.md\" is in its place and could not be taken out again, because the disk reports an "
       "error. Check the disk. What was there just before" +
           hidden,
       text, 1},
      {"no memory for one text", 1, true, false, "(no memory)", big, 0},
      {"another program saves meanwhile", 1, true, true,
       "\"Talk.md\" could not be written, because the system is out of memory. Close some programs and try again." +
           savedMeanwhile,
       "theirs", 1},
      {"and there is no memory for the text before", 2, true, true, mayBeHidden, "theirs", 1},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.description);
    saveByRenaming(big);
    std::optional<kelvane::tests::ScarceMemory> scarce;
    calls.before = [&, exchanges = 0](std::string_view call) mutable {
      if (call != "exchange") return 0;
      if (++exchanges == 1) scarce.emplace(row.failures);
      if (exchanges != 2) return 0;
      if (row.isSavedMeanwhile) saveByRenaming(row.inPlace);
      return row.canChangeBack ? 0 : EIO;
    };
    std::string said;
    try {
      library.write(text, script("Talk.md"));
    } catch (const std::bad_alloc&) {
      said = "(no memory)";
    } catch (const LibraryError& error) {
      said = error.what();
    }
    EXPECT_GT(scarce->failed(), 0U);
    scarce.reset();
    EXPECT_EQ(said, row.sentence);
    EXPECT_EQ(bytesOf("Talk.md").substr(0, 6), row.inPlace.substr(0, 6));
    EXPECT_EQ(leftovers(), row.leftovers);

    calls.before = [](std::string_view) { return 0; };
    library.write("next", script("Talk.md"));
    EXPECT_THAT(names(), ElementsAre("Talk.md"));
    EXPECT_TRUE(history->hasVersionWith(big, "Talk.md"));
    EXPECT_TRUE(history->hasVersionWith(row.inPlace, "Talk.md"));
  }
}

class UndoneWriteWithout : public UndoneWrite, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Calls, UndoneWriteWithout, ::testing::Values("exchange", "rename"),
                         [](const auto& row) { return std::string(row.param); });

TEST_P(UndoneWriteWithout, whatItTakesSaysWhatIsTrueAndLeavesTheTextToTheNextWriter) {
  calls.before = [&, isSwapped = false](std::string_view call) mutable {
    if (isSwapped) return call == GetParam() ? EIO : 0;
    if (call != "exchange") return 0;
    isSwapped = true;
    put("saved", "");
    saveByRenaming("theirs");
    damageHistory();
    return 0;
  };
  EXPECT_EQ(sentenceOf([&] { writeNew(); }),
            "The new text of \"Talk.md\" is in its place and could not be taken out again, because the disk reports an "
            "error. Check the disk. What was there just before is in a hidden file beside the script, and the next "
            "change of the script takes it into the version history.");
  EXPECT_EQ(bytesOf("Talk.md"), "new");
  EXPECT_EQ(leftovers(), 1U);

  calls.before = [](std::string_view) { return 0; };
  repairHistory();
  library.write("newer", script("Talk.md"));
  EXPECT_THAT(names(), ElementsAre("Talk.md", "saved"));
  EXPECT_EQ(story("Talk.md"),
            std::string("kept: old\nBefore — found after an interrupted change: theirs\n") + meanwhile + "new\n");
}

}  // namespace
}  // namespace quorvel
