#include "quorvel/files/OpenedFolderPath.h"

namespace quorvel {

std::string openedFolderPath(const Descriptor& folder) {
  return "/proc/self/fd/" + std::to_string(folder.get());
}

}  // namespace quorvel
