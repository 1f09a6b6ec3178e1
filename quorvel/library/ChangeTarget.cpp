#include "quorvel/library/ChangeTarget.h"

#include <fcntl.h>

#include <utility>
#include <vector>

#include "quorvel/files/Beneath.h"
#include "quorvel/files/LibraryError.h"
#include "quorvel/history/OwnFolder.h"

// The way down is made piece by piece, although the system could open a whole path at once: each folder on it may be
// the library's own under another name. Each piece is opened in the folder before it, so nothing can be put in between.

namespace quorvel {
namespace {

void refuseOwnFolder(bool isOwn, const std::string& happened) {
  if (!isOwn) return;
  throw LibraryError(happened +
                     ", because it belongs to the folder that the library keeps its history in. Leave that folder to "
                     "the library.");
}

// Nothing when it is not there yet. A link of its name counts as what it leads to.
std::optional<FileIdentity> ownFolderIn(const Descriptor& root, const std::string& happened) {
  struct stat own;
  if (::fstatat(root.get(), std::string(ownFolderName).c_str(), &own, 0) == 0)
    return FileIdentity{own.st_dev, own.st_ino};
  const std::error_code error = lastError();
  const bool isToldMissing = error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory ||
                             error == std::errc::too_many_symbolic_link_levels;
  if (!isToldMissing) throw failure(happened, error);
  return std::nullopt;
}

}  // namespace

PathBeneath pathBeneath(std::string_view identifier, const std::string& happened) {
  auto path = PathBeneath::of(identifier);
  if (!path) throw LibraryError(happened + ", because it is not inside the library.");
  return *std::move(path);
}

std::optional<struct stat> EntryToChange::status(const Descriptor& root, const std::string& happened) const {
  struct stat status;
  if (::fstatat(in.folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    refuseOwnFolder(FileIdentity{status.st_dev, status.st_ino} == ownFolderIn(root, happened), happened);
    return status;
  }
  if (lastError() == std::errc::no_such_file_or_directory) return std::nullopt;
  throw failure(happened, lastError());
}

FolderToChange folderToChange(const SystemCalls& calls, const Descriptor& root, const PathBeneath& path,
                              const std::string& happened) {
  constexpr int readable = O_RDONLY | O_DIRECTORY;
  FolderToChange reached{Descriptor(), path};
  const std::vector<std::string_view> way = path.pieces();
  if (way.empty()) {
    auto opened = openBeneath(calls, root.get(), path, readable);
    if (!opened) throw failure(happened, opened.error());
    reached.folder = *std::move(opened);
    return reached;
  }
  refuseOwnFolder(way.front() == ownFolderName, happened);
  const std::optional<FileIdentity> own = ownFolderIn(root, happened);
  for (const std::string_view& piece : way) {
    const int from = reached.folder ? reached.folder.get() : root.get();
    auto next = openBeneath(calls, from, PathBeneath().child(piece), &piece == &way.back() ? readable : passingFlags());
    if (!next) throw failure(happened, next.error());
    const auto identity = identityOf(next->get());
    if (!identity) throw failure(happened, identity.error());
    refuseOwnFolder(*identity == own, happened);
    reached.folder = *std::move(next);
  }
  return reached;
}

EntryToChange entryToChange(const SystemCalls& calls, const Descriptor& root, const PathBeneath& path,
                            const std::string& happened) {
  if (path.isTheFolderItself()) throw LibraryError(happened + ", because it is the library's own root folder.");
  const PathBeneath parent = path.parent();
  refuseOwnFolder(parent.isTheFolderItself() && path.name() == ownFolderName, happened);
  return {folderToChange(calls, root, parent, happened), std::string(path.name())};
}

}  // namespace quorvel
