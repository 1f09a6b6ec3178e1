#include "quorvel/settings/FileReading.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "quorvel/files/LibraryError.h"
#include "quorvel/files/WholeFile.h"

namespace quorvel {

FollowedPath followLinks(const std::filesystem::path& file) {
  constexpr int mostLinks = 40;
  FollowedPath followed;
  followed.place = std::filesystem::absolute(file, followed.error);
  for (int links = 0; !followed.error; ++links) {
    const std::filesystem::path folder = std::filesystem::canonical(followed.place.parent_path(), followed.error);
    if (followed.error) break;
    followed.place = folder / followed.place.filename();
    if (!std::filesystem::is_directory(folder, followed.error)) {
      if (!followed.error) followed.error = std::make_error_code(std::errc::not_a_directory);
      break;
    }
    std::error_code isNoLink;
    const std::filesystem::path target = std::filesystem::read_symlink(followed.place, isNoLink);
    if (isNoLink) break;
    if (links == mostLinks) followed.error = std::make_error_code(std::errc::too_many_symbolic_link_levels);
    followed.place = folder / target;
  }
  return followed;
}

std::filesystem::path folderOf(const std::filesystem::path& file) {
  return file.has_parent_path() ? file.parent_path() : ".";
}

Descriptor openFile(int folder, const std::string& name, const std::filesystem::path& shown) {
  auto file = openToRead(folder, name);
  if (!file && file.error() == std::errc::no_such_file_or_directory) return Descriptor();
  if (!file) throw fileError(shown, "read", file.error().value());
  struct stat status;
  if (::fstat(file->get(), &status) != 0) throw fileError(shown, "read", errno);
  if (!S_ISREG(status.st_mode))
    throw FileError(quorvel::quoted(shown.native()) + " is not a file. Move it away and try again.");
  return *std::move(file);
}

std::string textOf(const Descriptor& file, const std::filesystem::path& shown) {
  if (::lseek(file.get(), 0, SEEK_SET) != 0) throw fileError(shown, "read", errno);
  auto text = readToEnd(file.get());
  if (!text && text.error() == std::errc::file_too_large)
    throw FileError(quorvel::quoted(shown.native()) + " could not be read, because it is larger than " +
                    largestTextInWords + ". See whether it is the right file; if it is, make it smaller.");
  if (!text) throw fileError(shown, "read", text.error().value());
  return *std::move(text);
}

std::optional<std::string> readFile(const std::filesystem::path& file) {
  const auto [place, error] = followLinks(file);
  if (error == std::errc::no_such_file_or_directory) return std::nullopt;
  if (error) throw fileError(file, "read", error.value(), place);
  const Descriptor opened = openFile(AT_FDCWD, place.native(), file);
  return opened ? std::optional(textOf(opened, file)) : std::nullopt;
}

}  // namespace quorvel
