#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <iostream>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "quorvel/files/FileIdentity.h"
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
  UndoneWrite() : OtherPrograms(kelvane::tests::folderInMemory()) { calls.swaps = true; }
  void repairHistory() const { put(".kelvane/history.sqlite", sound_); }

  /// Runs a test with each two numbers of calls, the second not below the first, for as long as it answers that the
  /// second was reached.
  static void forEachTwoCalls(const std::function<bool(int first, int second)>& test) {
    bool isFirstReached = true;
    for (int first = 1; isFirstReached; ++first) {
      isFirstReached = false;
      for (int second = first;; ++second) {
        SCOPED_TRACE("calls " + std::to_string(first) + " and " + std::to_string(second));
        if (!test(first, second)) break;
        isFirstReached = true;
      }
    }
  }

  struct Happening {
    int call;
    std::function<void()> happen;
  };

  /// Lets these happen before the calls with these numbers that change something or read a file.
  void beforeCalls(const std::vector<Happening>& happenings) {
    made_ = 0;
    calls.before = [this, happenings](std::string_view call) {
      if (readsFolders(call)) return 0;
      ++made_;
      for (const Happening& each : happenings) {
        if (each.call == made_) each.happen();
      }
      return 0;
    };
  }
  bool isReachedBy(int call) const { return made_ >= call; }

  const std::string sound_ = bytesOf(".kelvane/history.sqlite");
  int made_ = 0;
};

const std::string savedMeanwhile =
    " Another program has opened \"Talk.md\" to save it meanwhile, so what it saved, or the new text, is in its place. "
    "What was there just before is in a hidden file beside the script, and the next change of the script takes it into "
    "the version history.";

// Each of these tests lets something happen before every two calls of a write that fails because its history is
// damaged, in all their orders, and judges by what is there in the end. `first` may be the same call as `second`.

TEST_F(UndoneWrite, leavesWhatAnotherProgramSavedLastInPlaceWheneverItSaves) {
  int timesHidden = 0;
  for (const bool renaming : {true, false}) {
    forEachTwoCalls([&](int first, int second) {
      const std::string last = "third " + std::to_string(first) + " " + std::to_string(second);
      saveByRenaming("old");
      damageHistory();
      const auto save = [&](const std::string& text) { renaming ? saveByRenaming(text) : saveInPlace(text); };
      beforeCalls({{first, [&] { save("theirs"); }}, {second, [&] { save(last); }}});
      const std::string said = sentenceOf([&] { writeNew(); });
      calls.before = [](std::string_view) { return 0; };
      SCOPED_TRACE(said);
      const bool isReached = isReachedBy(second);
      EXPECT_EQ(leftovers() == 1, said.ends_with(savedMeanwhile));
      timesHidden += leftovers() == 1;
      if (isReached) {
        EXPECT_EQ(bytesOf("Talk.md"), last);
      }

      repairHistory();
      writeNew();
      EXPECT_EQ(bytesOf("Talk.md"), "new");
      EXPECT_THAT(names(), ElementsAre("Talk.md"));
      EXPECT_EQ(history->hasVersionWith(last, "Talk.md"), isReached);
      return isReached;
    });
  }
  std::cout << timesHidden << " times with a hidden file\n";
  EXPECT_GT(timesHidden, 5) << "no program saved between two exchanges";
}

TEST_F(UndoneWrite, leavesProgramsThatOpenTheScriptToSaveItTheirFiles) {
  if (!systemTells()) GTEST_SKIP() << "this disk does not tell who has a file open";
  const std::string keptOpen =
      " Other programs keep \"Talk.md\" open to save it, so nobody can tell which text is the last. One is in its "
      "place. The other is in a hidden file beside the script, and the next change of the script takes it into the "
      "version history.";
  int timesTold = 0;
  int timesBoth = 0;
  forEachTwoCalls([&](int first, int second) {
    struct Editor {
      Descriptor file;
      std::string text;
    };
    const std::string round = " editor's of " + std::to_string(first) + " and " + std::to_string(second);
    Editor editors[2] = {{Descriptor(), "the first" + round}, {Descriptor(), "the second" + round}};
    const auto open = [&](Editor& editor) {
      editor.file = Descriptor(::open((root / "Talk.md").c_str(), O_WRONLY | O_CLOEXEC));
    };
    saveByRenaming("old");
    damageHistory();
    beforeCalls({{first, [&] { open(editors[0]); }}, {second, [&] { open(editors[1]); }}});
    const std::string said = sentenceOf([&] { impatient().write("new", script("Talk.md")); });
    calls.before = [](std::string_view) { return 0; };
    SCOPED_TRACE(said);
    const bool isReached = isReachedBy(second);
    const bool areTwo = isReached && !(identityOf(editors[0].file.get()) == identityOf(editors[1].file.get()));
    for (Editor& editor : editors) {
      if (!editor.file) continue;
      const auto size = static_cast<ssize_t>(editor.text.size());
      EXPECT_EQ(::write(editor.file.get(), editor.text.data(), editor.text.size()), size);
      editor.file = Descriptor();
    }
    timesBoth += areTwo;
    timesTold += said.ends_with(keptOpen);

    repairHistory();
    writeNew();
    EXPECT_EQ(bytesOf("Talk.md"), "new");
    EXPECT_THAT(names(), ElementsAre("Talk.md"));
    EXPECT_EQ(history->hasVersionWith(editors[1].text, "Talk.md"), isReached);
    EXPECT_TRUE(!areTwo || history->hasVersionWith(editors[0].text, "Talk.md"));
    return isReached;
  });
  std::cout << timesBoth << " times with two files open, told " << timesTold << " times\n";
  EXPECT_GT(timesBoth, 0) << "the programs never had two files open";
  EXPECT_GT(timesTold, 0) << "no program kept both files open between two exchanges";
}

TEST_F(UndoneWrite, losesNothingInAProcessThatDiesAtAnyCall) {
  int deaths = 0;
  forEachTwoCalls([&](int save, int death) {
    const std::string last = "third " + std::to_string(save) + " " + std::to_string(death);
    saveByRenaming("old");
    damageHistory();
    const std::string answer = inChild([&]() -> std::string {
      beforeCalls({{save, [&] { saveInPlace(last); }}, {death, [] { dieAtOnce(); }}});
      return sentenceOf([&] { writeNew(); });
    });
    const bool isDead = answer.starts_with("killed");
    deaths += isDead;
    repairHistory();
    FolderLibrary(root, history).write("next", script("Talk.md"));
    EXPECT_EQ(leftovers(), 0U);
    EXPECT_TRUE(!isDead || history->hasVersionWith(last, "Talk.md"));
    return isDead;
  });
  std::cout << deaths << " deaths\n";
  EXPECT_GE(deaths, 30);
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
