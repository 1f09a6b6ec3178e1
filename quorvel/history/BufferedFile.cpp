#include "quorvel/history/BufferedFile.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

// What waits is one run of bytes. A write within it or at its end joins it; any other write sends it off first. So does
// a read of which only a part waits.

namespace quorvel::sqlite {
namespace {

constexpr std::size_t mostWaiting = std::size_t{1} << 20;

/// As much as is read at once at the beginning, where a small database is as a whole and a large one has its tables'
/// first pages.
constexpr off_t headSize = 64 << 10;

[[noreturn]] void fail() {
  throw std::system_error(errno, std::generic_category());
}

}  // namespace

std::size_t BufferedFile::readFromSystem(char* bytes, std::size_t count, off_t at) const {
  std::size_t done = 0;
  while (done < count) {
    const long read = calls_.readAt(file_.get(), bytes + done, count - done, at + static_cast<off_t>(done));
    if (read < 0 && errno == EINTR) continue;
    if (read < 0) fail();
    if (read == 0) break;
    done += static_cast<std::size_t>(read);
  }
  return done;
}

const std::string& BufferedFile::head() {
  if (!head_) {
    std::string head(static_cast<std::size_t>(std::min(size(), headSize)), '\0');
    head.resize(readFromSystem(head.data(), head.size(), 0));
    head_ = std::move(head);
  }
  return *head_;
}

std::size_t BufferedFile::read(char* bytes, std::size_t count, off_t at) {
  const off_t behind = at + static_cast<off_t>(count);
  if (at < end() && behind > begin_) {
    if (at >= begin_ && behind <= end()) {
      std::memcpy(bytes, waiting_.data() + (at - begin_), count);
      return count;
    }
    sendWaiting();
  }
  std::size_t found = 0;
  if (!remembers_ || (at < size() && behind > headSize)) {
    found = readFromSystem(bytes, count, at);
  } else if (at < size() && at < static_cast<off_t>(head().size())) {
    found = head().copy(bytes, count, static_cast<std::size_t>(at));
  }
  std::memset(bytes + found, 0, count - found);
  const bool isBeforeWaiting = !waiting_.empty() && at < begin_;  // so the zeros up to there are the file's
  return isBeforeWaiting ? std::max(found, std::min(count, static_cast<std::size_t>(begin_ - at))) : found;
}

void BufferedFile::write(const char* bytes, std::size_t count, off_t at) {
  const bool joins = at >= begin_ && at <= end() && waiting_.size() < mostWaiting;
  if (!joins) sendWaiting();
  if (waiting_.empty()) begin_ = at;
  const auto from = static_cast<std::size_t>(at - begin_);
  waiting_.replace(from, std::min(count, waiting_.size() - from), bytes, count);
}

// What could not be sent goes on waiting, so that a change that the disk has no room for can be undone.
void BufferedFile::sendWaiting() {
  if (waiting_.empty()) return;
  const auto known = std::exchange(size_, std::nullopt);
  head_.reset();
  for (std::size_t done = 0; done < waiting_.size();) {
    const long written =
        calls_.writeAt(file_.get(), waiting_.data() + done, waiting_.size() - done, begin_ + static_cast<off_t>(done));
    if (written < 0 && errno == EINTR) continue;
    if (written == 0) errno = ENOSPC;
    if (written <= 0) fail();
    done += static_cast<std::size_t>(written);
  }
  if (known) size_ = std::max(*known, end());
  waiting_.clear();
}

void BufferedFile::flush() {
  sendWaiting();
  if (calls_.flushBytes(file_.get()) != 0) fail();
}

// What waits behind the new end is dropped rather than sent: there may be no room for it.
void BufferedFile::truncate(off_t size) {
  if (end() > size) waiting_.resize(static_cast<std::size_t>(std::max(size - begin_, off_t{0})));
  sendWaiting();
  size_.reset();
  head_.reset();
  while (::ftruncate(file_.get(), size) != 0) {
    if (errno != EINTR) fail();
  }
}

off_t BufferedFile::size() {
  off_t size = 0;
  if (size_) {
    size = *size_;
  } else {
    struct stat status {};
    if (::fstat(file_.get(), &status) != 0) fail();
    size = status.st_size;
    if (remembers_) size_ = size;
  }
  return waiting_.empty() ? size : std::max(size, end());
}

void BufferedFile::forget() noexcept {
  remembers_ = false;
  waiting_.clear();
  size_.reset();
  head_.reset();
}

}  // namespace quorvel::sqlite
