#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "quorvel/library/LockLibrary.h"
#include "tests/quorvel/library/LibraryHouse.h"
#include "tests/support/ChildProcess.h"

namespace quorvel {
namespace {

using kelvane::tests::becomeNobody;
using kelvane::tests::ChildProcess;
using kelvane::tests::dieAtOnce;
using kelvane::tests::inChild;
using ::testing::HasSubstr;

class Lock : public LibraryHouse {
 protected:
  std::string locking() {
    return sentenceOf([&] { library.lock(); });
  }
  // Returns once another thread waits for the lock: it has the one on the folder meanwhile.
  void awaitAnother() const {
    const Descriptor own(::open((root / ".kelvane").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    while (::flock(own.get(), LOCK_SH | LOCK_NB) == 0) {
      ::flock(own.get(), LOCK_UN);
      std::this_thread::yield();
    }
    EXPECT_EQ(errno, EWOULDBLOCK);
  }
  const std::string busy =
      "The library is busy: another program has been writing to it for 0 seconds. Nothing was changed; try again in a "
      "moment.";
};

// What a call kept it does not have to look up again; but what it kept may become that of another script.
TEST_F(Lock, remembersWhatWasKeptUntilTheHistoryChanges) {
  for (const bool isLocked : {false, true}) {
    const auto lock = isLocked ? library.lock() : nullptr;
    const std::string identifier = isLocked ? "Locked.md" : "Open.md";
    history->snapshot("text", root / identifier, "label");
    EXPECT_TRUE(history->hasVersionWith("text", identifier)) << isLocked;
    EXPECT_FALSE(history->hasVersionWith("another", identifier)) << isLocked;
    EXPECT_FALSE(history->hasVersionWith("text", "Another.md")) << isLocked;
    ASSERT_TRUE(history->setAside(identifier));
    EXPECT_FALSE(history->hasVersionWith("text", identifier)) << isLocked;
  }
}

TEST_F(Lock, isHeldByOneAtATime) {
  auto lock = library.lock();
  EXPECT_EQ(locking(), busy);
  EXPECT_EQ(inChild([&] { return locking(); }), busy);
  lock.reset();
  EXPECT_EQ(locking(), "(no failure)");
  EXPECT_EQ(inChild([&] { return locking(); }), "(no failure)");
}

TEST_F(Lock, isHeldByAnotherThreadOnceItIsReleased) {
  FolderLibrary patient(root, history);
  std::atomic<bool> letGo = false;
  auto lock = library.lock();
  std::thread other([&] {
    patient.lock();
    EXPECT_TRUE(letGo);
  });
  awaitAnother();
  letGo = true;
  lock.reset();
  other.join();
}

TEST_F(Lock, isReleasedWhenTheProcessDies) {
  EXPECT_EQ(inChild([&]() -> std::string {
              const auto lock = library.lock();
              dieAtOnce();
            }),
            "killed by signal 9");
  EXPECT_EQ(locking(), "(no failure)");
}

TEST_F(Lock, isNotInheritedByOtherPrograms) {
  const auto lock = library.lock();
  const std::string open = inChild([&]() -> std::string {
    std::string found;
    for (int descriptor = 3; descriptor < 100; ++descriptor) {
      const int flags = ::fcntl(descriptor, F_GETFD);
      struct stat status;
      struct stat file;
      if (flags < 0 || ::fstat(descriptor, &status) != 0 || ::stat((root / ".kelvane/lock").c_str(), &file) != 0)
        continue;
      if (status.st_ino == file.st_ino) found += (flags & FD_CLOEXEC) != 0 ? "closed" : "inherited";
    }
    return found;
  });
  EXPECT_EQ(open, "closed");
}

TEST_F(Lock, isOnAFileThatStays) {
  { const auto lock = library.lock(); }
  struct stat first {};
  struct stat second {};
  ASSERT_EQ(::stat((root / ".kelvane/lock").c_str(), &first), 0);
  { const auto lock = library.lock(); }
  ASSERT_EQ(::stat((root / ".kelvane/lock").c_str(), &second), 0);
  EXPECT_EQ(first.st_ino, second.st_ino);
  EXPECT_EQ(first.st_mode & 07777, 0600U);
}

TEST_F(Lock, isOnTheFileThatOthersLockAfterItsFolderWasReplaced) {
  auto first = library.lock();
  std::filesystem::rename(root / ".kelvane", root / ".away");
  const auto second = library.lock();
  EXPECT_EQ(locking(), busy);
  first.reset();
  EXPECT_EQ(locking(), busy);
}

// A writer that waits for a file that is taken away meanwhile goes on to the new one.
TEST_F(Lock, isTakenAnewIfItsFileIsDeletedMeanwhile) {
  FolderLibrary patient(root, history);
  auto first = library.lock();
  std::atomic<bool> had = false;
  std::thread other([&] {
    const auto lock = patient.lock();
    had = true;
    EXPECT_EQ(inChild([&] { return locking(); }), busy);
  });
  awaitAnother();
  std::filesystem::remove(root / ".kelvane/lock");
  EXPECT_FALSE(had);
  first.reset();
  other.join();
}

TEST_F(Lock, isNeverOnALinkOrInALinkedFolder) {
  put("Elsewhere/lock", "");
  std::filesystem::create_directory_symlink("Elsewhere", root / ".kelvane");
  const std::string ownFolder =
      "The library could not be locked for writing, because a file or a link has the name \".kelvane\" in it, which is "
      "kept for the library's own folder. Move it away and try again.";
  EXPECT_EQ(locking(), ownFolder);
  std::filesystem::remove(root / ".kelvane");
  put(".kelvane", "a file");
  EXPECT_EQ(locking(), ownFolder);
  std::filesystem::remove(root / ".kelvane");
  std::filesystem::create_directory(root / ".kelvane");
  std::filesystem::create_symlink("../Elsewhere/lock", root / ".kelvane/lock");
  const std::string lockFile =
      "The library could not be locked for writing, because \".kelvane/lock\" in it is a link, a folder or the like "
      "and not a file. Move that away, and leave the rest of \".kelvane\", which has the history in it.";
  EXPECT_EQ(locking(), lockFile);
  std::filesystem::remove(root / ".kelvane/lock");
  std::filesystem::create_directory(root / ".kelvane/lock");
  EXPECT_EQ(locking(), lockFile);
  std::filesystem::remove(root / ".kelvane/lock");
  ASSERT_EQ(::mkfifo((root / ".kelvane/lock").c_str(), 0600), 0);
  EXPECT_NO_THROW(locking());
}

TEST_F(Lock, isRefusedWhereNothingMayBeMade) {
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  std::filesystem::permissions(root, std::filesystem::perms(0555));
  EXPECT_EQ(
      inChild([&] {
        becomeNobody();
        return locking();
      }),
      "The library could not be locked for writing, because the system does not permit it. Check who may read and "
      "write there.");
}

TEST_F(Lock, waitsTenSecondsUnlessToldOtherwise) {
  EXPECT_EQ(FolderLibrary::Options().patience, std::chrono::seconds(10));
}

TEST_F(Lock, keepsEachProcessesReadingAndWritingTogether) {
  put("Talk.md", "");
  constexpr int each = 40;
  std::vector<ChildProcess> writers;
  for (const char letter : {'a', 'b', 'c'}) {
    writers.emplace_back([&, letter]() -> std::string {
      FolderLibrary own(root, std::make_shared<History>(root));
      for (int count = 0; count < each; ++count) {
        const auto lock = own.lock();
        const std::string text = own.read(script("Talk.md"));
        own.write(text + letter, script("Talk.md"));
      }
      return "done";
    });
  }
  for (auto& writer : writers) EXPECT_EQ(writer.answer(), "done");
  const std::string text = bytesOf("Talk.md");
  int turns = 0;
  for (std::size_t at = 1; at < text.size(); ++at) turns += text[at] != text[at - 1];
  for (const char letter : {'a', 'b', 'c'}) EXPECT_EQ(std::count(text.begin(), text.end(), letter), each) << letter;
  std::cout << "the processes took turns " << turns << " times\n";
  EXPECT_GT(turns, 2) << "they never met";
}

}  // namespace
}  // namespace quorvel
