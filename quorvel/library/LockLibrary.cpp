#include "quorvel/library/LockLibrary.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "quorvel/files/FileIdentity.h"
#include "quorvel/files/LibraryError.h"
#include "quorvel/files/OpenedRoot.h"
#include "quorvel/files/SystemCalls.h"
#include "quorvel/history/HeldOwnFolder.h"
#include "quorvel/history/OwnFolder.h"
#include "quorvel/library/WritersNote.h"

namespace quorvel {
namespace {

using Clock = std::chrono::steady_clock;

class FileLock final : public LibraryLock {
 public:
  FileLock(std::shared_ptr<HeldOwnFolder> own, std::shared_ptr<WritersNote> note)
      : own_(std::move(own)), note_(std::move(note)) {}

 private:
  // For the operations of the call, with the opened root.
  std::shared_ptr<HeldOwnFolder> own_;
  std::shared_ptr<WritersNote> note_;  // has the locked file
};

LibraryError notLocked(const std::error_code& error) {
  const std::string happened = "The library could not be locked for writing";
  if (error != std::errc::not_a_directory && error != std::errc::too_many_symbolic_link_levels)
    return failure(happened, error);
  return LibraryError(happened + ", because a file or a link has the name " + inQuotes(ownFolderName) +
                      " in it, which is kept for the library's own folder. Move it away and try again.");
}

// The failure to open the file itself, once its folder is open.
LibraryError notOpened(const std::error_code& error) {
  const bool isNoFile = error == std::errc::too_many_symbolic_link_levels || error == std::errc::is_a_directory ||
                        error == std::errc::no_such_device_or_address;
  if (!isNoFile) return notLocked(error);
  return LibraryError(
      "The library could not be locked for writing, because \".kelvane/lock\" in it is a link, a folder or the like and"
      " not a file. Move that away, and leave the rest of \".kelvane\", which has the history in it.");
}

LibraryError busy(std::chrono::milliseconds waited) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(waited).count();
  return LibraryError("The library is busy: another program has been writing to it for " + std::to_string(seconds) +
                      " seconds. Nothing was changed; try again in a moment.");
}

LibraryError moved() {
  return LibraryError(
      "The library could not be locked for writing, because its folder, or \".kelvane\" in it, was moved away or "
      "replaced by another again and again. Nothing was changed; stop what moves it and try again.");
}

std::shared_ptr<const OpenedRoot> openedRoot(const std::filesystem::path& root) try {
  return OpenedRoot::find(root);
} catch (const std::system_error& error) {
  throw failure("The library folder " + inQuotes(root.native()) + " could not be opened", error.code());
}

Descriptor ownFolder(const OpenedRoot& root) {
  try {
    return makeOwnFolder(root.folder());
  } catch (const std::system_error& error) {
    throw notLocked(error.code());
  }
}

// Whether the file is still the one that others lock: somebody may have taken the library's folder, or its own folder,
// away and put another one there, by hand. Nothing is opened by the path, so a link on it does no harm. Throws when the
// system does not tell.
bool isStillThere(const struct stat& file, const OpenedRoot& root) {
  if (!root.isInPlace()) return false;
  const FileIdentity locked{file.st_dev, file.st_ino};
  const auto present = identityOf(root.folder().get(), std::string(ownFolderName) + '/' + lockFileName);
  const std::error_code error = present.error();
  const bool isTold = !error || error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory ||
                      error == std::errc::too_many_symbolic_link_levels;
  if (!isTold) throw notLocked(error);
  return present == locked;
}

// Locks a file. Returns EWOULDBLOCK if another has the lock at the deadline, and any other reason at once. flock itself
// can only wait for ever, so it is asked again after short pauses, of different lengths so that of several who wait
// each has the same chance.
std::error_code lockBefore(Clock::time_point deadline, const Descriptor& file) {
  thread_local std::minstd_rand generator(std::random_device{}());
  std::uniform_int_distribution<int> microseconds(200, 1500);
  while (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    const std::error_code error = lastError();
    if (error != std::errc::operation_would_block && error != std::errc::interrupted) return error;
    if (Clock::now() >= deadline) return std::make_error_code(std::errc::operation_would_block);
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds(generator)));
  }
  return {};
}

}  // namespace

std::unique_ptr<LibraryLock> lockLibrary(const SystemCalls& calls, const std::filesystem::path& root,
                                         std::chrono::milliseconds patience) {
  const auto deadline = Clock::now() + patience;
  do {
    const auto opened = openedRoot(root);
    Descriptor folder = ownFolder(*opened);
    Descriptor file(::openat(folder.get(), lockFileName, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                             S_IRUSR | S_IWUSR));
    if (!file) throw notOpened(lastError());
    // Who waits for the lock holds one on the folder meanwhile. Thus who lets go and comes back at once, long before
    // anybody could notice, has to wait behind it. Where folders cannot be locked, there is only no order.
    constexpr std::errc isBusy = std::errc::operation_would_block;
    if (lockBefore(deadline, folder) == isBusy) throw busy(patience);
    const std::error_code error = lockBefore(deadline, file);
    if (error) throw error == isBusy ? busy(patience) : notLocked(error);
    struct stat status;
    if (::fstat(file.get(), &status) != 0) throw notLocked(lastError());
    if (!isStillThere(status, *opened)) continue;
    ::flock(folder.get(), LOCK_UN);
    // A file with other names may be one outside the library. It can be locked, but nothing is written into it.
    const bool mayBeWritten = S_ISREG(status.st_mode) && status.st_nlink == 1;
    return std::make_unique<FileLock>(HeldOwnFolder::hold(opened, std::move(folder)),
                                      WritersNote::hold(calls, opened, std::move(file), mayBeWritten));
  } while (Clock::now() < deadline);
  throw moved();
}

}  // namespace quorvel
