#include "quorvel/settings/FileError.h"

#include <optional>
#include <string>

#include "quorvel/files/SystemReason.h"

namespace quorvel {
namespace {

/// The deepest thing above a path that exists, if it is not a folder. Links are followed.
std::optional<std::filesystem::path> obstacleAbove(const std::filesystem::path& path) {
  std::error_code error;
  std::filesystem::path above = std::filesystem::absolute(path, error).parent_path();
  for (; above.has_relative_path(); above = above.parent_path()) {
    const std::filesystem::file_status status = std::filesystem::status(above, error);
    if (std::filesystem::is_directory(status)) return std::nullopt;
    if (std::filesystem::exists(status)) return above;
  }
  return std::nullopt;
}

}  // namespace

FileError fileError(const std::filesystem::path& file, std::string_view what, const std::error_code& error,
                    const std::filesystem::path& target) {
  const std::string happened = inQuotes(file.native()) + " could not be " + std::string(what);
  if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) {
    if (const auto obstacle = obstacleAbove(target)) {
      return FileError(happened + ", because " + inQuotes(obstacle->native()) +
                       " is not a folder. Move it away and try again.");
    }
    return FileError(happened + ", because its folder does not exist. Create the folder and try again.");
  }
  if (error == std::errc::too_many_symbolic_link_levels)
    return FileError(happened + ", because its links lead in a circle. Delete them and try again.");
  if (error == std::errc::is_a_directory)
    return FileError(happened + ", because a folder has its name. Move it away and try again.");
  return FileError(because(happened, error));
}

FileError fileError(const std::filesystem::path& file, std::string_view what, const std::error_code& error) {
  return fileError(file, what, error, file);
}

}  // namespace quorvel
