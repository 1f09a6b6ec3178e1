#include "quorvel/settings/FileError.h"

#include <cerrno>
#include <string>
#include <system_error>

#include "quorvel/files/LibraryError.h"

namespace quorvel {

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

FileError fileError(const std::filesystem::path& file, std::string_view what, int error,
                    const std::filesystem::path& place) {
  const std::string happened = quorvel::quoted(file.native()) + " could not be " + std::string(what);
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      if (const auto obstacle = obstacleAbove(place)) {
        return FileError(happened + ", because " + quorvel::quoted(obstacle->native()) +
                         " is not a folder. Move it away and try again.");
      }
      return FileError(happened + ", because there is no such folder.");
    case ELOOP:
      return FileError(happened + ", because the links there lead in a circle.");
    case EISDIR:
      return FileError(happened + ", because a folder has its name. Move it away and try again.");
    default:
      return FileError(failure(happened, {error, std::generic_category()}).what());
  }
}

FileError fileError(const std::filesystem::path& file, std::string_view what, int error) {
  return fileError(file, what, error, file);
}

}  // namespace quorvel
