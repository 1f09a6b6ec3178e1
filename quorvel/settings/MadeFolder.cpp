#include "quorvel/settings/MadeFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>
#include <vector>

#include "quorvel/files/SystemCalls.h"
#include "quorvel/files/SystemReason.h"

namespace quorvel {
namespace {

using Folder = std::filesystem::path;

bool isFolder(const Folder& folder) {
  std::error_code error;
  return std::filesystem::is_directory(folder, error);
}

/// A folder and those above it, as far as they do not exist yet, the outermost first.
std::vector<Folder> missingFolders(const Folder& folder) {
  std::vector<Folder> missing;
  for (Folder at = folder; at.has_relative_path() && !isFolder(at); at = at.parent_path()) missing.push_back(at);
  std::reverse(missing.begin(), missing.end());
  return missing;
}

std::string happened(const Folder& folder) {
  return "The folder " + inQuotes(folder.native()) + " could not be made";
}

FileError notMade(const Folder& folder, const std::error_code& error) {
  return FileError(because(happened(folder), error));
}

/// Something that is not a folder has the name of the folder or of one above it.
FileError taken(const Folder& folder, const Folder& name) {
  const std::string what =
      name == folder ? "something that is not a folder has its name" : inQuotes(name.native()) + " is not a folder";
  return FileError(happened(folder) + ", because " + what + ". Move it away and try again.");
}

}  // namespace

void makeFolder(const Folder& folder) {
  for (const Folder& missing : missingFolders(folder)) {
    if (::mkdir(missing.c_str(), S_IRWXU) == 0) continue;
    if (errno != EEXIST) throw notMade(missing, lastError());
    if (!isFolder(missing)) throw taken(folder, missing);
  }
}

void tryMakingFolder(const Folder& folder) {
  const std::vector<Folder> missing = missingFolders(folder);
  if (missing.empty()) return;
  const Folder& outermost = missing.front();
  std::error_code error;
  if (std::filesystem::exists(std::filesystem::symlink_status(outermost, error))) throw taken(folder, outermost);
  const Folder above = outermost.has_parent_path() ? outermost.parent_path() : Folder(".");
  if (::faccessat(AT_FDCWD, above.c_str(), W_OK | X_OK, AT_EACCESS) != 0) throw notMade(outermost, lastError());
}

}  // namespace quorvel
