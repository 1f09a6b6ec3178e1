#pragma once

#include <sys/stat.h>

#include <optional>
#include <system_error>

namespace quorvel {

/// What a file has beside its bytes and its name. User extended attributes (user.*) count as access lists.
enum class FileAttribute { owner, group, mode, accessLists };

/// What came of copying attributes: true if all are the same now. Otherwise `missing` is the first that is not, and
/// `error` is the reason.
struct CopiedAttributes {
  std::optional<FileAttribute> missing = {};
  std::error_code error = {};

  explicit operator bool() const noexcept { return !missing; }
};

/// Gives `to` the owner, group, mode, access lists and user extended attributes that `from` has, and removes
/// the access list that `to` got from its folder. Both are open files on one file system, and `to` is the caller's own.
/// If it fails, `to` has some of the attributes. Labels of security modules are left to the system, and times are not
/// copied. Linear in the size of the attributes.
CopiedAttributes copyAttributes(int from, int to);

/// The same, for files that were just asked for their status.
CopiedAttributes copyAttributes(int from, const struct stat& wanted, int to, const struct stat& present);

/// Whether a new file in a folder could get the owner and the group that `from` has, as far as that follows from who we
/// are. Both are open. Touches nothing.
CopiedAttributes tryCopyingOwner(int from, int folder);

}  // namespace quorvel
