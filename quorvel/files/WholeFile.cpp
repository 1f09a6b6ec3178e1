#include "quorvel/files/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

namespace quorvel {

Expected<Descriptor> openToRead(int folder, const std::string& name) {
  Descriptor file(::openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file) return lastError();
  return file;
}

Expected<std::string> readToEnd(int file, const SystemCalls& calls) {
  struct stat status;
  if (::fstat(file, &status) != 0) return lastError();
  return readToEnd(file, status.st_size, calls);
}

// The file's end is found by a read that gets less than it asked for, or nothing. Only where a file is as large as it
// said, one such read is enough.
Expected<std::string> readToEnd(int file, off_t size, const SystemCalls& calls) {
  if (size > static_cast<off_t>(largestText)) return std::make_error_code(std::errc::file_too_large);
  std::string text;
  std::size_t filled = 0;
  // One byte more than the file should have, so that one that grows is seen.
  text.resize(static_cast<std::size_t>(size) + 1);
  while (true) {
    const long count = calls.read(file, text.data() + filled, text.size() - filled);
    // Each retry is caused by a signal that was handled, so they end when the signals do.
    if (count < 0 && lastError() == std::errc::interrupted) continue;
    if (count < 0) return lastError();
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
    if (size > 0 && filled == static_cast<std::size_t>(size)) break;
    if (filled < text.size()) continue;
    if (filled > largestText) return std::make_error_code(std::errc::file_too_large);
    struct stat status;
    if (::fstat(file, &status) != 0) return lastError();
    if (status.st_size > size) return std::make_error_code(std::errc::device_or_resource_busy);
    text.resize(std::min(text.size() * 2, largestText + 1));
  }
  text.resize(filled);
  return text;
}

}  // namespace quorvel
