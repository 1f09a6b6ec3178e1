#include "quorvel/files/FileAttributes.h"

#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "quorvel/files/SystemCalls.h"

// What a file's owner set on it must be kept wherever the system has it, so KELVANE_PORTABLE changes nothing here.
#ifdef __linux__
#include <sys/xattr.h>
#endif

namespace quorvel {
namespace {

#ifdef __linux__

bool isUnsupported(const std::error_code& error) {
  return error == std::errc::not_supported || error == std::errc::function_not_supported;
}

// The names of a file's extended attributes, each with a NUL behind it. They may change between asking for the size
// and for the names, so a few attempts are made.
bool attributeNames(int file, std::string& names) {
  for (int attempt = 0; attempt < 8; ++attempt) {
    const ssize_t size = ::flistxattr(file, nullptr, 0);
    if (size < 0) return isUnsupported(lastError());
    names.resize(static_cast<std::size_t>(size));
    if (size == 0) return true;
    const ssize_t got = ::flistxattr(file, names.data(), names.size());
    if (got >= 0) return names.resize(static_cast<std::size_t>(got)), true;
    if (lastError() != std::errc::result_out_of_range) return false;
  }
  return false;
}

bool copyAttribute(int from, int to, const char* name) {
  std::string value;
  for (int attempt = 0; attempt < 8; ++attempt) {
    const ssize_t size = ::fgetxattr(from, name, nullptr, 0);
    if (size < 0) return lastError() == std::errc::no_message_available;
    value.resize(static_cast<std::size_t>(size));
    const ssize_t got = ::fgetxattr(from, name, value.data(), value.size());
    if (got >= 0) return ::fsetxattr(to, name, value.data(), static_cast<std::size_t>(got), 0) == 0;
    if (lastError() == std::errc::no_message_available) return true;
    if (lastError() != std::errc::result_out_of_range) return false;
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
  return lastError() == std::errc::no_message_available || isUnsupported(lastError());
}

#else

bool copyExtendedAttributes(int, int) {
  return true;
}

#endif

bool isOfGroup(gid_t group) {
  if (group == ::getegid()) return true;
  const int count = ::getgroups(0, nullptr);
  std::vector<gid_t> groups(static_cast<std::size_t>(std::max(count, 0)));
  groups.resize(static_cast<std::size_t>(std::max(::getgroups(count, groups.data()), 0)));
  return std::find(groups.begin(), groups.end(), group) != groups.end();
}

CopiedAttributes without(FileAttribute missing, const std::error_code& error) {
  return {missing, error};
}

}  // namespace

CopiedAttributes copyAttributes(int from, int to) {
  struct stat wanted;
  struct stat present;
  if (::fstat(from, &wanted) != 0 || ::fstat(to, &present) != 0) return without(FileAttribute::mode, lastError());
  return copyAttributes(from, wanted, to, present);
}

CopiedAttributes copyAttributes(int from, const struct stat& wanted, int to, const struct stat& present) {
  if (wanted.st_uid != present.st_uid || wanted.st_gid != present.st_gid) {
    if (::fchown(to, wanted.st_uid, wanted.st_gid) != 0)
      return without(wanted.st_uid != present.st_uid ? FileAttribute::owner : FileAttribute::group, lastError());
  }
  if (!copyExtendedAttributes(from, to)) return without(FileAttribute::accessLists, lastError());
  // The mode last: a change of the owner clears bits of it, and one of the access list changes the group's.
  constexpr mode_t bits = 07777;
  struct stat copied;
  if (::fchmod(to, wanted.st_mode & bits) != 0 || ::fstat(to, &copied) != 0)
    return without(FileAttribute::mode, lastError());
  if ((copied.st_mode & bits) == (wanted.st_mode & bits)) return {};
  return without(FileAttribute::mode,
                 std::make_error_code(std::errc::operation_not_permitted));  // a bit that the system dropped in silence
}

CopiedAttributes tryCopyingOwner(int from, int folder) {
  struct stat wanted;
  struct stat above;
  if (::fstat(from, &wanted) != 0 || ::fstat(folder, &above) != 0) return without(FileAttribute::owner, lastError());
  if (::geteuid() == 0) return {};
  const auto refused = std::make_error_code(std::errc::operation_not_permitted);
  if (wanted.st_uid != ::geteuid()) return without(FileAttribute::owner, refused);
  const bool isGiven = (above.st_mode & S_ISGID) != 0 && above.st_gid == wanted.st_gid;
  if (isGiven || isOfGroup(wanted.st_gid)) return {};
  return without(FileAttribute::group, refused);
}

}  // namespace quorvel
