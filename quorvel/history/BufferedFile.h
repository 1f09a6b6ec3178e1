#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <utility>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/SystemCalls.h"

namespace quorvel::sqlite {

/// An open file whose writes wait in memory until it is flushed, and whose beginning is read once.
///
/// SQLite writes many small pieces and relies on none of them before it has asked for a flush. So they wait, and go to
/// the system in few large pieces. What waits at the end of the object is lost: it was never flushed, so nothing relies
/// on it.
///
/// Operations throw std::system_error with the system's reason, and std::bad_alloc. After a failed operation the same
/// bytes still wait, so that they can be read, cut off or flushed again. Time is proportional to the bytes that are
/// read or written. At most 1 MiB waits, plus one write. For one thread at a time.
class BufferedFile {
 public:
  /// Owns the descriptor. `calls` must outlive the object.
  BufferedFile(const SystemCalls& calls, Descriptor file) noexcept : calls_(calls), file_(std::move(file)) {}

  int descriptor() const noexcept { return file_.get(); }

  /// Reads bytes, waiting ones included. Returns how many there are; the rest is filled with zeros.
  std::size_t read(char* bytes, std::size_t count, off_t at);

  /// Changes bytes, or adds some. They may wait until `flush`.
  void write(const char* bytes, std::size_t count, off_t at);

  /// Passes to the system what waits. Other programs see it then, but it may not survive a power failure.
  void sendWaiting();

  /// Returns when all bytes are on the disk.
  void flush();

  /// Cuts the file off at this size. What waits behind it is dropped, and the rest is sent.
  void truncate(off_t size);

  /// How many bytes the file has, waiting ones included.
  off_t size();

  /// The file has this size, and from now on no other program changes it. So its size and its beginning may be
  /// remembered.
  void remember(off_t size) noexcept {
    remembers_ = true;
    size_ = size;
  }

  /// Other programs may change the file again. Forgets all that is known of it, and what could not be sent.
  void forget() noexcept;

 private:
  off_t end() const noexcept { return begin_ + static_cast<off_t>(waiting_.size()); }
  std::size_t readFromSystem(char* bytes, std::size_t count, off_t at) const;
  const std::string& head();

  const SystemCalls& calls_;
  Descriptor file_;
  std::string waiting_;  // one run of bytes, which begins at begin_ in the file
  off_t begin_ = 0;
  bool remembers_ = false;
  std::optional<off_t> size_;        // of what the system has
  std::optional<std::string> head_;  // the first bytes that the system has
};

}  // namespace quorvel::sqlite
