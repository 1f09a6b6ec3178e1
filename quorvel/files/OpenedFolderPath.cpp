#include "quorvel/files/OpenedFolderPath.h"

#include <sys/stat.h>

#include "quorvel/files/FileIdentity.h"

namespace quorvel {

std::string openedFolderPath(const Descriptor& folder) {
  return "/proc/self/fd/" + std::to_string(folder.get());
}

bool leadsToFolder(const std::string& path, const Descriptor& folder) noexcept {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0 && FileIdentity{status.st_dev, status.st_ino} == identityOf(folder.get());
}

}  // namespace quorvel
