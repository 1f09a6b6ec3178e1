#include "quorvel/files/SystemCalls.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

// KELVANE_PORTABLE makes this a system that lacks what only some have.
#if defined(__linux__) && !defined(KELVANE_PORTABLE)
#define KELVANE_LINUX_CALLS
#include <linux/openat2.h>
#include <sys/syscall.h>
#endif

namespace quorvel {
namespace {

#ifdef KELVANE_LINUX_CALLS
constexpr unsigned int noReplace = 1U << 0;  // RENAME_NOREPLACE and RENAME_EXCHANGE of the kernel's interface, which
constexpr unsigned int swap = 1U << 1;       // the C library declares only to programs that ask for its extensions

int renameWith(unsigned int flags, int folder, const char* from, const char* to) noexcept {
  return static_cast<int>(::syscall(SYS_renameat2, folder, from, folder, to, flags));
}
#endif

#if defined(KELVANE_LINUX_CALLS) && defined(SYS_openat2)
constexpr unsigned int beneath = RESOLVE_BENEATH;
constexpr unsigned int withoutLinks = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;

int openAs(int folder, const char* path, int flags, unsigned int resolve) noexcept {
  open_how how{};
  how.flags = static_cast<unsigned long long>(flags);
  how.resolve = resolve;
  return static_cast<int>(::syscall(SYS_openat2, folder, path, &how, sizeof how));
}
#else
constexpr unsigned int beneath = 0;
constexpr unsigned int withoutLinks = 0;

int openAs(int, const char*, int, unsigned int) noexcept {
  errno = ENOSYS;
  return -1;
}
#endif

}  // namespace

std::error_code lastError() noexcept {
  return {errno, std::generic_category()};
}

const SystemCalls& SystemCalls::ofTheSystem() noexcept {
  static const SystemCalls calls;
  return calls;
}

int SystemCalls::openBeneath(int folder, const char* path, int flags) const noexcept {
  return openAs(folder, path, flags, beneath | withoutLinks);
}

int SystemCalls::openWithoutLinks(const char* path, int flags) const noexcept {
  return openAs(AT_FDCWD, path, flags, withoutLinks);
}

long SystemCalls::readEntries([[maybe_unused]] int folder, [[maybe_unused]] void* records,
                              [[maybe_unused]] std::size_t size) const noexcept {
#ifdef KELVANE_LINUX_CALLS
  return ::syscall(SYS_getdents64, folder, records, size);
#else
  errno = ENOSYS;
  return -1;
#endif
}

const dirent* SystemCalls::nextEntry(DIR* folder) const noexcept {
  return ::readdir(folder);
}

int SystemCalls::open(int folder, const char* name, int flags, unsigned int mode) const noexcept {
  return ::openat(folder, name, flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, static_cast<mode_t>(mode));
}

int SystemCalls::status(int folder, const char* name, struct stat* status) const noexcept {
  return ::fstatat(folder, name, status, AT_SYMLINK_NOFOLLOW);
}

long SystemCalls::read(int file, void* bytes, std::size_t count) const noexcept {
  return ::read(file, bytes, count);
}

long SystemCalls::write(int file, const void* bytes, std::size_t count) const noexcept {
  return ::write(file, bytes, count);
}

long SystemCalls::readAt(int file, void* bytes, std::size_t count, off_t at) const noexcept {
  return ::pread(file, bytes, count, at);
}

long SystemCalls::writeAt(int file, const void* bytes, std::size_t count, off_t at) const noexcept {
  return ::pwrite(file, bytes, count, at);
}

int SystemCalls::flush(int file) const noexcept {
  return ::fsync(file);
}

int SystemCalls::flushBytes(int file) const noexcept {
#ifdef KELVANE_LINUX_CALLS
  return ::fdatasync(file);
#else
  return flush(file);
#endif
}

int SystemCalls::flushFolder(int folder) const noexcept {
  return flush(folder) == 0 || errno == EINVAL ? 0 : -1;
}

int SystemCalls::truncate(int file, off_t size) const noexcept {
  return ::ftruncate(file, size);
}

bool SystemCalls::isLacking(const std::error_code& error) noexcept {
  return error == std::errc::function_not_supported || error == std::errc::invalid_argument ||
         error == std::errc::operation_not_supported || error == std::errc::operation_not_permitted;
}

int SystemCalls::exchange([[maybe_unused]] int folder, [[maybe_unused]] const char* one,
                          [[maybe_unused]] const char* other) const noexcept {
#ifdef KELVANE_LINUX_CALLS
  return renameWith(swap, folder, one, other);
#else
  errno = ENOSYS;
  return -1;
#endif
}

int SystemCalls::rename(int folder, const char* from, const char* to) const noexcept {
  return ::renameat(folder, from, folder, to);
}

int SystemCalls::renameToFreeName([[maybe_unused]] int folder, [[maybe_unused]] const char* from,
                                  [[maybe_unused]] const char* to) const noexcept {
#ifdef KELVANE_LINUX_CALLS
  return renameWith(noReplace, folder, from, to);
#else
  errno = ENOSYS;
  return -1;
#endif
}

int SystemCalls::link(int folder, const char* from, const char* to) const noexcept {
  return ::linkat(folder, from, folder, to, 0);
}

int SystemCalls::unlink(int folder, const char* name) const noexcept {
  return ::unlinkat(folder, name, 0);
}

}  // namespace quorvel
