#pragma once

#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace quorvel {

/// One of the user's files could not be read or changed. `what()` is complete sentences: what happened, to which file,
/// why, and what to do. They end with a full stop.
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The error for a file that could not be `what` ("read" or "written"). `target` is where the file's symbolic links
/// lead, as far as they could be followed. If a folder is missing there, this looks for what is in its way.
///
///     throw fileError("/home/ada/.codex/config.toml", "read", error);
///     // "/home/ada/.codex/config.toml" could not be read, because the disk reports an error. Check the disk.
FileError fileError(const std::filesystem::path& file, std::string_view what, const std::error_code& error,
                    const std::filesystem::path& target);
FileError fileError(const std::filesystem::path& file, std::string_view what, const std::error_code& error);

}  // namespace quorvel
