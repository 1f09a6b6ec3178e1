#include "quorvel/settings/MadeFolder.h"

#include "tests/quorvel/settings/StagedFiles.h"
#include "tests/support/ChildProcess.h"

namespace quorvel::changes {
namespace {

TEST(MadeFolder, aNewFolderAndThoseAboveItAreForTheirOwnerOnly) {
  const TemporaryFolder folder;
  const fs::path made = folder.path() / "a/b/c";
  tryMakingFolder(made);
  EXPECT_EQ(entries(folder.path()), 0U);
  makeFolder(made);
  for (const fs::path& path : {made, made.parent_path(), folder.path() / "a"}) EXPECT_EQ(mode(path), 0700U) << path;
  makeFolder(made);
  makeFolder(folder.path() / "a");
  tryMakingFolder(made);
  fs::create_directory_symlink("a", folder.path() / "l");
  makeFolder(folder.path() / "l/d");
  EXPECT_TRUE(fs::is_directory(folder.path() / "a/d"));
}

TEST(MadeFolder, aRelativePathIsBelowTheCurrentFolder) {
  const TemporaryFolder folder;
  EXPECT_EQ(kelvane::tests::inChild([&]() -> std::string {
              fs::current_path(folder.path());
              tryMakingFolder("a/b");
              makeFolder("a/b");
              makeFolder("");
              return "done";
            }),
            "done");
  EXPECT_TRUE(fs::is_directory(folder.path() / "a/b"));
}

// In either way, and the trial makes nothing.
TEST(MadeFolder, aFolderThatCannotBeMadeIsRefusedForTheTrueReason) {
  const TemporaryFolder folder;
  const fs::path& at = folder.path();
  put(at / "file", "");
  fs::create_symlink("nowhere", at / "dangling");
  fs::create_symlink("loop", at / "loop");
  fs::create_directory(at / "closed");
  ::chmod((at / "closed").c_str(), 0555);
  ::chmod(at.c_str(), 0755);
  const struct {
    const char* description;
    const char* made;
    const char* named;
    std::string because;
  } cases[] = {
      {"a file has its name", "file", "file",
       "something that is not a folder has its name. Move it away and try again."},
      {"a file above it", "file/a", "file/a",
       "\"" + (at / "file").native() + "\" is not a folder. Move it away and try again."},
      {"a file far above it", "file/a/b/c", "file/a/b/c",
       "\"" + (at / "file").native() + "\" is not a folder. Move it away and try again."},
      {"a dangling link above it", "dangling/a", "dangling/a",
       "\"" + (at / "dangling").native() + "\" is not a folder. Move it away and try again."},
      {"a circle of links", "loop", "loop", "something that is not a folder has its name. Move it away and try again."},
      {"a folder to be read only", "closed/a/b", "closed/a",
       "the system does not permit it. Check who may read and write there."},
  };
  for (const auto& row : cases) {
    for (const auto make : {makeFolder, tryMakingFolder}) {
      const std::string answer = kelvane::tests::inChild([&] {
        kelvane::tests::becomeNobody();
        return errorOf([&] { make(at / row.made); });
      });
      EXPECT_EQ(answer, "The folder \"" + (at / row.named).native() + "\" could not be made, because " + row.because)
          << row.description;
    }
  }
  EXPECT_EQ(entries(at), 4U);
  EXPECT_EQ(entries(at / "closed"), 0U);
}

}  // namespace
}  // namespace quorvel::changes
