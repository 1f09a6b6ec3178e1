#include "quorvel/files/Leftovers.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "quorvel/files/WaitForWriters.h"
#include "tests/quorvel/library/LibraryHouse.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/RowName.h"

namespace quorvel {
namespace {

using kelvane::tests::dieAtOnce;
using kelvane::tests::inChild;
using ::testing::AnyOf;
using ::testing::ElementsAre;

class Leftovers : public LibraryHouse {
 protected:
  Leftovers() { put("Talk.md", "old"); }

  std::uint64_t inodeOf(const std::filesystem::path& file) const {
    struct stat status {};
    EXPECT_EQ(::stat((root / file).c_str(), &status), 0);
    return status.st_ino;
  }

  // A leftover with that text, of that script; its name says that its own number is `inode`, or another one.
  std::string leave(const std::string& scriptName, std::string_view text, std::optional<bool> ownInode) {
    TemporaryName name = TemporaryName::fresh(scriptName);
    put(name.text(), text);
    if (!ownInode) return name.text();
    const std::string first = name.text();
    name.inode = inodeOf(first) + (*ownInode ? 0 : 1);
    std::filesystem::rename(root / first, root / name.text());
    return name.text();
  }

  bool sweep() {
    const Descriptor at(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const SweptLeftovers swept = sweepLeftovers(
        calls, at.get(),
        [&](const std::string& name, std::string_view text) { kept += name + ": " + std::string(text) + "\n"; },
        [&] {
          ++questions;
          return remembered;
        });
    return swept.areGone;
  }

  std::string kept;
  std::vector<std::string> remembered;  // scripts that were in the folder once
  int questions = 0;                    // how often they were asked for
};

TEST_F(Leftovers, thatNeverWereAScriptsTextAreDeleted) {
  leave("Talk.md", "", std::nullopt);
  leave("Talk.md", "half wri", true);
  leave("Gone.md", "half wri", true);
  sweep();
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
  EXPECT_EQ(kept, "");
}

TEST_F(Leftovers, thatWereAScriptsTextAreSavedBeforeTheyAreDeleted) {
  put("Other.md");
  leave("Talk.md", "theirs", false);
  leave("Other.md", "", false);
  sweep();
  EXPECT_THAT(names(), ElementsAre("Other.md", "Talk.md"));
  EXPECT_EQ(kept, "Talk.md: theirs\n");
  EXPECT_EQ(questions, 0);
}

TEST_F(Leftovers, ofAScriptThatIsGoneAreKeptUnderTheNameThatItHad) {
  leave("Gone.md", "theirs", false);
  remembered = {"Other.md", "Gone.md"};
  sweep();
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
  EXPECT_EQ(kept, "Gone.md: theirs\n");
}

TEST_F(Leftovers, ofAScriptThatNobodyRemembersStay) {
  const std::string name = leave("Gone.md", "theirs", false);
  remembered = {"Other.md"};
  int reads = 0;
  calls.before = [&](std::string_view call) {
    reads += call == "read";
    return 0;
  };
  sweep();
  EXPECT_EQ(bytesOf(name), "theirs");
  EXPECT_EQ(kept, "");
  EXPECT_EQ(reads, 0) << "it may be large, and stays for every sweep";
}

TEST_F(Leftovers, ofAScriptThatNobodyRemembersAreDeletedIfTheyAreEmpty) {
  leave("Gone.md", "", false);
  sweep();
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

TEST_F(Leftovers, ofAScriptThatHasAnotherNameNowAreDeleted) {
  const std::string name = leave("Gone.md", "theirs", false);
  std::filesystem::create_hard_link(root / name, root / "New.md");
  sweep();
  EXPECT_THAT(names(), ElementsAre("New.md", "Talk.md"));
  EXPECT_EQ(kept, "");
}

TEST_F(Leftovers, thatAProgramIsStillWritingStayUntilItIsDone) {
  const std::string name = leave("Talk.md", "half ", false);
  Descriptor editor(::open((root / name).c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  if (waitForWriters(Descriptor(::open((root / name).c_str(), O_RDONLY | O_CLOEXEC)).get(), std::chrono::seconds(0)))
    GTEST_SKIP() << "this disk does not tell who has a file open";
  sweep();
  EXPECT_EQ(kept, "");
  ASSERT_EQ(::write(editor.get(), "and whole", 9), 9);
  editor = Descriptor();
  sweep();
  EXPECT_EQ(kept, "Talk.md: half and whole\n");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

// Counts how often the entries of a folder are read.
struct Looks {
  explicit Looks(StagedCalls& calls) {
    calls.before = [this](std::string_view call) {
      blocks += call == "readEntries";
      entries += call == "nextEntry";
      return 0;
    };
  }
  // A small folder is one block and the end; or, where the system knows no blocks, that answer and each entry.
  void expectAtMost(std::size_t looks, std::size_t entriesOfFolder) const {
    EXPECT_GE(blocks, 1U);
    EXPECT_LE(blocks, 2 * looks);
    EXPECT_LE(entries, looks * entriesOfFolder);
  }
  std::size_t blocks = 0;
  std::size_t entries = 0;
};

TEST_F(Leftovers, areFoundByReadingTheFolderTwiceHoweverManyThereAre) {
  constexpr int many = 50;
  for (int count = 0; count < many; ++count) leave("Gone " + std::to_string(count) + ".md", "theirs", false);
  const Looks looks(calls);
  sweep();
  EXPECT_EQ(leftovers(), std::size_t{many});
  looks.expectAtMost(2, many + 10);
  EXPECT_EQ(questions, 1);
}

TEST_F(Leftovers, areLookedForByReadingTheFolderOnce) {
  leave("Talk.md", "half wri", true);
  const std::size_t present = names().size();
  const Looks looks(calls);
  sweep();
  looks.expectAtMost(1, present + 6);
  EXPECT_EQ(questions, 0);
}

TEST_F(Leftovers, ofLivingWritersStay) {
  const std::string name = leave("Talk.md", "half wri", true);
  const Descriptor owner(::open((root / name).c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(::flock(owner.get(), LOCK_EX), 0);
  sweep();
  EXPECT_EQ(bytesOf(name), "half wri");
}

TEST_F(Leftovers, areGoneOnlyIfThatIsSure) {
  EXPECT_TRUE(sweep());
  const struct {
    const char* description;
    const char* failing;
    std::optional<bool> ownInode;
  } cases[] = {
      {"the folder cannot be read", "readEntries", true},
      {"a text cannot be read", "read", false},
      {"a file cannot be deleted", "unlink", true},
  };
  for (const auto& row : cases) {
    leave("Talk.md", "theirs", row.ownInode);
    calls.lack({row.failing}, EIO);
    EXPECT_FALSE(sweep()) << row.description;
    EXPECT_EQ(leftovers(), 1U) << row.description;
    calls.before = [](std::string_view) { return 0; };
    EXPECT_TRUE(sweep()) << row.description;
    EXPECT_EQ(leftovers(), 0U) << row.description;
  }
}

TEST_F(Leftovers, areNothingElseThatIsInTheFolder) {
  const std::string number = TemporaryName::fresh("Talk.md").text();
  std::filesystem::create_directory(root / number);
  std::filesystem::create_symlink("Talk.md", root / (number + "-1f"));
  put(".kelvane-notes", "a person's");
  put("kelvane-0", "a person's");
  const auto before = names();
  sweep();
  EXPECT_EQ(names(), before);
}

TEST_F(Leftovers, stayWhenTheirTextCannotBeKept) {
  const std::string name = leave("Talk.md", "theirs", false);
  const Descriptor at(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  EXPECT_THROW(
      sweepLeftovers(
          calls, at.get(), [](auto&, auto) { throw LibraryError("No."); }, [] { return std::vector<std::string>(); }),
      LibraryError);
  EXPECT_EQ(bytesOf(name), "theirs");
}

TEST_F(Leftovers, areClearedAwayByTheNextChangeInTheFolder) {
  put("Other.md", "other");
  leave("Talk.md", "theirs", false);
  leave("Talk.md", "half wri", true);
  library.write("new", script("Other.md"));
  EXPECT_THAT(names(), ElementsAre("Other.md", "Talk.md"));
  EXPECT_EQ(story("Talk.md"), "Before — found after an interrupted change: theirs\n");
}

TEST_F(Leftovers, ofAScriptThatIsGoneGoIntoItsHistoryBeforeANewOneOfItsNameIsMade) {
  history->snapshot("old", root / "Talk.md", "kept");
  leave("Talk.md", "theirs", false);
  std::filesystem::remove(root / "Talk.md");
  library.create("Talk", std::nullopt);
  library.write("new", script("Talk.md"));
  EXPECT_EQ(story("Talk.md"), "");
  EXPECT_EQ(story("Talk.md", 1), "kept: old\nBefore — found after an interrupted change: theirs\n");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

TEST_F(Leftovers, ofAScriptThatIsGoneGoIntoItsHistoryInItsFolder) {
  history->snapshot("old", root / "Scenes/Gone.md", "kept");
  history->snapshot("old", root / "Gone.md", "kept");
  put("Scenes/End.md");
  const std::string name = leave("Gone.md", "theirs", false);
  std::filesystem::rename(root / name, root / "Scenes" / name);
  library.write("new", script("Scenes/End.md"));
  EXPECT_EQ(story("Scenes/Gone.md"), "kept: old\nBefore — found after an interrupted change: theirs\n");
  EXPECT_EQ(story("Gone.md"), "kept: old\n");
}

TEST_F(Leftovers, areNotKeptTwice) {
  history->snapshot("theirs", root / "Talk.md", "kept");
  leave("Talk.md", "theirs", false);
  library.write("old", script("Talk.md"));
  EXPECT_EQ(leftovers(), 0U);
  EXPECT_THAT(story("Talk.md"), ::testing::StartsWith("kept: theirs\nBefore — saved by another program"));
}

TEST_F(Leftovers, areKeptUnderTheNameThatTheScriptHadBeforeItIsRenamed) {
  leave("Talk.md", "theirs", false);
  library.rename(script("Talk.md"), "Speech");
  EXPECT_THAT(names(), ElementsAre("Speech.md"));
  EXPECT_EQ(story("Speech.md"), "Before — found after an interrupted change: theirs\n");
}

TEST_F(Leftovers, ofAWriterThatIsAtWorkInTheSameFolderAreLeftAlone) {
  put("Other.md", "other");
  FolderLibrary second(root, history);
  calls.interrupt("write", [&] { second.write("new other", script("Other.md")); });
  library.write("new", script("Talk.md"));
  EXPECT_EQ(bytesOf("Talk.md"), "new");
  EXPECT_EQ(bytesOf("Other.md"), "new other");
  EXPECT_THAT(names(), ElementsAre("Other.md", "Talk.md"));
}

// --- A process that dies just before any of its calls ---

struct Death {
  const char* description;
  bool exchanges;
  bool savedMeanwhile;  // another program has saved the script just before the new text gets to its place

  friend void PrintTo(const Death& row, std::ostream* out) { *out << row.description; }
};

class DeathInAWrite : public LibraryHouse, public ::testing::WithParamInterface<Death> {};

TEST_P(DeathInAWrite, leavesTheOldTextOrTheNewAndNothingForAPersonToRepair) {
  const auto& [description, exchanges, savedMeanwhile] = GetParam();
  const std::string before = savedMeanwhile ? "theirs" : "old";
  int deaths = 0;
  int oldSeen = 0;
  int newSeen = 0;
  for (int time = 1;; ++time) {
    const std::string name = "Talk " + std::to_string(time) + ".md";
    put(name, "old");
    history->snapshot("old", root / name, "kept");
    const std::string answer = inChild([&, swaps = exchanges, savesToo = savedMeanwhile]() -> std::string {
      calls.before = [&, made = 0](std::string_view call) mutable {
        if (readsFolders(call)) return 0;
        if (savesToo && call == "exchange" && bytesOf(name) == "old") put(name, "theirs");
        if (++made == time) dieAtOnce();
        return call == "exchange" && !swaps ? EINVAL : 0;
      };
      library.write("new", script(name));
      return "written";
    });

    const std::string text = bytesOf(name);
    EXPECT_THAT(text, AnyOf("old", before, "new")) << description << ", call " << time;
    oldSeen += text != "new";
    newSeen += text == "new";
    EXPECT_EQ(tree().find(".kelvane"), std::string::npos);
    FolderLibrary next(root, history);
    next.write("next", script(name));
    EXPECT_EQ(leftovers(), 0U) << description << ", call " << time;
    EXPECT_TRUE(history->hasVersionWith("old", name)) << description << ", call " << time;
    EXPECT_TRUE(text == "old" || history->hasVersionWith(before, name)) << description << ", call " << time;
    EXPECT_EQ(bytesOf(name), "next");
    if (answer == "written") break;
    ASSERT_EQ(answer, "killed by signal 9");
    ++deaths;
  }
  EXPECT_GE(deaths, 6) << description;
  EXPECT_GE(oldSeen, 2) << description;
  EXPECT_GE(newSeen, 2) << description;
}

const Death deathsInAWrite[] = {
    {"exchanging", true, false},
    {"exchanging, saved meanwhile", true, true},
    {"renaming over", false, false},
    {"renaming over, saved meanwhile", false, true},
};

INSTANTIATE_TEST_SUITE_P(Rows, DeathInAWrite, ::testing::ValuesIn(deathsInAWrite), kelvane::tests::RowName());

}  // namespace
}  // namespace quorvel
