#include "quorvel/settings/FileLeftovers.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <unistd.h>

#include "quorvel/files/TemporaryName.h"
#include "tests/quorvel/settings/StagedFiles.h"
#include "tests/support/ChildProcess.h"

namespace quorvel::changes {
namespace {

using ::testing::IsEmpty;

FileEdit appending(const std::string& text) {
  return [text](const std::optional<std::string>& before) {
    const std::string old = before.value_or("");
    return old.find(text) == std::string::npos ? std::optional(old + text) : std::nullopt;
  };
}

std::vector<fs::path> temporaryFiles(const fs::path& folder) {
  std::vector<fs::path> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (TemporaryName::parse(entry.path().filename().native())) files.push_back(entry.path());
  }
  return files;
}

struct DeathCase {
  const char* description;
  bool isThere;
  bool isLinked;
  bool hasCalls;          // the exchange, and the renaming to a free name
  int saves;              // of another program, before the first swaps
  bool isRenamed = true;  // by which it saves; else it writes into the file that is there
};

// Whatever call a change dies before: the file has the old or the new text, or what another program saved last, and
// the next change leaves nothing but what is nowhere else, which is told.
TEST(FileLeftovers, theNextChangeClearsUpAfterAChangeKilledAtAnyCall) {
  const DeathCase cases[] = {
      {"a file", true, false, true, 0},
      {"a new file", false, false, true, 0},
      {"a file by a link", true, true, true, 0},
      {"a file on an old disk", true, false, false, 0},
      {"a new file on an old disk", false, false, false, 0},
      {"a file that another program saves once", true, false, true, 1},
      {"a file that another program saves twice", true, false, true, 2},
      {"a file that another program saves three times", true, false, true, 3},
      {"a file that another program writes into once", true, false, true, 1, false},
      {"a file that another program writes into twice", true, false, true, 2, false},
      {"a file that another program writes into three times", true, false, true, 3, false},
  };
  for (const DeathCase& row : cases) {
    int left = 0;
    for (int deadly = 1; deadly < 200; ++deadly) {
      SCOPED_TRACE(std::string(row.description) + ", killed before call " + std::to_string(deadly));
      const TemporaryFolder folder(kelvane::tests::folderInMemory());
      fs::create_directory(folder.path() / "real");
      const fs::path real = folder.path() / (row.isLinked ? "real/f" : "f");
      const fs::path file = folder.path() / "f";
      if (row.isLinked) fs::create_symlink("real/f", file);
      if (row.isThere) put(real, "0");
      const std::string answer = kelvane::tests::inChild([&]() -> std::string {
        StagedCalls calls;
        calls.hasExchange = calls.hasFreeRename = row.hasCalls;
        int count = 0;
        int saves = 0;
        calls.beforeEach = [&] {
          if (++count == deadly) kelvane::tests::dieAtOnce();
        };
        calls.beforeSwap = [&] {
          const bool isOfTheFile = fs::exists(folder.path() / "f.copy");
          if (!isOfTheFile || saves == row.saves) return;
          const fs::path written = row.isRenamed ? folder.path() / "own" : real;
          put(written, std::to_string(++saves));
          if (row.isRenamed) fs::rename(written, real);
          put(folder.path() / "saved", std::to_string(saves));
        };
        FileCopies copies = copiesOf(file, calls);
        changeFile(copies, appending("+"));
        return "done";
      });
      left += !temporaryFiles(folder.path()).empty();
      const std::string saved = fs::exists(folder.path() / "saved") ? got(folder.path() / "saved") : "0";
      const std::string text = got(real);
      if (row.isThere) {
        EXPECT_TRUE(std::string("0123").find(text.substr(0, 1)) != std::string::npos &&
                    (text.size() == 1 || text.substr(1) == "+"))
            << text;
      } else {
        EXPECT_TRUE(text == "no file" || text == "+") << text;
      }

      FileCopies copies = copiesOf(file);
      EXPECT_EQ(leftoversOf(copies).size(), temporaryFiles(folder.path()).size());
      changeFile(copies, appending("+"));
      std::string everything = got(real);
      for (const FileLeftover& leftover : leftoversOf(copies)) {
        EXPECT_FALSE(leftover.isElsewhere);
        everything += got(leftover.file);
      }
      EXPECT_EQ(leftoversOf(copies).size(), temporaryFiles(folder.path()).size());
      if (row.saves == 0) {
        EXPECT_THAT(temporaryFiles(folder.path()), IsEmpty());
        EXPECT_EQ(got(real), row.isThere ? "0+" : "+");
      }
      EXPECT_TRUE(!row.isThere || everything.find(saved) != std::string::npos) << saved << " is not in " << everything;
      if (answer == "done") break;
      EXPECT_EQ(answer, "killed by signal 9");
      ASSERT_LT(deadly, 199) << "The change never came to its end.";
    }
    EXPECT_GT(left, 2) << row.description;
  }
}

struct LeftoverCase {
  const char* description;
  const char* text;
  enum { made, taken, unnumbered } form;
  bool isLocked;
  bool isElsewhere;
  std::size_t found;
};

TEST(FileLeftovers, onlyFilesOfDeadChangesCountAndThoseWhoseTextIsNowhereElseAreTold) {
  const LeftoverCase cases[] = {
      {"a new text that never was in place", "new", LeftoverCase::made, false, true, 1},
      {"a living change's new text", "new", LeftoverCase::made, true, true, 0},
      {"an empty file without a number", "", LeftoverCase::unnumbered, false, true, 1},
      {"a text that the file has, without a number", "present", LeftoverCase::unnumbered, false, true, 1},
      {"another text without a number", "another's", LeftoverCase::unnumbered, false, false, 1},
      {"the text that the file has", "present", LeftoverCase::taken, false, true, 1},
      {"a text that is in a copy", "kept", LeftoverCase::taken, false, true, 1},
      {"a text that is in a later copy", "kept too", LeftoverCase::taken, false, true, 1},
      {"a text that is nowhere else", "another's", LeftoverCase::taken, false, false, 1},
      {"a text that is in a file for everybody with a copy's name", "for everybody", LeftoverCase::taken, false, false,
       1},
  };
  for (const LeftoverCase& row : cases) {
    SCOPED_TRACE(row.description);
    const TemporaryFolder folder;
    const fs::path file = folder.path() / "f";
    put(file, "present");
    for (const auto& [name, text] :
         {std::pair("f.copy", "kept"), std::pair("f.copy-2", "for everybody"), std::pair("f.copy-3", "kept too")}) {
      put(folder.path() / name, text);
      ::chmod((folder.path() / name).c_str(), text == std::string("for everybody") ? 0644 : 0600);
    }
    TemporaryName name = TemporaryName::fresh("f");
    const fs::path first = folder.path() / name.text();
    put(first, row.text);
    struct stat status {};
    ASSERT_EQ(::stat(first.c_str(), &status), 0);
    if (row.form == LeftoverCase::made) name.inode = status.st_ino;
    if (row.form == LeftoverCase::taken) name = name.ofReplacedFile();
    const fs::path leftover = folder.path() / name.text();
    fs::rename(first, leftover);
    put(folder.path() / TemporaryName::fresh("g").text(), "another file's");
    put(folder.path() / ".kelvane-mine", "a person's");

    const Descriptor lock(::open(leftover.c_str(), O_RDONLY | O_CLOEXEC));
    if (row.isLocked) {
      ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    }
    FileCopies copies = copiesOf(file);
    const auto found = leftoversOf(copies);
    ASSERT_EQ(found.size(), row.found);
    if (row.found == 1) {
      EXPECT_EQ(found.front().file, leftover);
      EXPECT_EQ(found.front().isElsewhere, row.isElsewhere);
    }
    const std::size_t count = entries(folder.path());
    EXPECT_EQ(sweepLeftoversOf(copies).size(), row.isElsewhere ? 0U : 1U);
    const bool isGone = row.found == 1 && row.isElsewhere;
    EXPECT_EQ(fs::exists(leftover), !isGone);
    EXPECT_EQ(entries(folder.path()), count - (isGone ? 1 : 0));
  }
}

TEST(FileLeftovers, noneAreFoundWhileAChangeIsUnderWay) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  put(file, "present");
  put(folder.path() / TemporaryName::fresh("f").ofReplacedFile().text(), "present");
  const Descriptor turn(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::flock(turn.get(), LOCK_EX), 0);
  EXPECT_THAT(leftoversOf(copiesOf(file)), IsEmpty());
  EXPECT_THAT(sweepLeftoversOf(copiesOf(file)), IsEmpty());
  EXPECT_EQ(entries(folder.path()), 2U);
}

// Whatever call a change is about to make, somebody else clears away: nothing that it needs goes.
TEST(FileLeftovers, aRunningChangesFilesAreNotLeftovers) {
  for (const bool isThere : {true, false}) {
    const TemporaryFolder folder;
    const fs::path file = folder.path() / "f";
    if (isThere) put(file, "0");
    StagedCalls calls;
    int sweeps = 0;
    calls.beforeEach = [&] {
      ++sweeps;
      EXPECT_THAT(sweepLeftoversOf(copiesOf(file)), IsEmpty());
    };
    FileCopies copies = copiesOf(file, calls);
    EXPECT_TRUE(changeFile(copies, appending("+")));
    EXPECT_EQ(got(file), isThere ? "0+" : "+");
    EXPECT_EQ(entries(folder.path()), isThere ? 2U : 1U);
    EXPECT_GT(sweeps, 4);
  }
}

TEST(FileLeftovers, aChangeThatHasNothingToDoDeletesThem) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  put(file, "present");
  put(folder.path() / TemporaryName::fresh("f").ofReplacedFile().text(), "present");
  EXPECT_FALSE(changeFile(file, [](const auto&) { return std::nullopt; }));
  EXPECT_EQ(entries(folder.path()), 1U);
}

TEST(FileLeftovers, noneAreFoundInAFolderThatCannotBeRead) {
  const TemporaryFolder folder;
  EXPECT_THAT(leftoversOf(copiesOf(folder.path() / "none/f")), IsEmpty());
  put(folder.path() / "file", "");
  EXPECT_THAT(leftoversOf(copiesOf(folder.path() / "file/f")), IsEmpty());
  fs::create_symlink("loop", folder.path() / "loop");
  EXPECT_THAT(leftoversOf(copiesOf(folder.path() / "loop")), IsEmpty());
}

}  // namespace
}  // namespace quorvel::changes
