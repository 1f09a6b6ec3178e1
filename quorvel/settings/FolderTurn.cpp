#include "quorvel/settings/FolderTurn.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <thread>

namespace quorvel {

Descriptor takeTurn(const std::filesystem::path& folder, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  while (::flock(opened.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return {};
    if (std::chrono::steady_clock::now() >= deadline) return {};
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return opened;
}

}  // namespace quorvel
