#include "quorvel/library/Renaming.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace quorvel {
namespace {

bool lacksTheCall(int error) {
  return error == ENOSYS || error == EINVAL || error == EOPNOTSUPP || error == EPERM;
}

bool sameFile(int folder, const std::string& one, const std::string& other) {
  struct stat first;
  struct stat second;
  return ::fstatat(folder, one.c_str(), &first, AT_SYMLINK_NOFOLLOW) == 0 &&
         ::fstatat(folder, other.c_str(), &second, AT_SYMLINK_NOFOLLOW) == 0 && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
}

bool failWith(int error) {
  errno = error;
  return false;
}

}  // namespace

bool renameFile(const SystemCalls& calls, int folder, const std::string& from, const std::string& to) {
  if (calls.renameToFreeName(folder, from.c_str(), to.c_str()) == 0) return true;
  if (!lacksTheCall(errno)) return false;
  if (calls.link(folder, from.c_str(), to.c_str()) != 0) return false;
  // A file that another program has put there meanwhile is not ours to unlink.
  const int error = sameFile(folder, from, to) ? 0 : EBUSY;
  if (error == 0 && calls.unlink(folder, from.c_str()) == 0) return true;
  const int unlinkError = error != 0 ? error : errno;
  calls.unlink(folder, to.c_str());
  return failWith(unlinkError);
}

bool renameFolder(const SystemCalls& calls, int folder, const std::string& from, const std::string& to) {
  if (calls.renameToFreeName(folder, from.c_str(), to.c_str()) == 0) return true;
  if (!lacksTheCall(errno)) return false;
  if (::mkdirat(folder, to.c_str(), 0700) != 0) return false;
  // A folder replaces an empty folder and nothing else; this one is empty unless somebody has begun to use it.
  if (calls.rename(folder, from.c_str(), to.c_str()) == 0) return true;
  const int error = errno;
  ::unlinkat(folder, to.c_str(), AT_REMOVEDIR);
  return failWith(error == ENOTEMPTY || error == ENOTDIR ? EEXIST : error);
}

}  // namespace quorvel
