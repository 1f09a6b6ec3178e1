#include "quorvel/files/FolderEntries.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

// Linux hands over a block of entries at a time (getdents64), from the descriptor that is open already. readdir() does
// the same below, but opening its stream costs four system calls more, for each folder of a listing and for the sweep
// before each change. It is what other systems have.

namespace quorvel {
namespace {

// A record of the kernel's (struct linux_dirent64): inode and offset with 8 bytes each, the record's size, the type,
// and the name with a NUL behind it.
constexpr std::size_t sizeAt = 16;
constexpr std::size_t typeAt = 18;
constexpr std::size_t nameAt = 19;

}  // namespace

Expected<const FolderEntry*> FolderEntries::next() noexcept {
  if (!hasBegun_) {
    hasBegun_ = true;
    if (const std::error_code error = begin()) return error;
  }
  return stream_ ? nextOfStream() : nextRecord();
}

// From the first entry on, wherever the descriptor stands.
std::error_code FolderEntries::begin() noexcept {
  if (::lseek(folder_, 0, SEEK_SET) != 0) return lastError();
  const std::error_code error = fill();
  if (error != std::errc::function_not_supported) return error;
  const int own = ::fcntl(folder_, F_DUPFD_CLOEXEC, 0);
  if (own < 0) return lastError();
  stream_.reset(::fdopendir(own));
  if (stream_) return {};
  const std::error_code reason = lastError();
  ::close(own);
  return reason;
}

std::error_code FolderEntries::fill() noexcept {
  at_ = end_ = 0;
  const long count = calls_.readEntries(folder_, block_, sizeof block_);
  if (count < 0) return lastError();
  end_ = static_cast<std::size_t>(count);
  return {};
}

Expected<const FolderEntry*> FolderEntries::nextRecord() noexcept {
  if (at_ == end_) {
    if (const std::error_code error = fill()) return error;
    if (end_ == 0) return nullptr;
  }
  const char* const record = block_ + at_;
  std::uint16_t size = 0;
  std::memcpy(&size, record + sizeAt, sizeof size);
  at_ += size;
  entry_ = {record + nameAt, static_cast<unsigned char>(record[typeAt])};
  return &entry_;
}

Expected<const FolderEntry*> FolderEntries::nextOfStream() noexcept {
  errno = 0;  // which alone tells a failure from the end
  const dirent* const entry = calls_.nextEntry(stream_.get());
  if (!entry && errno != 0) return lastError();
  if (!entry) return nullptr;
  entry_ = {entry->d_name, entry->d_type};
  return &entry_;
}

}  // namespace quorvel
