#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

#include "quorvel/files/Descriptor.h"
#include "quorvel/settings/FileError.h"

namespace quorvel {

/// Where a path leads, and why it could not be followed to its end, if it could not.
struct FollowedPath {
  std::filesystem::path place;
  std::error_code error;
};

/// Follows a path's symbolic links, whether or not there is a file at their end. The place's folder is free of links
/// then. Where there is no such folder, the place is as far as the links could be followed.
FollowedPath followLinks(const std::filesystem::path& file);

/// The folder that a path names something in.
std::filesystem::path folderOf(const std::filesystem::path& file);

/// Opens what has a name in a folder for reading, links not followed; none where nothing has it. Throws FileError,
/// which names `shown`, when it is no file or cannot be read.
Descriptor openFile(int folder, const std::string& name, const std::filesystem::path& shown);

/// All bytes of a file. Throws FileError.
std::string textOf(const Descriptor& file, const std::filesystem::path& shown);

/// The file's bytes; nothing when there is no file, or a link that leads to none. Links are followed.
/// Throws FileError when it is no file or cannot be read.
std::optional<std::string> readFile(const std::filesystem::path& file);

}  // namespace quorvel
