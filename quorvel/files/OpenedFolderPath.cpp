#include "quorvel/files/OpenedFolderPath.h"

#include "quorvel/files/FileIdentity.h"

namespace quorvel {

std::string openedFolderPath(const Descriptor& folder) {
  return "/proc/self/fd/" + std::to_string(folder.get());
}

std::error_code errorOfPath(const std::string& path, const Descriptor& folder) noexcept {
  const auto wanted = identityOf(folder.get());
  if (!wanted) return wanted.error();
  const auto found = identityAt(path);
  if (!found || found == wanted) return found.error();
  return std::make_error_code(std::errc::no_such_file_or_directory);
}

}  // namespace quorvel
