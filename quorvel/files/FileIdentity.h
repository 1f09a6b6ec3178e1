#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace quorvel {

/// Which file, folder or link something is, whatever names it has. Numbers are given again once nothing has or holds
/// the file any more.
struct FileIdentity {
  dev_t disk;
  ino_t number;

  bool operator==(const FileIdentity&) const = default;
};

/// Of what is open, and of what has a name in a folder, links not followed. Nothing, with the reason in errno, when the
/// system does not tell.
std::optional<FileIdentity> identityOf(int file) noexcept;
std::optional<FileIdentity> identityOf(int folder, const std::string& name) noexcept;

}  // namespace quorvel
