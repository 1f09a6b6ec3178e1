#include "platform/StandardIO.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <system_error>
#include <utility>

#include "platform/LargePages.h"
#include "platform/Unicode.h"

/// How lines are read: one buffer holds what was read and not returned yet. A line is returned as a view of it. Only
/// when a line is incomplete does its beginning move to the start of the buffer, so each byte moves a constant number
/// of times, and no byte is searched twice for a line feed.
namespace kelvane {

namespace {

// Each read has room for at least this many bytes.
constexpr std::size_t readSize = 64 * 1024;

// A buffer below this size grows in few steps. Room that nothing is read into takes no memory of the machine.
constexpr std::size_t largeSize = 16 * 1024 * 1024;

// Memory above this size is freed once the line that needed it has been used.
constexpr std::size_t keptSize = 1024 * 1024;

[[noreturn]] void throwSystemError(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// Whether an operation that failed should be repeated. Waits if the descriptor is not ready.
bool mayTryAgain(int descriptor, short events) {
  if (errno == EINTR) return true;
  if (errno != EAGAIN && errno != EWOULDBLOCK) return false;
  pollfd waiting{descriptor, events, 0};
  return ::poll(&waiting, 1, -1) >= 0 || errno == EINTR;
}

}  // namespace

LineReader::LineReader(int descriptor) noexcept : descriptor_(descriptor) {
}

std::optional<std::string_view> LineReader::next() {
  if (replaced_.capacity() > keptSize) std::string().swap(replaced_);
  std::size_t searched = 0;  // how many bytes of the line have been searched for its line feed
  const char* lineFeed = nullptr;
  do {
    const std::size_t unsearched = filled_ - begin_ - searched;
    if (unsearched > 0) {
      lineFeed = static_cast<const char*>(std::memchr(buffer_.get() + begin_ + searched, '\n', unsearched));
    }
    searched += unsearched;
  } while (lineFeed == nullptr && fill());
  std::string_view line(buffer_.get() + begin_, filled_ - begin_);
  if (lineFeed != nullptr) {
    line = line.substr(0, static_cast<std::size_t>(lineFeed - line.data()));
    begin_ += line.size() + 1;
    if (line.ends_with('\r')) line.remove_suffix(1);
  } else {
    begin_ = filled_;
    if (line.empty()) return std::nullopt;
  }
  if (unicode::isValidUTF8(line)) return line;
  replaced_ = unicode::replacingInvalidUTF8(line);
  return replaced_;
}

void LineReader::release() {
  if (replaced_.capacity() > keptSize) std::string().swap(replaced_);
  const std::size_t pending = filled_ - begin_;
  if (begin_ > 0 && pending > 0) std::memmove(buffer_.get(), buffer_.get() + begin_, pending);
  begin_ = 0;
  filled_ = pending;
  if (size_ > keptSize && pending < size_ / 4) resize(std::max(pending + readSize, pending * 2));
}

void LineReader::resize(std::size_t size) {
  std::unique_ptr<char, Free> buffer(static_cast<char*>(allocate(size)));
  if (!buffer) throw std::bad_alloc();
  if (filled_ > 0) std::memcpy(buffer.get(), buffer_.get(), filled_);
  buffer_ = std::move(buffer);
  size_ = size;
}

// Reads more bytes after those that were not returned yet, and moves those to the start of the buffer first. False at
// the end of the input.
bool LineReader::fill() {
  if (atEnd_) return false;
  release();
  if (size_ - filled_ < readSize) resize(std::max(size_ * (size_ < largeSize ? 16 : 2), filled_ + readSize));
  for (;;) {
    const ssize_t count = ::read(descriptor_, buffer_.get() + filled_, size_ - filled_);
    if (count >= 0) {
      filled_ += static_cast<std::size_t>(count);
      atEnd_ = count == 0;
      return !atEnd_;
    }
    if (!mayTryAgain(descriptor_, POLLIN)) throwSystemError("The input cannot be read");
  }
}

void writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (!mayTryAgain(descriptor, POLLOUT)) {
      throwSystemError("The output cannot be written");
    }
  }
}

}  // namespace kelvane
