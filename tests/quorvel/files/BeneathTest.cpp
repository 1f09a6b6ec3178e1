#include "quorvel/files/Beneath.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "quorvel/files/WholeFile.h"
#include "tests/quorvel/library/LibraryHouse.h"
#include "tests/support/ChildProcess.h"

namespace quorvel {
namespace {

// The two ways: the kernel's own, and piece by piece where that is missing.
class Beneath : public LibraryHouse, public ::testing::WithParamInterface<int> {
 protected:
  Beneath() {
    if (GetParam() != 0) calls.lack({"openBeneath"}, GetParam());
    put("Talk.md", "inside");
    put("Scenes/Deep/End.md", "deep inside");
    std::filesystem::create_directory(folder.path() / "Outside");
    std::ofstream(folder.path() / "Outside/secret.md") << "secret";
    std::filesystem::create_symlink("Talk.md", root / "link.md");
    std::filesystem::create_symlink("Scenes", root / "link");
    std::filesystem::create_symlink("../Outside", root / "out");
    std::filesystem::create_symlink("../Outside/secret.md", root / "out.md");
    std::filesystem::create_symlink(folder.path() / "Outside", root / "absolute");
    std::filesystem::create_symlink("loop", root / "loop");
    std::filesystem::create_symlink("nowhere", root / "dangling.md");
    rootFolder_ = Descriptor(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }

  // What is read there, or the name of the error.
  std::string opened(std::string_view identifier, int flags = O_RDONLY) const {
    const auto path = PathBeneath::of(identifier);
    if (!path) return "no path";
    const auto file = openBeneath(calls, rootFolder_.get(), *path, flags);
    if (!file) return ::strerrorname_np(file.error().value());
    return readToEnd(file->get()).value_or("a folder");
  }

  Descriptor rootFolder_;
};

TEST_P(Beneath, filesAndFoldersAreOpenedByTheirIdentifiers) {
  EXPECT_EQ(opened("Talk.md"), "inside");
  EXPECT_EQ(opened("Scenes/Deep/End.md"), "deep inside");
  EXPECT_EQ(opened("./Scenes//Deep/./End.md"), "deep inside");
  EXPECT_EQ(opened(""), "a folder");
  EXPECT_EQ(opened("."), "a folder");
  EXPECT_EQ(opened("Scenes/Deep"), "a folder");
  EXPECT_EQ(opened("Scenes/Deep/", O_RDONLY | O_DIRECTORY), "a folder");
}

TEST_P(Beneath, noLinkIsFollowedWhereverItStandsAndLeads) {
  for (const std::string_view identifier : {"link.md", "link/Deep/End.md", "out/secret.md", "out.md",
                                            "absolute/secret.md", "loop", "loop/Talk.md", "dangling.md"}) {
    EXPECT_THAT(opened(identifier), ::testing::AnyOf("ELOOP", "ENOTDIR")) << identifier;
  }
}

TEST_P(Beneath, whatIsNotThereSaysSo) {
  EXPECT_EQ(opened("Missing.md"), "ENOENT");
  EXPECT_EQ(opened("Missing/Talk.md"), "ENOENT");
  EXPECT_EQ(opened("Talk.md/Talk.md"), "ENOTDIR");
  EXPECT_EQ(opened(std::string(256, 'x')), "ENAMETOOLONG");
}

TEST_P(Beneath, thePathMayBeAsLongAsTheSystemTakesAndNoLonger) {
  std::string path;
  const Descriptor top(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  Descriptor at(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  while (path.size() < PATH_MAX + 200) {
    const std::string name(100, 'd');
    ASSERT_EQ(::mkdirat(at.get(), name.c_str(), 0777), 0);
    at = Descriptor(::openat(at.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    path += path.empty() ? name : '/' + name;
    EXPECT_EQ(opened(path), path.size() < PATH_MAX ? "a folder" : "ENAMETOOLONG") << path.size();
  }
}

TEST_P(Beneath, theDescriptorIsNotInherited) {
  const auto file = openBeneath(calls, rootFolder_.get(), *PathBeneath::of("Scenes/Deep/End.md"), O_RDONLY);
  ASSERT_TRUE(file);
  EXPECT_EQ(::fcntl(file->get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

INSTANTIATE_TEST_SUITE_P(Ways, Beneath, ::testing::Values(0, ENOSYS, EPERM, EINVAL, E2BIG, EAGAIN),
                         [](const auto& way) {
                           return way.param == 0 ? "kernel" : std::string("without") + ::strerrorname_np(way.param);
                         });

}  // namespace
}  // namespace quorvel
