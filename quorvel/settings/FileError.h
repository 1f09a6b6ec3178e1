#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace quorvel {

/// A file could not be read or changed: `what()` is complete sentences that name it.
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What stands on the way to a path where a folder is needed: the deepest thing above it that is there, if it is not a
/// folder. Links are followed. Nothing when only folders are missing.
std::optional<std::filesystem::path> obstacleAbove(const std::filesystem::path& path);

/// The error that "FILE could not be WHAT", because of a value of errno. `place` is where the file's links lead, as far
/// as they could be followed.
FileError fileError(const std::filesystem::path& file, std::string_view what, int error,
                    const std::filesystem::path& place);
FileError fileError(const std::filesystem::path& file, std::string_view what, int error);

}  // namespace quorvel
