#include "quorvel/history/DatabaseLock.h"

#include <fcntl.h>

#include <cerrno>
#include <system_error>

// A lock is locks on three ranges of bytes behind the first gigabyte of the file, which hold no data ("File Locking And
// Concurrency In SQLite Version 3"):
//
//   PENDING    1 byte     locked for writing from `pending` on; who finds it so may not take `shared`
//   RESERVED   1 byte     locked for writing from `reserved` on
//   SHARED     510 bytes  locked for reading from `shared` on, for writing at `exclusive`
//
// The locks belong to the open file, not to the process (POSIX.1-2024, F_OFD_SETLK). They exclude the process-owned
// locks that SQLite itself takes, and other connections in this process; and closing another descriptor of the file
// does not release them.

namespace quorvel::sqlite {
namespace {

struct Range {
  off_t begin;
  off_t size;
};

constexpr Range pendingByte{0x40000000, 1};
constexpr Range reservedByte{0x40000001, 1};
constexpr Range pendingAndReserved{0x40000000, 2};
constexpr Range sharedBytes{0x40000002, 510};
constexpr Range allBytes{0x40000000, 512};

struct flock lockOf(int type, Range range) {
  struct flock lock {};  // the process must be 0
  lock.l_type = static_cast<short>(type);
  lock.l_whence = SEEK_SET;
  lock.l_start = range.begin;
  lock.l_len = range.size;
  return lock;
}

/// False if another lock is in the way. A system that has no more locks (ENOLCK) is a failure: no waiting for other
/// programs would end it.
bool set(int file, int type, Range range) {
  struct flock lock = lockOf(type, range);
  if (::fcntl(file, F_OFD_SETLK, &lock) == 0) return true;
  if (errno == EAGAIN || errno == EACCES || errno == EINTR || errno == ETIMEDOUT) return false;
  throw std::system_error(errno, std::generic_category());
}

/// A lock can always be lowered, so whatever stands in the way is a failure.
void release(int file, int type, Range range) {
  if (!set(file, type, range)) throw std::system_error(errno, std::generic_category());
}

bool isLocked(int file, int type, Range range) {
  struct flock lock = lockOf(type, range);
  if (::fcntl(file, F_OFD_GETLK, &lock) != 0) throw std::system_error(errno, std::generic_category());
  return lock.l_type != F_UNLCK;
}

/// Takes `shared`, unless a writer waits for its readers to go. SQLite locks PENDING for a moment to see that; here the
/// lock is taken and given back, which takes one call less and excludes the same.
bool share(int file) {
  if (!set(file, F_RDLCK, sharedBytes)) return false;
  if (!isLocked(file, F_RDLCK, pendingByte)) return true;
  release(file, F_UNLCK, sharedBytes);
  return false;
}

}  // namespace

bool DatabaseLock::raise(Level level) {
  if (level <= level_) return true;
  if (level != exclusive) {
    if (!(level == shared ? share(file_) : set(file_, F_WRLCK, reservedByte))) return false;
    level_ = level;
    return true;
  }
  // The usual case in one step. Not from `shared`: a program that plays a journal back must not have RESERVED, because
  // others take that for a living writer, whose journal is not to be played back.
  const bool isOneStep = level_ == reserved && set(file_, F_WRLCK, allBytes);
  if (!isOneStep) {
    if (level_ != pending && !set(file_, F_WRLCK, pendingByte)) return false;
    level_ = pending;
    if (!set(file_, F_WRLCK, sharedBytes)) return false;
  }
  level_ = exclusive;
  return true;
}

void DatabaseLock::lower(Level level) {
  if (level >= level_) return;
  if (level == none) {
    release(file_, F_UNLCK, allBytes);
  } else {
    if (level_ == exclusive) release(file_, F_RDLCK, sharedBytes);
    release(file_, F_UNLCK, pendingAndReserved);
  }
  level_ = level;
}

bool DatabaseLock::isReserved() const {
  return level_ >= reserved || isLocked(file_, F_WRLCK, reservedByte);
}

}  // namespace quorvel::sqlite
