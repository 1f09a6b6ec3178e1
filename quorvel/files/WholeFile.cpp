#include "quorvel/files/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

namespace quorvel {
namespace {

std::optional<std::string> refused(int error) {
  errno = error;
  return std::nullopt;
}

}  // namespace

Descriptor openToRead(int folder, const std::string& name) {
  return Descriptor(::openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

std::optional<std::string> readToEnd(int file, const SystemCalls& calls) {
  struct stat status;
  if (::fstat(file, &status) != 0) return std::nullopt;
  const off_t size = status.st_size;
  if (size > static_cast<off_t>(largestText)) return refused(EFBIG);
  std::string text;
  std::size_t filled = 0;
  // One byte more than the file should have: the read that finds its end then needs no more room.
  text.resize(static_cast<std::size_t>(size) + 1);
  while (true) {
    const long count = calls.read(file, text.data() + filled, text.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
    if (filled < text.size()) continue;
    if (filled > largestText) return refused(EFBIG);
    if (::fstat(file, &status) != 0) return std::nullopt;
    if (status.st_size > size) return refused(EBUSY);
    text.resize(std::min(text.size() * 2, largestText + 1));
  }
  text.resize(filled);
  return text;
}

}  // namespace quorvel
