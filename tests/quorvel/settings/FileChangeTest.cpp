#include <gmock/gmock.h>
#include <unistd.h>

#include <iostream>

#include "quorvel/files/SystemReason.h"
#include "tests/quorvel/SystemAbilities.h"
#include "tests/quorvel/settings/StagedFiles.h"
#include "tests/support/ChildProcess.h"

namespace quorvel::changes {
namespace {

FileEdit to(const std::string& text) {
  return [text](const auto&) { return std::optional(text); };
}

TEST(FileChange, replacesTheTextOfAFile) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  put(file, "old");
  const std::string binary("new\0\xFF\r\n", 7);
  std::optional<std::string> seen;
  EXPECT_TRUE(changeFile(file, [&](const auto& text) {
    seen = text;
    return std::optional(binary);
  }));
  EXPECT_EQ(seen, "old");
  EXPECT_EQ(got(file), binary);
  EXPECT_EQ(readFile(file), binary);
  EXPECT_EQ(entries(folder.path()), 1U);
}

TEST(FileChange, makesAFileForItsOwnerOnly) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  EXPECT_EQ(readFile(file), std::nullopt);
  EXPECT_TRUE(
      changeFile(file, [](const auto& text) { return text ? std::nullopt : std::optional<std::string>("new"); }));
  EXPECT_EQ(got(file), "new");
  EXPECT_EQ(mode(file), 0600U);
  EXPECT_EQ(entries(folder.path()), 1U);
}

TEST(FileChange, writesNothingWhenTheTextStaysAsItIs) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  EXPECT_FALSE(changeFile(file, [](const auto&) { return std::nullopt; }));
  EXPECT_FALSE(fs::exists(file));
  put(file, "old");
  struct stat before {};
  ::stat(file.c_str(), &before);
  EXPECT_FALSE(changeFile(file, to("old")));
  EXPECT_FALSE(changeFile(file, [](const auto&) { return std::nullopt; }));
  struct stat after {};
  ::stat(file.c_str(), &after);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(got(file), "old");
}

TEST(FileChange, keepsModeAndOwner) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  for (const mode_t wanted : {0600U, 0640U, 0644U, 0755U, 0666U}) {
    put(file, "old" + std::to_string(wanted));
    ASSERT_EQ(::chmod(file.c_str(), wanted), 0);
    if (::geteuid() == 0) {
      ASSERT_EQ(::chown(file.c_str(), 65534, 65533), 0);
    }
    EXPECT_TRUE(changeFile(file, to("new")));
    EXPECT_EQ(mode(file), wanted);
    struct stat status {};
    ::stat(file.c_str(), &status);
    if (::geteuid() == 0) {
      EXPECT_EQ(status.st_uid, 65534U);
      EXPECT_EQ(status.st_gid, 65533U);
    }
  }
}

struct LinkCase {
  const char* description;
  std::vector<std::pair<const char*, const char*>> links;  // from, to; "real/f" is the file
};

TEST(FileChange, followsLinksAndLeavesThemLinks) {
  const LinkCase cases[] = {
      {"a relative link", {{"l", "real/f"}}},
      {"two hops", {{"m", "real/f"}, {"l", "m"}}},
      {"a link to a folder on the way", {{"d", "real"}, {"l", "d/f"}}},
      {"a link from the target's folder", {{"real/g", "f"}, {"l", "real/g"}}},
      {"a link that climbs", {{"real/up", "../real/f"}, {"l", "real/up"}}},
  };
  for (const bool isThere : {true, false}) {
    for (const LinkCase& row : cases) {
      SCOPED_TRACE(std::string(row.description) + (isThere ? "" : ", dangling"));
      const TemporaryFolder folder;
      fs::create_directory(folder.path() / "real");
      if (isThere) put(folder.path() / "real/f", "old");
      for (const auto& [from, target] : row.links) fs::create_symlink(target, folder.path() / from);
      const fs::path link = folder.path() / "l";
      EXPECT_EQ(readFile(link), isThere ? std::optional<std::string>("old") : std::nullopt);
      EXPECT_TRUE(changeFile(link, to("new")));
      for (const auto& [from, target] : row.links) EXPECT_EQ(fs::read_symlink(folder.path() / from), target);
      EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder.path() / "real/f")));
      EXPECT_EQ(got(folder.path() / "real/f"), "new");
    }
  }
}

TEST(FileChange, refusesWhatIsNotAFile) {
  const TemporaryFolder folder;
  const fs::path& at = folder.path();
  fs::create_directory(at / "folder");
  ASSERT_EQ(::mkfifo((at / "pipe").c_str(), 0600), 0);
  fs::create_symlink("loop", at / "loop");
  fs::create_symlink("nowhere/f", at / "dangling");
  fs::create_symlink("f/g", at / "below a file");
  put(at / "f", "old");
  const struct {
    const char* name;
    std::string sentence;
  } cases[] = {
      {"folder", " is not a file. Move it away and try again."},
      {"pipe", " is not a file. Move it away and try again."},
      {"loop", " could not be written, because its links lead in a circle. Delete them and try again."},
      {"dangling", " could not be written, because its folder does not exist. Create the folder and try again."},
      {"nowhere/f", " could not be written, because its folder does not exist. Create the folder and try again."},
      {"f/f",
       " could not be written, because \"" + (at / "f").native() + "\" is not a folder. Move it away and try again."},
      {"f/g/h",
       " could not be written, because \"" + (at / "f").native() + "\" is not a folder. Move it away and try again."},
      {"below a file",
       " could not be written, because \"" + (at / "f").native() + "\" is not a folder. Move it away and try again."},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(errorOf([&] { changeFile(at / row.name, to("new")); }),
              '"' + (at / row.name).native() + '"' + row.sentence);
  }
  EXPECT_EQ(errorOf([&] { readFile(at / "folder"); }),
            '"' + (at / "folder").native() + "\" is not a file. Move it away and try again.");
  EXPECT_EQ(readFile(at / "dangling"), std::nullopt);
  EXPECT_EQ(entries(at), 6U);
}

TEST(FileChange, refusesFilesAndFoldersThatWeMayNotWrite) {
  const TemporaryFolder folder;
  ::chmod(folder.path().c_str(), 0777);
  const fs::path file = folder.path() / "f";
  const fs::path closed = folder.path() / "closed";
  fs::create_directory(closed);
  put(closed / "f", "old");
  ::chmod((closed / "f").c_str(), 0666);
  ::chmod(closed.c_str(), 0555);
  const std::string answer = kelvane::tests::inChild([&] {
    kelvane::tests::becomeNobody();
    put(file, "old");
    ::chmod(file.c_str(), 0444);
    return errorOf([&] { changeFile(file, to("new")); }) + "|" + errorOf([&] { changeFile(closed / "f", to("new")); }) +
           "|" + errorOf([&] { changeFile(closed / "g", to("new")); });
  });
  const std::string because =
      " could not be written, because the system does not permit it. Check who may read and write there.";
  EXPECT_EQ(answer, '"' + file.native() + '"' + because + "|\"" + (closed / "f").native() + '"' + because + "|\"" +
                        (closed / "g").native() + '"' + because);
  EXPECT_EQ(got(file), "old");
  EXPECT_EQ(got(closed / "f"), "old");
  ::chmod(closed.c_str(), 0755);
}

TEST(FileChange, refusesAFileThatWeMayNotRead) {
  const TemporaryFolder folder;
  ::chmod(folder.path().c_str(), 0755);
  const fs::path file = folder.path() / "f";
  put(file, "secret");
  ::chmod(file.c_str(), 0200);
  const std::string answer = kelvane::tests::inChild([&] {
    kelvane::tests::becomeNobody();
    return errorOf([&] { readFile(file); });
  });
  EXPECT_EQ(answer,
            '"' + file.native() +
                "\" could not be read, because the system does not permit it. Check who may read and write there.");
}

TEST(FileChange, leavesTheFileWhenItCannotBeWritten) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  const struct {
    int error;
    const char* because;
  } cases[] = {{ENOSPC, "the disk is full. Free some space and try again."},
               {EDQUOT, "the disk quota is used up. Free some space and try again."},
               {EIO, "the disk reports an error. Check the disk."}};
  for (const bool isThere : {false, true}) {
    if (isThere) put(file, "old");
    for (const auto& row : cases) {
      StagedCalls calls;
      calls.failingWrite = row.error;
      EXPECT_EQ(errorOf([&] { changeFile(file, to("new"), calls); }),
                '"' + file.native() + "\" could not be written, because " + row.because);
    }
    StagedCalls calls;
    calls.failingFlushOfFiles = EIO;
    EXPECT_EQ(errorOf([&] { changeFile(file, to("new"), calls); }),
              '"' + file.native() + "\" could not be written, because the disk reports an error. Check the disk.");
    EXPECT_EQ(got(file), isThere ? "old" : "no file");
    EXPECT_EQ(entries(folder.path()), isThere ? 1U : 0U);
  }
}

TEST(FileChange, saysThatAPowerFailureMayUndoTheChange) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  put(file, "old");
  StagedCalls calls;
  calls.failingFlushOfFolders = EIO;
  EXPECT_EQ(errorOf([&] { changeFile(file, to("new"), calls); }),
            "The new text of \"" + file.native() +
                "\" is in its place, but a power failure may undo that, because the disk reports an error. Check the "
                "disk.");
  EXPECT_EQ(got(file), "new");
  EXPECT_EQ(entries(folder.path()), 1U);
}

TEST(FileChange, worksWhereFoldersNeedNoFlushing) {
  const TemporaryFolder folder;
  StagedCalls calls;
  calls.failingFlushOfFolders = EINVAL;
  EXPECT_TRUE(changeFile(folder.path() / "f", to("new"), calls));
  EXPECT_TRUE(changeFile(folder.path() / "f", to("newer"), calls));
  EXPECT_EQ(got(folder.path() / "f"), "newer");

  StagedCalls file;
  file.failingFlushOfFiles = EINVAL;
  EXPECT_NE(errorOf([&] { changeFile(folder.path() / "f", to("newest"), file); }), "(no failure)");
}

TEST(FileChange, startsOverWhenAnotherProgramWritesAtTheSameMoment) {
  for (const bool hasExchange : {true, false}) {
    for (int times = 1; times <= 5; ++times) {
      SCOPED_TRACE(std::to_string(times) + (hasExchange ? " times" : " times, without the exchange"));
      const TemporaryFolder folder;
      const fs::path file = folder.path() / "f";
      put(file, "0");
      StagedCalls calls;
      calls.hasExchange = hasExchange;
      int writes = 0;
      int calledBack = 0;
      calls.beforeSwap = [&] {
        // Once a start, before the first swap; not when the files change back.
        if (calledBack > writes && writes < times) put(file, std::to_string(++writes));
      };
      const auto append = [&](const std::optional<std::string>& text) {
        ++calledBack;
        return std::optional(*text + " edited");
      };
      if (times <= 3) {
        EXPECT_TRUE(changeFile(file, append, calls));
        EXPECT_EQ(got(file), std::to_string(times) + " edited");
      } else {
        EXPECT_EQ(errorOf([&] { changeFile(file, append, calls); }),
                  '"' + file.native() + "\" was not changed, because another program keeps writing it. Close that " +
                      "program and try again.");
        EXPECT_EQ(got(file), "4");
      }
      EXPECT_EQ(calledBack, std::min(times, 3) + 1);
      EXPECT_EQ(entries(folder.path()), 1U);
    }
  }
}

TEST(FileChange, startsOverWhenTheFileComesOrGoesMeanwhile) {
  for (const bool hasCalls : {true, false}) {
    for (const bool isThere : {true, false}) {
      const TemporaryFolder folder;
      const fs::path file = folder.path() / "f";
      if (isThere) put(file, "old");
      StagedCalls calls;
      calls.hasExchange = calls.hasFreeRename = hasCalls;
      bool isFirst = true;
      calls.beforeSwap = [&] {
        if (!std::exchange(isFirst, false)) return;
        if (isThere) {
          fs::remove(file);
        } else {
          put(file, "another's");
        }
      };
      const auto edit = [](const std::optional<std::string>& text) {
        return std::optional(text.value_or("nothing") + " edited");
      };
      EXPECT_TRUE(changeFile(file, edit, calls));
      EXPECT_EQ(got(file), isThere ? "nothing edited" : "another's edited");
      EXPECT_EQ(entries(folder.path()), 1U);
    }
  }
}

TEST(FileChange, losesNothingWhenTheFilesCannotChangeBack) {
  if (!systemSwaps()) GTEST_SKIP() << noSwaps;
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  put(file, "old");
  StagedCalls calls;
  calls.beforeSwap = [&] {
    if (calls.swaps == 0) put(file, "another's");
    if (calls.swaps == 1) calls.hasExchange = false;
  };
  const std::string error = errorOf([&] { changeFile(file, to("new"), calls); });
  EXPECT_EQ(got(file), "new");
  ASSERT_EQ(entries(folder.path()), 2U);
  for (const auto& entry : fs::directory_iterator(folder.path())) {
    if (entry.path() == file) continue;
    EXPECT_EQ(got(entry.path()), "another's");
    EXPECT_EQ(error,
              because("It is not certain that the right text is in \"" + file.native() + '"', systemError(EINVAL)) +
                  " Then compare it with \"" + entry.path().native() + "\", and put the right one back.");
  }
}

TEST(FileChange, acceptsASwapThatTheDiskMadeButDenies) {
  if (!systemSwaps()) GTEST_SKIP() << noSwaps;
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  put(file, "old");
  StagedCalls calls;
  calls.deniesExchange = true;
  EXPECT_TRUE(changeFile(file, to("new"), calls));
  EXPECT_EQ(got(file), "new");
  EXPECT_EQ(entries(folder.path()), 1U);
}

// Another program saves before two calls of a change, or before all from the one to the other, for any two calls: by
// renaming a file of its own, or by writing into the file that is there. It may save once the new text is in place, so
// what it saved last is there in the end with the edit or without.
TEST(FileChange, leavesInPlaceWhatAnotherProgramSavedLastWheneverItSaves) {
  if (!systemSwaps()) GTEST_SKIP() << noSwaps;
  const TemporaryFolder folder(kelvane::tests::folderInMemory());
  const fs::path file = folder.path() / "f";
  int timesEdited = 0;
  int timesRefused = 0;
  const auto isReached = [&](int first, int second, bool isRow, bool isRenamed) {
    put(file, "0");
    StagedCalls calls;
    int made = 0;
    int saves = 0;
    bool wasInPlace = false;  // the new text, when the other program saved
    calls.beforeEach = [&] {
      ++made;
      if (made != first && made != second && !(isRow && made > first && made < second)) return;
      wasInPlace = wasInPlace || got(file).ends_with(" edited");
      const fs::path written = isRenamed ? folder.path() / "own" : file;
      put(written, std::to_string(++saves));
      if (isRenamed) fs::rename(written, file);
    };
    const auto append = [](const auto& text) { return std::optional(*text + " edited"); };
    const std::string said = errorOf([&] { changeFile(file, append, calls); });
    SCOPED_TRACE(said);
    const std::string last = std::to_string(saves);
    if (said == "(no failure)") {
      EXPECT_THAT(got(file), ::testing::AnyOf(last + " edited", wasInPlace ? last : last + " edited"));
      EXPECT_EQ(entries(folder.path()), 1U);
      timesEdited += got(file) != last;
    } else {
      EXPECT_TRUE(isRow) << "two saves are no reason to give up";
      bool isFound = got(file) == last;
      for (const auto& entry : fs::directory_iterator(folder.path())) {
        if (entry.path() == file) continue;
        isFound = isFound || got(entry.path()) == last;
        EXPECT_NE(said.find(entry.path().native()), std::string::npos);
        fs::remove(entry.path());
      }
      EXPECT_TRUE(isFound);
      ++timesRefused;
    }
    return made >= second;
  };
  for (const bool isRow : {false, true}) {
    for (const bool isRenamed : {true, false}) {
      const int longest = 60;  // a row of more saves meets no other call
      for (int first = 1; first <= longest && isReached(first, first, isRow, isRenamed); ++first) {
        for (int second = first + 1; second <= longest; ++second) {
          SCOPED_TRACE("calls " + std::to_string(first) + (isRow ? " to " : " and ") + std::to_string(second) +
                       (isRenamed ? ", renamed" : ", in place"));
          if (!isReached(first, second, isRow, isRenamed)) break;
        }
      }
    }
  }
  std::cout << timesEdited << " times edited, " << timesRefused << " times refused\n";
  EXPECT_GT(timesEdited, 20);
  EXPECT_GT(timesRefused, 0);
}

TEST(FileChange, namesTheFileWithTheTextOfAProgramThatNeverStopsSaving) {
  if (!systemSwaps()) GTEST_SKIP() << noSwaps;
  for (const bool isRenamed : {true, false}) {
    const TemporaryFolder folder;
    const fs::path file = folder.path() / "f";
    put(file, "old");
    StagedCalls calls;
    int saves = 0;
    calls.beforeSwap = [&] {
      const fs::path written = isRenamed ? folder.path() / "own" : file;
      put(written, std::to_string(++saves));
      if (isRenamed) fs::rename(written, file);
    };
    const std::string error = errorOf([&] { changeFile(file, to("new"), calls); });
    EXPECT_EQ(got(file), std::to_string(saves - 1));
    ASSERT_EQ(entries(folder.path()), 2U);
    for (const auto& entry : fs::directory_iterator(folder.path())) {
      if (entry.path() == file) continue;
      EXPECT_EQ(got(entry.path()), std::to_string(saves));
      EXPECT_EQ(error, "Another program wrote \"" + file.native() +
                           "\" at the same moment. What it wrote is now in \"" + entry.path().native() +
                           "\". Put it back from there.");
    }
  }
}

TEST(FileChange, passesOnWhatTheEditThrows) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  put(file, "old");
  EXPECT_THROW(changeFile(file, [](const auto&) -> std::optional<std::string> { throw std::logic_error("no"); }),
               std::logic_error);
  EXPECT_EQ(got(file), "old");
  EXPECT_EQ(entries(folder.path()), 1U);
}

// Each process adds one line at a time; a line is lost when a change overwrites another's.
TEST(FileChange, losesNoChangeOfManyProcesses) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  constexpr int each = 60;
  constexpr int processes = 3;
  std::vector<kelvane::tests::ChildProcess> children;
  children.reserve(processes);
  for (int child = 0; child < processes; ++child) {
    children.emplace_back([&, child]() -> std::string {
      int done = 0;
      while (done < each) {
        const std::string line = std::to_string(child) + ":" + std::to_string(done) + "\n";
        const auto append = [&](const auto& text) { return std::optional(text.value_or("") + line); };
        // Who is kept from it three times tries again, as a person would.
        done += errorOf([&] { changeFile(file, append); }) == "(no failure)" ? 1 : 0;
      }
      return std::to_string(done);
    });
  }
  for (auto& child : children) EXPECT_EQ(child.answer(), std::to_string(each));
  const std::string text = got(file);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), processes * each);
}

}  // namespace
}  // namespace quorvel::changes
