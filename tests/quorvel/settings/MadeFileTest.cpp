#include "tests/quorvel/settings/StagedFiles.h"
#include "tests/support/ChildProcess.h"

namespace quorvel::changes {
namespace {

TEST(MadeFile, isMadeOnlyWhereThereIsNone) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "f";
  EXPECT_TRUE(makeFile(file, "copy"));
  EXPECT_EQ(got(file), "copy");
  EXPECT_EQ(mode(file), 0600U);
  EXPECT_FALSE(makeFile(file, "other"));
  EXPECT_EQ(got(file), "copy");
  fs::create_symlink("nowhere", folder.path() / "link");
  EXPECT_FALSE(makeFile(folder.path() / "link", "other"));
  StagedCalls calls;
  calls.failingWrite = ENOSPC;
  EXPECT_EQ(errorOf([&] { makeFile(folder.path() / "g", "text", calls); }),
            '"' + (folder.path() / "g").native() +
                "\" could not be written, because the disk is full. Free some space and try again.");
  for (const int failing : {1, 2}) {
    StagedCalls failingCalls;
    failingCalls.failingFlush = failing;
    EXPECT_EQ(errorOf([&] { makeFile(folder.path() / "g", "text", failingCalls); }),
              '"' + (folder.path() / "g").native() +
                  "\" could not be written, because the disk reports an error. Check the disk.");
  }
  EXPECT_FALSE(fs::exists(folder.path() / "g"));
}

struct PlaceCase {
  const char* description;
  void (*prepare)(const fs::path& file);
};

TEST(MadeFile, thatIsPrivateTakesThePlaceOfWhateverHasTheName) {
  const PlaceCase cases[] = {
      {"nothing", [](const fs::path&) {}},
      {"a file for everybody",
       [](const fs::path& file) {
         put(file, "an older and longer text");
         ::chmod(file.c_str(), 0666);
       }},
      {"a file to be read only",
       [](const fs::path& file) {
         put(file, "old");
         ::chmod(file.c_str(), 0444);
       }},
      {"a link to another's file", [](const fs::path& file) { fs::create_symlink("victim", file); }},
      {"a dangling link", [](const fs::path& file) { fs::create_symlink("nowhere", file); }},
      {"a link to itself", [](const fs::path& file) { fs::create_symlink(file.filename(), file); }},
      {"another's file by a second name",
       [](const fs::path& file) { fs::create_hard_link(file.parent_path() / "victim", file); }},
      {"a pipe", [](const fs::path& file) { ASSERT_EQ(::mkfifo(file.c_str(), 0666), 0); }},
  };
  for (const PlaceCase& row : cases) {
    SCOPED_TRACE(row.description);
    const TemporaryFolder folder;
    const fs::path file = folder.path() / "f";
    put(folder.path() / "victim", "another's");
    row.prepare(file);
    const std::string binary("new\0\xFF\r\n", 7);
    StagedCalls shortWrites;
    putPrivateFile(file, binary, shortWrites);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(file)));
    EXPECT_EQ(got(file), binary);
    EXPECT_EQ(mode(file), 0600U);
    EXPECT_EQ(shortWrites.flushes, 2);  // the file and the folder
    EXPECT_EQ(got(folder.path() / "victim"), "another's");
    EXPECT_EQ(entries(folder.path()), 2U);
  }
}

TEST(MadeFile, thatCannotBePutLeavesWhatHasTheName) {
  const struct {
    const char* description;
    void (*stage)(StagedCalls& calls);
    const char* because;
  } cases[] = {
      {"a full disk", [](StagedCalls& calls) { calls.failingWrite = ENOSPC; },
       "the disk is full. Free some space and try again."},
      {"a quota", [](StagedCalls& calls) { calls.failingWrite = EDQUOT; },
       "the disk quota is used up. Free some space and try again."},
      {"a file that is not flushed", [](StagedCalls& calls) { calls.failingFlush = 1; },
       "the disk reports an error. Check the disk."},
      {"no renaming", [](StagedCalls& calls) { calls.hasRename = false; },
       "the disk reports an error. Check the disk."},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.description);
    const TemporaryFolder folder;
    const fs::path file = folder.path() / "f";
    put(file, "old");
    StagedCalls calls;
    row.stage(calls);
    EXPECT_EQ(errorOf([&] { putPrivateFile(file, "new", calls); }),
              '"' + file.native() + "\" could not be written, because " + row.because);
    EXPECT_EQ(got(file), "old");
    EXPECT_EQ(entries(folder.path()), 1U);
  }
  const TemporaryFolder folder;
  const fs::path nowhere = folder.path() / "nowhere/f";
  EXPECT_EQ(errorOf([&] { putPrivateFile(nowhere, "new"); }),
            '"' + nowhere.native() + "\" could not be written, because there is no such folder.");
  fs::create_directory(folder.path() / "f");
  EXPECT_EQ(errorOf([&] { putPrivateFile(folder.path() / "f", "new"); }),
            '"' + (folder.path() / "f").native() +
                "\" could not be written, because a folder has its name. Move it away and try again.");
  EXPECT_EQ(entries(folder.path()), 1U);

  StagedCalls calls;
  calls.failingFlush = 2;
  EXPECT_EQ(errorOf([&] { putPrivateFile(folder.path() / "g", "new", calls); }),
            '"' + (folder.path() / "g").native() +
                "\" could not be written, because the disk reports an error. Check the disk.");
  EXPECT_EQ(got(folder.path() / "g"), "new");
}

TEST(MadeFile, thatIsPrivateMayBeInTheCurrentFolder) {
  const TemporaryFolder folder;
  EXPECT_EQ(kelvane::tests::inChild([&]() -> std::string {
              fs::current_path(folder.path());
              putPrivateFile("f", "new");
              return got("f");
            }),
            "new");
  EXPECT_EQ(entries(folder.path()), 1U);
}

}  // namespace
}  // namespace quorvel::changes
