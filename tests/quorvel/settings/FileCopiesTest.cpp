#include <unistd.h>

#include "tests/quorvel/SystemAbilities.h"
#include "tests/quorvel/settings/StagedFiles.h"
#include "tests/support/ChildProcess.h"

namespace quorvel::changes {
namespace {

FileEdit to(const std::string& text) {
  return [text](const auto&) { return std::optional(text); };
}

TEST(FileCopies, eachReplacedTextIsSavedInACopy) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  FileCopies copies = copiesOf(file);
  const struct {
    const char* description;
    const char* text;
    const char* copy;  // of the text before
  } cases[] = {
      {"there is no text before in a file that is not there", "1", ""},
      {"the first copy", "2", "f.copy"},
      {"another text gets another name", "3", "f.copy-2"},
      {"and another", "1", "f.copy-3"},
      {"a text that is in a copy needs no other", "2", "f.copy"},
      {"nor does this one", "", "f.copy-2"},
      {"an empty text is a text", "1", "f.copy-4"},
  };
  std::string before;
  for (const auto& row : cases) {
    SCOPED_TRACE(row.description);
    const bool isMade = *row.copy != '\0' && !fs::exists(folder.path() / row.copy);
    const std::size_t count = entries(folder.path());
    EXPECT_TRUE(changeFile(copies, to(row.text)));
    EXPECT_EQ(got(file), row.text);
    EXPECT_EQ(copies.last(), *row.copy == '\0' ? std::nullopt : std::optional(folder.path() / row.copy));
    if (copies.last()) {
      EXPECT_EQ(got(*copies.last()), before);
      EXPECT_EQ(mode(*copies.last()), 0600U);
    }
    EXPECT_EQ(entries(folder.path()), count + (isMade || count == 0 ? 1 : 0));
    before = row.text;
  }
  EXPECT_FALSE(changeFile(copies, to("1")));
  EXPECT_EQ(entries(folder.path()), 5U);
}

TEST(FileCopies, onlyWantedTextsAreSaved) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  put(file, "unwanted");
  FileCopies copies(file, ".copy", [](const std::string& text) { return text == "wanted"; });
  EXPECT_TRUE(changeFile(copies, to("wanted")));
  EXPECT_EQ(copies.last(), std::nullopt);
  EXPECT_TRUE(changeFile(copies, to("new")));
  EXPECT_EQ(copies.last(), file.native() + ".copy");
  EXPECT_TRUE(changeFile(copies, to("newer")));
  EXPECT_EQ(copies.last(), std::nullopt);
  EXPECT_EQ(entries(folder.path()), 2U);
}

struct TakenCase {
  const char* description;
  void (*prepare)(const fs::path& name);
};

TEST(FileCopies, aFileThatHasACopysNameIsLeft) {
  const TakenCase cases[] = {
      {"another text", [](const fs::path& name) { put(name, "mine"); }},
      {"the same text for everybody to read",
       [](const fs::path& name) { put(name, "old"), ::chmod(name.c_str(), 0644); }},
      {"a link to the same text", [](const fs::path& name) { fs::create_symlink("private", name); }},
      {"a dangling link", [](const fs::path& name) { fs::create_symlink("nowhere", name); }},
      {"a link to itself", [](const fs::path& name) { fs::create_symlink(name.filename(), name); }},
      {"a folder", [](const fs::path& name) { fs::create_directory(name); }},
      {"a pipe", [](const fs::path& name) { ASSERT_EQ(::mkfifo(name.c_str(), 0600), 0); }},
  };
  for (const TakenCase& row : cases) {
    SCOPED_TRACE(row.description);
    const TemporaryFolder folder;
    const fs::path file = folder.path() / "f";
    const fs::path name = folder.path() / "f.copy";
    put(file, "old");
    put(folder.path() / "private", "old");
    ::chmod((folder.path() / "private").c_str(), 0600);
    row.prepare(name);
    struct stat before {};
    ASSERT_EQ(::lstat(name.c_str(), &before), 0);
    FileCopies copies = copiesOf(file);
    EXPECT_TRUE(changeFile(copies, to("new")));
    EXPECT_EQ(copies.last(), name.native() + "-2");
    EXPECT_EQ(got(*copies.last()), "old");
    EXPECT_EQ(mode(*copies.last()), 0600U);
    struct stat after {};
    ASSERT_EQ(::lstat(name.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_mode, after.st_mode);
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
    EXPECT_FALSE(fs::exists(folder.path() / "nowhere"));
  }
}

// The file's name may be as long as the system allows. No copy's name may be longer then, whichever number it has.
TEST(FileCopies, aNameThatIsTooLongForTheSystemIsRefusedForThatReason) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / std::string(255 - 4, 'x');
  put(file, "old");
  FileCopies copies = copiesOf(file);
  const std::string sentence =
      "\"" + file.native() +
      ".copy\" could not be written, because its path is too long for the system. Use shorter names or fewer nested "
      "folders.";
  EXPECT_EQ(errorOf([&] { copies.trySaving("old"); }), sentence);
  EXPECT_EQ(errorOf([&] { changeFile(copies, to("new")); }), sentence);
  EXPECT_FALSE(copies.hold("old"));
  EXPECT_EQ(got(file), "old");
  EXPECT_EQ(entries(folder.path()), 1U);
}

struct FailureCase {
  const char* description;
  std::function<void(StagedCalls&, const fs::path&)> stage;
  bool isRefusedByTheEdit = false;
  bool isSeenBySwapping = false;
};

TEST(FileCopies, aChangeThatFailsLeavesNoCopy) {
  const FailureCase cases[] = {
      {"a refused edit", [](StagedCalls&, const fs::path&) {}, true},
      {"a full disk", [](StagedCalls& calls, const fs::path&) { calls.failingWrite = ENOSPC; }},
      {"files cannot be flushed", [](StagedCalls& calls, const fs::path&) { calls.failingFlushOfFiles = EIO; }},
      {"folders cannot be flushed", [](StagedCalls& calls, const fs::path&) { calls.failingFlushOfFolders = EIO; }},
      {"neither swapped nor renamed",
       [](StagedCalls& calls, const fs::path&) {
         calls.hasExchange = false;
         calls.beforeSwap = [&calls] { calls.hasRename = false; };
       }},
      {"another program never stops saving",
       [](StagedCalls& calls, const fs::path& file) {
         calls.beforeSwap = [&calls, file] {
           if (calls.swaps % 2 == 0) put(file, std::to_string(calls.swaps));
         };
       },
       false, true},
  };
  for (const FailureCase& row : cases) {
    if (row.isSeenBySwapping && !systemSwaps()) continue;
    SCOPED_TRACE(row.description);
    const TemporaryFolder folder;
    const fs::path file = folder.path() / "f";
    put(file, "old");
    StagedCalls calls;
    row.stage(calls, file);
    FileCopies copies = copiesOf(file, calls);
    const auto edit = [&](const auto&) -> std::optional<std::string> {
      if (row.isRefusedByTheEdit) throw FileError("refused");
      return "new";
    };
    EXPECT_NE(errorOf([&] { changeFile(copies, edit); }), "(no failure)");
    EXPECT_NE(got(file), "new");
    EXPECT_EQ(copies.last(), std::nullopt);
    EXPECT_EQ(entries(folder.path()), 1U);
  }
}

TEST(FileCopies, aChangeThatStartsOverMakesOneCopy) {
  for (const bool hasExchange : {true, false}) {
    const TemporaryFolder folder;
    const fs::path file = folder.path() / "f";
    put(file, "0");
    StagedCalls calls;
    calls.hasExchange = hasExchange;
    int edits = 0;
    int saves = 0;
    calls.beforeSwap = [&] {
      if (edits > saves && saves < 3) put(file, std::to_string(++saves));
    };
    FileCopies copies = copiesOf(file, calls);
    EXPECT_TRUE(changeFile(copies, [&](const auto& text) { return ++edits, std::optional(*text + " edited"); }));
    EXPECT_EQ(got(file), "3 edited");
    EXPECT_EQ(copies.last(), file.native() + ".copy");
    EXPECT_EQ(got(*copies.last()), "3");
    EXPECT_EQ(entries(folder.path()), 2U);
  }
}

TEST(FileCopies, aDiskThatCannotRenameToAFreeNameStillGetsCopies) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  put(file, "old");
  put(folder.path() / "f.copy", "mine");
  StagedCalls calls;
  calls.hasFreeRename = false;
  FileCopies copies = copiesOf(file, calls);
  EXPECT_TRUE(changeFile(copies, to("new")));
  EXPECT_EQ(got(folder.path() / "f.copy"), "mine");
  EXPECT_EQ(got(folder.path() / "f.copy-2"), "old");
  EXPECT_EQ(entries(folder.path()), 3U);
}

TEST(FileCopies, aCopyIsBesideTheLinkAndNotBesideItsTarget) {
  const TemporaryFolder folder;
  fs::create_directory(folder.path() / "real");
  put(folder.path() / "real/f", "old");
  fs::create_symlink("real/f", folder.path() / "l");
  FileCopies copies = copiesOf(folder.path() / "l");
  EXPECT_TRUE(changeFile(copies, to("new")));
  EXPECT_EQ(got(folder.path() / "l.copy"), "old");
  EXPECT_EQ(entries(folder.path() / "real"), 1U);
}

TEST(FileCopies, aFileInTheCurrentFolderIsCopiedThere) {
  const TemporaryFolder folder;
  EXPECT_EQ(kelvane::tests::inChild([&]() -> std::string {
              fs::current_path(folder.path());
              put("f", "old");
              FileCopies copies = copiesOf("f");
              changeFile(copies, to("new"));
              return copies.last()->native() + " " + got("f.copy");
            }),
            "f.copy old");
  EXPECT_EQ(entries(folder.path()), 2U);
}

// A program that never heard of the others may take the name between the look and the naming.
TEST(FileCopies, aNameThatAnotherProgramUsesMeanwhileIsSkipped) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  put(file, "old");
  StagedCalls calls;
  calls.beforeSwap = [&] {
    if (!fs::exists(folder.path() / "f.copy")) put(folder.path() / "f.copy", "mine");
  };
  FileCopies copies = copiesOf(file, calls);
  EXPECT_TRUE(changeFile(copies, to("new")));
  EXPECT_EQ(got(folder.path() / "f.copy"), "mine");
  EXPECT_EQ(got(folder.path() / "f.copy-2"), "old");
}

TEST(FileCopies, aDiskThatTakesEachFreeNameEndsTheChange) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  put(file, "old");
  StagedCalls calls;
  calls.saysThatNamesAreTaken = true;
  FileCopies copies = copiesOf(file, calls);
  EXPECT_EQ(errorOf([&] { changeFile(copies, to("new")); }),
            '"' + file.native() +
                ".copy\" could not be written, because each name that was free was taken when it was to be used. Check "
                "the disk and try again.");
  EXPECT_EQ(got(file), "old");
  EXPECT_EQ(copies.last(), std::nullopt);
  EXPECT_EQ(entries(folder.path()), 1U);
}

// Each process adds one line at a time; every text that was the file's is in a copy, but the last one.
TEST(FileCopies, manyProcessesLoseNoText) {
  const TemporaryFolder folder(kelvane::tests::folderInMemory());
  const fs::path file = folder.path() / "f";
  constexpr int each = 20;
  constexpr int processes = 3;
  std::vector<kelvane::tests::ChildProcess> children;
  children.reserve(processes);
  for (int child = 0; child < processes; ++child) {
    children.emplace_back([&, child]() -> std::string {
      FileCopies copies = copiesOf(file);
      int done = 0;
      while (done < each) {
        const std::string line = std::to_string(child) + ":" + std::to_string(done) + "\n";
        const auto append = [&](const auto& text) { return std::optional(text.value_or("") + line); };
        done += errorOf([&] { changeFile(copies, append); }) == "(no failure)" ? 1 : 0;
      }
      return std::to_string(done);
    });
  }
  for (auto& child : children) EXPECT_EQ(child.answer(), std::to_string(each));
  const std::string text = got(file);
  ASSERT_EQ(std::count(text.begin(), text.end(), '\n'), each * processes);
  const FileCopies copies = copiesOf(file);
  for (std::size_t end = text.find('\n'); end + 1 < text.size(); end = text.find('\n', end + 1)) {
    EXPECT_TRUE(copies.hold(text.substr(0, end + 1))) << text.substr(0, end + 1);
  }
  EXPECT_EQ(entries(folder.path()), static_cast<std::size_t>(each * processes));
}

}  // namespace
}  // namespace quorvel::changes
