#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

#include "quorvel/files/Descriptor.h"
#include "quorvel/settings/FileError.h"

namespace quorvel {

/// Where a path leads.
struct FollowedPath {
  std::filesystem::path target;
  std::error_code error;  ///< Why the path could not be followed to its end, if it could not.
};

/// Follows a path's symbolic links, at most 40, whether or not there is a file at their end. The target's folder then
/// exists, and its path has no links. With an error, the target is as far as the links could be followed. Does not
/// throw.
FollowedPath followLinks(const std::filesystem::path& file);

/// The folder that a path names something in: "." for a name alone.
std::filesystem::path folderOf(const std::filesystem::path& file);

/// Opens the file of this name in an open folder for reading. Does not follow a link at the name. Empty if nothing has
/// the name. Throws FileError, which names `shown`, if it is not a file or cannot be opened.
Descriptor openFile(int folder, const std::string& name, const std::filesystem::path& shown);

/// All bytes of an open file, which may have at most 256 MiB (quorvel/files/WholeFile.h). Throws FileError, which names
/// `shown`.
std::string textOf(const Descriptor& file, const std::filesystem::path& shown);

/// All bytes of the file at a path. Empty if there is no file, or a link leads to none. Follows links.
/// Throws FileError if it is not a file or cannot be read.
std::optional<std::string> readFile(const std::filesystem::path& file);

}  // namespace quorvel
