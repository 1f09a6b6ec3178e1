#include "quorvel/files/WaitForWriters.h"

#include <fcntl.h>

#include <csignal>
#include <thread>

#include "quorvel/files/SystemCalls.h"

#if defined(F_SETLEASE) && !defined(KELVANE_PORTABLE)
#define KELVANE_LEASES
#include <linux/magic.h>
#include <sys/vfs.h>
#endif

namespace quorvel {

#ifdef KELVANE_LEASES
namespace {

// Network disks refuse a lease for reasons of their own with the same error, so only disks count that are known to
// refuse it for no other reason than an open writer.
bool tellsWriters(int file) {
  struct statfs disk;
  if (::fstatfs(file, &disk) != 0) return false;
  constexpr long f2fs = 0xF2F52010;
  constexpr long xfs = 0x58465342;
  switch (static_cast<long>(disk.f_type)) {
    case EXT4_SUPER_MAGIC:
    case BTRFS_SUPER_MAGIC:
    case OVERLAYFS_SUPER_MAGIC:
    case TMPFS_MAGIC:
    case f2fs:
    case xfs:
      return true;
    default:
      return false;
  }
}

}  // namespace
#endif

// A read lease is granted only while nobody has the file open for writing. It is given back at once; should somebody
// open the file just then, the system would send SIGIO, which ends a program, unless another signal is asked for.
std::optional<bool> hasWriter([[maybe_unused]] int file) {
#ifdef KELVANE_LEASES
  if (::fcntl(file, F_SETSIG, SIGURG) != 0) return std::nullopt;
  if (::fcntl(file, F_SETLEASE, F_RDLCK) == 0) {
    ::fcntl(file, F_SETLEASE, F_UNLCK);
    return false;
  }
  if (lastError() == std::errc::resource_unavailable_try_again && tellsWriters(file)) return true;
#endif
  return std::nullopt;
}

bool waitForWriters(int file, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (hasWriter(file).value_or(false)) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace quorvel
