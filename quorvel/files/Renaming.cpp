#include "quorvel/files/Renaming.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "quorvel/files/FileIdentity.h"
#include "quorvel/files/TemporaryName.h"

namespace quorvel {
namespace {

bool failWith(int error) {
  errno = error;
  return false;
}

// Gives what is aside its name again. A file stays aside if the name is taken by now, where the next writer keeps its
// text; a folder has no second name and is renamed.
void putBack(const SystemCalls& calls, int folder, const std::string& aside, const std::string& name) {
  if (calls.link(folder, aside.c_str(), name.c_str()) == 0) {
    calls.unlink(folder, aside.c_str());
  } else {
    renameFolder(calls, folder, aside, name);
  }
}

}  // namespace

bool renameFile(const SystemCalls& calls, int folder, const std::string& from, const std::string& to) {
  if (calls.renameToFreeName(folder, from.c_str(), to.c_str()) == 0) return true;
  if (!SystemCalls::isLacking(errno)) return false;
  const std::string aside = TemporaryName::fresh(from).ofTakenFile().text();
  const auto file = identityOf(folder, from);
  if (!file) return false;
  if (calls.link(folder, from.c_str(), to.c_str()) != 0) {
    // The system refuses a second name for another user's file before it looks whether the folder may be changed.
    if (!SystemCalls::isLacking(errno)) return false;
    return failWith(::faccessat(folder, ".", W_OK | X_OK, AT_EACCESS) != 0 ? errno : EOPNOTSUPP);
  }
  // A disk over the network may have done what it says that it could not do, so what is there is looked at.
  const bool isRenamed = calls.rename(folder, from.c_str(), aside.c_str()) == 0;
  int error = isRenamed ? EBUSY : errno;
  const auto setAside = identityOf(folder, aside);
  if (!isRenamed && setAside != file) {
    // Nothing is aside.
  } else if (setAside == file && identityOf(folder, to) == file) {
    calls.unlink(folder, aside.c_str());
    return true;
  } else {
    putBack(calls, folder, aside, from);
  }
  const auto second = identityOf(folder, to);
  if (second && (second == file || second == identityOf(folder, from))) calls.unlink(folder, to.c_str());
  return failWith(error);
}

bool renameFolder(const SystemCalls& calls, int folder, const std::string& from, const std::string& to) {
  if (calls.renameToFreeName(folder, from.c_str(), to.c_str()) == 0) return true;
  if (!SystemCalls::isLacking(errno)) return false;
  if (::mkdirat(folder, to.c_str(), 0700) != 0) return false;
  // A folder replaces an empty folder and nothing else; this one is empty unless somebody has begun to use it.
  if (calls.rename(folder, from.c_str(), to.c_str()) == 0) return true;
  const int error = errno;
  ::unlinkat(folder, to.c_str(), AT_REMOVEDIR);
  return failWith(error == ENOTEMPTY || error == ENOTDIR ? EEXIST : error);
}

}  // namespace quorvel
