#include "quorvel/files/OpenedFolderPath.h"

#include <sys/stat.h>

#include <cerrno>

#include "quorvel/files/FileIdentity.h"

namespace quorvel {

std::string openedFolderPath(const Descriptor& folder) {
  return "/proc/self/fd/" + std::to_string(folder.get());
}

bool leadsToFolder(const std::string& path, const Descriptor& folder) noexcept {
  const auto identity = identityOf(folder.get());
  struct stat status;
  if (!identity || ::stat(path.c_str(), &status) != 0) return false;
  if (FileIdentity{status.st_dev, status.st_ino} == *identity) return true;
  errno = ENOENT;
  return false;
}

}  // namespace quorvel
