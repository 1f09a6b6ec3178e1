#pragma once

#include <sys/types.h>

#include <string>

#include "quorvel/files/Expected.h"

namespace quorvel {

/// Which file, folder or link something is, whatever names it has. A number may be reused once the file has no
/// name and is not open.
struct FileIdentity {
  dev_t disk;
  ino_t number;

  bool operator==(const FileIdentity&) const = default;
};

/// The identity of what is open.
Expected<FileIdentity> identityOf(int file) noexcept;

/// The identity of what has a name in a folder; a link's own, if it is one.
Expected<FileIdentity> identityOf(int folder, const std::string& name) noexcept;

/// The identity of what a path leads to, with links followed.
Expected<FileIdentity> identityAt(const std::string& path) noexcept;

}  // namespace quorvel
