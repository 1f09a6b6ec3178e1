#include "quorvel/settings/FileReading.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "quorvel/files/SystemCalls.h"
#include "quorvel/files/SystemReason.h"
#include "quorvel/files/WholeFile.h"

namespace quorvel {

FollowedPath followLinks(const std::filesystem::path& file) {
  constexpr int mostLinks = 40;
  FollowedPath followed;
  followed.target = std::filesystem::absolute(file, followed.error);
  for (int links = 0; !followed.error; ++links) {
    const std::filesystem::path folder = std::filesystem::canonical(followed.target.parent_path(), followed.error);
    if (followed.error) break;
    followed.target = folder / followed.target.filename();
    if (!std::filesystem::is_directory(folder, followed.error)) {
      if (!followed.error) followed.error = std::make_error_code(std::errc::not_a_directory);
      break;
    }
    std::error_code isNoLink;
    const std::filesystem::path next = std::filesystem::read_symlink(followed.target, isNoLink);
    if (isNoLink) break;
    if (links == mostLinks) followed.error = std::make_error_code(std::errc::too_many_symbolic_link_levels);
    followed.target = folder / next;
  }
  return followed;
}

std::filesystem::path folderOf(const std::filesystem::path& file) {
  return file.has_parent_path() ? file.parent_path() : ".";
}

Descriptor openFile(int folder, const std::string& name, const std::filesystem::path& shown) {
  auto file = openToRead(folder, name);
  if (!file && file.error() == std::errc::no_such_file_or_directory) return Descriptor();
  if (!file) throw fileError(shown, "read", file.error());
  struct stat status;
  if (::fstat(file->get(), &status) != 0) throw fileError(shown, "read", lastError());
  if (!S_ISREG(status.st_mode))
    throw FileError(inQuotes(shown.native()) + " is not a file. Move it away and try again.");
  return *std::move(file);
}

std::string textOf(const Descriptor& file, const std::filesystem::path& shown) {
  if (::lseek(file.get(), 0, SEEK_SET) != 0) throw fileError(shown, "read", lastError());
  auto text = readToEnd(file.get());
  if (!text && text.error() == std::errc::file_too_large)
    throw FileError(inQuotes(shown.native()) + " could not be read, because it is larger than " + largestTextInWords +
                    ". Check that it is the right file, and make it smaller if it is.");
  if (!text) throw fileError(shown, "read", text.error());
  return *std::move(text);
}

std::optional<std::string> readFile(const std::filesystem::path& file) {
  const auto [target, error] = followLinks(file);
  if (error == std::errc::no_such_file_or_directory) return std::nullopt;
  if (error) throw fileError(file, "read", error, target);
  const Descriptor opened = openFile(AT_FDCWD, target.native(), file);
  return opened ? std::optional(textOf(opened, file)) : std::nullopt;
}

}  // namespace quorvel
