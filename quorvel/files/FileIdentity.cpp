#include "quorvel/files/FileIdentity.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "quorvel/files/SystemCalls.h"

namespace quorvel {
namespace {

Expected<FileIdentity> answer(int result, const struct stat& status) noexcept {
  if (result != 0) return lastError();
  return FileIdentity{status.st_dev, status.st_ino};
}

}  // namespace

Expected<FileIdentity> identityOf(int file) noexcept {
  struct stat status;
  const int result = ::fstat(file, &status);
  return answer(result, status);
}

Expected<FileIdentity> identityOf(int folder, const std::string& name) noexcept {
  struct stat status;
  const int result = ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW);
  return answer(result, status);
}

Expected<FileIdentity> identityAt(const std::string& path) noexcept {
  struct stat status;
  const int result = ::stat(path.c_str(), &status);
  return answer(result, status);
}

}  // namespace quorvel
