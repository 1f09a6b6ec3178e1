#include "quorvel/files/TemporaryFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/FailingSystemCalls.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace quorvel {
namespace {

namespace fs = std::filesystem;

class TemporaryFiles : public ::testing::Test {
 protected:
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_.path())) names.push_back(entry.path().filename());
    return names;
  }
  void put(const std::string& name, const std::string& text) const {
    kelvane::tests::writeFile(folder_.path() / name, text);
  }
  std::string got(const std::string& name) const { return kelvane::tests::bytesOf(folder_.path() / name); }
  static int errorOf(const std::function<void()>& body) {
    try {
      body();
    } catch (const std::system_error& error) {
      return error.code().value();
    }
    return 0;
  }
  std::unique_ptr<TemporaryFile> made() const { return TemporaryFile::make(calls_, opened_.get(), "f"); }

  const kelvane::tests::TemporaryFolder folder_;
  const Descriptor opened_ = Descriptor(::open(folder_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const SystemCalls& calls_ = SystemCalls::ofTheSystem();
};

TEST_F(TemporaryFiles, areForTheirOwnerOnlyAndSayThatTheyNeverWereInPlace) {
  const auto file = made();
  file->write("text");
  file->flush();
  struct stat status {};
  ASSERT_EQ(::fstat(file->file(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  const auto parts = TemporaryName::parse(file->name());
  ASSERT_TRUE(parts);
  EXPECT_EQ(parts->script, TemporaryName::hash("f"));
  EXPECT_EQ(parts->inode, status.st_ino);
  file->markReplaced();
  EXPECT_EQ(TemporaryName::parse(file->name()), parts->ofReplacedFile());
  EXPECT_EQ(names(), std::vector<std::string>{file->name()});
}

TEST_F(TemporaryFiles, areLockedForAsLongAsTheirWriterLives) {
  auto file = made();
  file->leave();
  const std::string name = file->name();
  const Descriptor other(::open((folder_.path() / name).c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(::flock(other.get(), LOCK_SH | LOCK_NB), -1);
  file->write("text");
  EXPECT_EQ(::flock(other.get(), LOCK_SH | LOCK_NB), -1);
  file.reset();
  EXPECT_EQ(::flock(other.get(), LOCK_SH | LOCK_NB), 0);
  EXPECT_EQ(got(name), "text");
}

struct EndCase {
  const char* description;
  void (*use)(TemporaryFile& file);
  bool isLeft;  // under its hidden name
  std::vector<std::string> others;
};

TEST_F(TemporaryFiles, goAtTheEndUnlessTheyHaveAnotherNameOrAreLeft) {
  const EndCase cases[] = {
      {"nothing", [](TemporaryFile&) {}, false, {}},
      {"a text", [](TemporaryFile& file) { file.write("text"); }, false, {}},
      {"marked", [](TemporaryFile& file) { file.markReplaced(); }, false, {}},
      {"left", [](TemporaryFile& file) { file.leave(); }, true, {}},
      {"left and removed", [](TemporaryFile& file) { file.leave(), file.remove(); }, false, {}},
      {"renamed", [](TemporaryFile& file) { file.renameTo("g"); }, false, {"g"}},
      {"a free name", [](TemporaryFile& file) { EXPECT_TRUE(file.takeFreeName("g")); }, false, {"g"}},
  };
  for (const EndCase& row : cases) {
    auto file = made();
    row.use(*file);
    std::vector<std::string> expected = row.others;
    if (row.isLeft) expected.push_back(file->name());
    file.reset();
    EXPECT_EQ(names(), expected) << row.description;
    for (const std::string& name : names()) fs::remove(folder_.path() / name);
  }
}

TEST_F(TemporaryFiles, leaveWhatAnotherProgramPutUnderTheirNames) {
  auto file = made();
  const std::string name = file->name();
  put("own", "another's");
  fs::rename(folder_.path() / "own", folder_.path() / name);
  EXPECT_EQ(errorOf([&] { file->write("text"); }), EBUSY);
  file.reset();
  EXPECT_EQ(got(name), "another's");

  put("g", "taken");
  file = made();
  EXPECT_FALSE(file->takeFreeName("g"));
  EXPECT_EQ(got("g"), "taken");
}

TEST_F(TemporaryFiles, areNotTakenForAnotherProgramsWhenTheDiskDoesNotTell) {
  const auto file = made();
  const auto kinds = kelvane::tests::kindsOfCalls();
  const auto status = std::find_if(kinds.begin(), kinds.end(), [](const auto& kind) { return kind.name == "status"; });
  if (status == kinds.end()) GTEST_SKIP() << "the system does not let calls fail";
  EXPECT_EQ(kelvane::tests::inChild([&]() -> std::string {
              if (!kelvane::tests::FailingSystemCalls::begin(*status, 1, EIO)) return std::to_string(EIO);
              return std::to_string(errorOf([&] { file->write("text"); }));
            }),
            std::to_string(EIO));
}

// What such disks answer to a call that they make, or make nothing of.
class LyingDisk : public SystemCalls {
 public:
  long write(int, const void*, std::size_t) const noexcept override { return 0; }
  int rename(int folder, const char* from, const char* to) const noexcept override {
    const bool isFirst = std::exchange(isFirst_, false);
    return SystemCalls::rename(folder, from, to) == 0 && isFirst ? 0 : (errno = EIO, -1);
  }

 private:
  mutable bool isFirst_ = true;  // which is that of the making
};

TEST_F(TemporaryFiles, areNotWrittenByADiskThatTakesNoByte) {
  const LyingDisk disk;
  const auto file = TemporaryFile::make(disk, opened_.get(), "f");
  EXPECT_EQ(errorOf([&] { file->write("text"); }), EIO);
}

TEST_F(TemporaryFiles, areRenamedThoughTheDiskDeniesIt) {
  const LyingDisk disk;
  put("g", "old");
  const auto file = TemporaryFile::make(disk, opened_.get(), "f");
  file->renameTo("g");
  EXPECT_EQ(names(), std::vector<std::string>{"g"});
  EXPECT_EQ(got("g"), "");
}

TEST_F(TemporaryFiles, areTriedWithoutATrace) {
  const auto changed = [&] {
    struct stat status {};
    ::fstat(opened_.get(), &status);
    return std::pair(status.st_ctim.tv_sec, status.st_ctim.tv_nsec);
  };
  const auto before = changed();
  EXPECT_TRUE(tryMakingFile(SystemCalls::ofTheSystem(), opened_.get()));
  EXPECT_EQ(changed(), before);
  EXPECT_TRUE(names().empty());
  ::chmod(folder_.path().c_str(), 0555);
  EXPECT_EQ(kelvane::tests::inChild([&]() -> std::string {
              kelvane::tests::becomeNobody();
              return std::to_string(tryMakingFile(SystemCalls::ofTheSystem(), opened_.get()).error().value());
            }),
            std::to_string(EACCES));
  ::chmod(folder_.path().c_str(), 0755);
}

}  // namespace
}  // namespace quorvel
