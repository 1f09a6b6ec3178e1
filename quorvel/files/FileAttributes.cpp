#include "quorvel/files/FileAttributes.h"

#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>

// What a file's owner set on it must be kept wherever the system has it, so KELVANE_PORTABLE changes nothing here.
#ifdef __linux__
#include <sys/xattr.h>
#endif

namespace quorvel {
namespace {

#ifdef __linux__

bool isUnsupported(int error) {
  return error == ENOTSUP || error == ENOSYS;
}

// The names of a file's extended attributes, each with a NUL behind it. They may change between asking for the size
// and for the names, so a few attempts are made.
bool attributeNames(int file, std::string& names) {
  for (int attempt = 0; attempt < 8; ++attempt) {
    const ssize_t size = ::flistxattr(file, nullptr, 0);
    if (size < 0) return isUnsupported(errno);
    names.resize(static_cast<std::size_t>(size));
    if (size == 0) return true;
    const ssize_t got = ::flistxattr(file, names.data(), names.size());
    if (got >= 0) return names.resize(static_cast<std::size_t>(got)), true;
    if (errno != ERANGE) return false;
  }
  return false;
}

bool copyAttribute(int from, int to, const char* name) {
  std::string value;
  for (int attempt = 0; attempt < 8; ++attempt) {
    const ssize_t size = ::fgetxattr(from, name, nullptr, 0);
    if (size < 0) return errno == ENODATA;
    value.resize(static_cast<std::size_t>(size));
    const ssize_t got = ::fgetxattr(from, name, value.data(), value.size());
    if (got >= 0) return ::fsetxattr(to, name, value.data(), static_cast<std::size_t>(got), 0) == 0;
    if (errno == ENODATA) return true;
    if (errno != ERANGE) return false;
  }
  return false;
}

// "system." holds the access lists, "user." what programs of the user put there. The rest (labels of security modules
// and the like) is the system's to give.
bool copyExtendedAttributes(int from, int to) {
  std::string names;
  if (!attributeNames(from, names)) return false;
  bool hasAccessList = false;
  constexpr std::string_view accessList = "system.posix_acl_access";
  for (std::size_t at = 0; at < names.size();) {
    const std::string_view name = names.c_str() + at;
    at += name.size() + 1;
    if (!name.starts_with("user.") && !name.starts_with("system.")) continue;
    hasAccessList = hasAccessList || name == accessList;
    if (!copyAttribute(from, to, name.data())) return false;
  }
  if (hasAccessList || ::fremovexattr(to, accessList.data()) == 0) return true;
  return errno == ENODATA || isUnsupported(errno);
}

#else

bool copyExtendedAttributes(int, int) {
  return true;
}

#endif

CopiedAttributes without(FileAttribute missing, int error) {
  return {missing, std::error_code(error, std::generic_category())};
}

}  // namespace

CopiedAttributes copyAttributes(int from, int to) {
  struct stat wanted;
  struct stat present;
  if (::fstat(from, &wanted) != 0 || ::fstat(to, &present) != 0) return without(FileAttribute::mode, errno);
  if (wanted.st_uid != present.st_uid || wanted.st_gid != present.st_gid) {
    if (::fchown(to, wanted.st_uid, wanted.st_gid) != 0)
      return without(wanted.st_uid != present.st_uid ? FileAttribute::owner : FileAttribute::group, errno);
  }
  if (!copyExtendedAttributes(from, to)) return without(FileAttribute::accessLists, errno);
  // The mode last: a change of the owner clears bits of it, and one of the access list changes the group's.
  constexpr mode_t bits = 07777;
  if (::fchmod(to, wanted.st_mode & bits) != 0 || ::fstat(to, &present) != 0)
    return without(FileAttribute::mode, errno);
  if ((present.st_mode & bits) == (wanted.st_mode & bits)) return {};
  return without(FileAttribute::mode, EPERM);  // a bit that the system dropped in silence
}

}  // namespace quorvel
