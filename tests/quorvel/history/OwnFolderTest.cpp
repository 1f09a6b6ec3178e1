#include "quorvel/history/OwnFolder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <system_error>

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace quorvel {
namespace {

class OwnFolder : public ::testing::Test {
 protected:
  static int errorOf(const std::function<void()>& attempt) {
    try {
      attempt();
    } catch (const std::system_error& error) {
      return error.code().value();
    }
    return 0;
  }

  static ino_t inode(const Descriptor& descriptor) {
    struct stat status {};
    return ::fstat(descriptor.get(), &status) == 0 ? status.st_ino : 0;
  }

  Descriptor opened(const std::filesystem::path& path) const {
    return Descriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  Descriptor opened() const { return opened(root); }

  const kelvane::tests::TemporaryFolder folder;
  const std::filesystem::path root = folder.path();
  const std::filesystem::path own = root / ".kelvane";
};

TEST_F(OwnFolder, isNotCreatedByOpening) {
  EXPECT_FALSE(openOwnFolder(opened()));
  EXPECT_TRUE(std::filesystem::is_empty(root));
}

TEST_F(OwnFolder, isCreatedPrivateAndOnce) {
  const Descriptor made = makeOwnFolder(opened());
  struct stat status {};
  ASSERT_EQ(::stat(own.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700U);
  EXPECT_EQ(inode(made), status.st_ino);
  EXPECT_EQ(inode(makeOwnFolder(opened())), status.st_ino);
  EXPECT_EQ(inode(openOwnFolder(opened())), status.st_ino);
}

TEST_F(OwnFolder, keepsItsPermissions) {
  std::filesystem::create_directory(own);
  std::filesystem::permissions(own, std::filesystem::perms(0755));
  makeOwnFolder(opened());
  EXPECT_EQ(std::filesystem::status(own).permissions(), std::filesystem::perms(0755));
}

TEST_F(OwnFolder, isNeverAFileOrALink) {
  const std::filesystem::path elsewhere = root / "elsewhere";
  std::filesystem::create_directory(elsewhere);
  const struct {
    const char* what;
    std::function<void()> done;
  } cases[] = {
      {"a file", [&] { std::ofstream(own) << "x"; }},
      {"a link to a folder", [&] { std::filesystem::create_directory_symlink(elsewhere, own); }},
      {"a dangling link", [&] { std::filesystem::create_directory_symlink(root / "nowhere", own); }},
      {"a link to itself", [&] { std::filesystem::create_directory_symlink(own, own); }},
  };
  for (const auto& [what, done] : cases) {
    done();
    EXPECT_EQ(errorOf([&] { openOwnFolder(opened()); }), ENOTDIR) << what;
    EXPECT_EQ(errorOf([&] { makeOwnFolder(opened()); }), ENOTDIR) << what;
    std::filesystem::remove(own);
  }
  EXPECT_TRUE(std::filesystem::is_empty(elsewhere));
}

TEST_F(OwnFolder, isNotCreatedWithoutARootOrPermission) {
  std::filesystem::create_directory(root / "gone");
  const Descriptor gone = opened(root / "gone");
  std::filesystem::remove(root / "gone");
  EXPECT_EQ(errorOf([&] { makeOwnFolder(gone); }), ENOENT);
  std::filesystem::permissions(root, std::filesystem::perms(0555));
  EXPECT_EQ(kelvane::tests::inChild([&] {
              kelvane::tests::becomeNobody();
              return std::to_string(errorOf([&] { makeOwnFolder(opened()); }));
            }),
            std::to_string(EACCES));
  std::filesystem::permissions(root, std::filesystem::perms(0700));
}

}  // namespace
}  // namespace quorvel
