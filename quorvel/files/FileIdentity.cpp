#include "quorvel/files/FileIdentity.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace quorvel {

std::optional<FileIdentity> identityOf(int file) noexcept {
  struct stat status;
  if (::fstat(file, &status) != 0) return std::nullopt;
  return FileIdentity{status.st_dev, status.st_ino};
}

std::optional<FileIdentity> identityOf(int folder, const std::string& name) noexcept {
  struct stat status;
  if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  return FileIdentity{status.st_dev, status.st_ino};
}

}  // namespace quorvel
