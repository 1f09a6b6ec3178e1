#include "quorvel/files/WholeFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace quorvel {

std::optional<std::string> readToEnd(int file) {
  struct stat status;
  if (::fstat(file, &status) != 0) return std::nullopt;
  std::string text;
  std::size_t filled = 0;
  // One byte more than the file should have: the read that finds its end then needs no more room.
  text.resize(static_cast<std::size_t>(status.st_size) + 1);
  while (true) {
    const ssize_t count = ::read(file, text.data() + filled, text.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
    if (filled == text.size()) text.resize(text.size() * 2);
  }
  text.resize(filled);
  return text;
}

}  // namespace quorvel
