#include "quorvel/files/OpenedRoot.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <system_error>
#include <thread>

#include "quorvel/files/OpenedFolderPath.h"
#include "tests/support/TemporaryFolder.h"

namespace quorvel {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class OpenedRoots : public ::testing::Test {
 protected:
  OpenedRoots() { std::filesystem::create_directory(path); }

  void swap() const {
    std::filesystem::rename(path, away);
    std::filesystem::create_directory(path);
  }

  const kelvane::tests::TemporaryFolder folder;
  const std::filesystem::path path = folder.path() / "Library";
  const std::filesystem::path away = folder.path() / "Away";
};

TEST_F(OpenedRoots, isTheSameFolderForAsLongAsTheThreadHoldsIt) {
  auto held = OpenedRoot::find(path);
  swap();
  EXPECT_EQ(OpenedRoot::find(path), held);
  EXPECT_FALSE(held->isInPlace());
  EXPECT_EQ(identityOf(held->folder().get()), identityOf(AT_FDCWD, away));
  held.reset();
  EXPECT_TRUE(OpenedRoot::find(path)->isInPlace());
}

TEST_F(OpenedRoots, isOpenedAnewByAnotherThreadAndForAnotherPath) {
  const auto held = OpenedRoot::find(path);
  swap();
  std::thread([&] { EXPECT_TRUE(OpenedRoot::find(path)->isInPlace()); }).join();
  const auto other = OpenedRoot::find(away);
  EXPECT_NE(other, held);
  EXPECT_EQ(OpenedRoot::find(path), held);
  EXPECT_EQ(OpenedRoot::find(away), other);
}

TEST_F(OpenedRoots, throwsTheReasonWhereThereIsNone) {
  try {
    OpenedRoot::find(folder.path() / "none");
    FAIL() << "A folder was found.";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
  }
}

TEST_F(OpenedRoots, isInPlaceThroughALinkAsLongAsThatLeadsThere) {
  const auto link = folder.path() / "link";
  std::filesystem::create_directory_symlink(path, link);
  const auto held = OpenedRoot::find(link);
  EXPECT_TRUE(held->isInPlace());
  std::filesystem::remove(link);
  std::filesystem::create_directory_symlink(folder.path(), link);
  EXPECT_FALSE(held->isInPlace());
}

TEST_F(OpenedRoots, saysWhereItIsNow) {
  const auto held = OpenedRoot::find(path);
  swap();
  EXPECT_THAT(held->whyNotInPlace(), HasSubstr("and is now \"" + away.native() + "\"."));
  std::filesystem::remove(away);
  EXPECT_THAT(held->whyNotInPlace(), Not(HasSubstr("and is now")));
}

TEST_F(OpenedRoots, anOpenedFoldersPathLeadsToItWhereverItIs) {
  const auto held = OpenedRoot::find(path);
  swap();
  const std::string way = openedFolderPath(held->folder());
  EXPECT_TRUE(std::filesystem::equivalent(way, away));
}

}  // namespace
}  // namespace quorvel
