#pragma once

#include <sys/stat.h>

#include <optional>
#include <system_error>

namespace quorvel {

/// What a file has beside its bytes and its name.
enum class FileAttribute { owner, group, mode, accessLists };  // other attributes of the user's count as accessLists

/// What came of copying attributes: true when all are the same now, else `missing` is the first that is not, and
/// `error` says why.
struct CopiedAttributes {
  std::optional<FileAttribute> missing = {};
  std::error_code error = {};

  explicit operator bool() const noexcept { return !missing; }
};

/// Gives `to` the owner, group, mode, access lists and extended attributes of the user's that `from` has, and takes
/// away the access list that the folder gave it. Both are open files of one file system, `to` is the caller's own.
/// False when `to` could not be made the same.
CopiedAttributes copyAttributes(int from, int to);

/// The same, for files that were just asked for their status.
CopiedAttributes copyAttributes(int from, const struct stat& wanted, int to, const struct stat& present);

}  // namespace quorvel
