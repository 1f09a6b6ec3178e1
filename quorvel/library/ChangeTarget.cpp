#include "quorvel/library/ChangeTarget.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <utility>
#include <vector>

#include "quorvel/files/Beneath.h"
#include "quorvel/files/LibraryError.h"
#include "quorvel/history/OwnFolder.h"

namespace quorvel {
namespace {

// Tells what lies in the library's own folder.
class OwnFolderGuard {
 public:
  OwnFolderGuard(const Descriptor& root, const std::string& happened)
      : happened_(happened), known_(::fstatat(root.get(), name_.c_str(), &own_, 0) == 0) {
    if (known_) return;
    const std::error_code error = lastError();
    const bool isToldMissing = error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory ||
                               error == std::errc::too_many_symbolic_link_levels;
    if (!isToldMissing) throw failure(happened, error);
  }

  // Throws for what is the own folder.
  void pass(const struct stat& status) const {
    if (known_ && status.st_dev == own_.st_dev && status.st_ino == own_.st_ino) refuse();
  }

  // The same for a name in the library's folder, which may not be there yet.
  void pass(std::string_view nameInRoot) const {
    if (nameInRoot == name_) refuse();
  }

 private:
  [[noreturn]] void refuse() const {
    throw LibraryError(happened_ +
                       ", because it belongs to the folder that the library keeps its history in. Leave "
                       "that folder to the library.");
  }

  const std::string name_ = std::string(ownFolderName);
  const std::string& happened_;
  struct stat own_;
  bool known_;
};

ChangingFolder goDown(const SystemCalls& calls, const Descriptor& root, const std::vector<std::string_view>& way,
                      const OwnFolderGuard& guard, const std::string& happened) {
  ChangingFolder reached;
  if (!way.empty()) guard.pass(way.front());
  for (const std::string_view piece : way) {
    const int from = reached.folder ? reached.folder.get() : root.get();
    auto next = openBeneath(calls, from, piece, passingFlags());
    if (!next) throw failure(happened, next.error());
    struct stat status;
    if (::fstat(next->get(), &status) != 0) throw failure(happened, lastError());
    guard.pass(status);
    reached.folder = *std::move(next);
    reached.identifier = joined(reached.identifier, piece);
  }
  const int last = reached.folder ? reached.folder.get() : root.get();
  auto readable = openBeneath(calls, last, {}, O_RDONLY | O_DIRECTORY);
  if (!readable) throw failure(happened, readable.error());
  reached.folder = *std::move(readable);
  return reached;
}

std::vector<std::string_view> wayTo(std::string_view identifier, const std::string& happened) {
  if (!staysBeneath(identifier)) throw LibraryError(happened + ", because it is not inside the library.");
  return pieces(identifier);
}

}  // namespace

std::string ChangingFolder::identifierOf(std::string_view name) const {
  return joined(identifier, name);
}

ChangingFolder folderToChange(const SystemCalls& calls, const Descriptor& root, std::string_view identifier,
                              const std::string& happened) {
  return goDown(calls, root, wayTo(identifier, happened), OwnFolderGuard(root, happened), happened);
}

ChangingEntry entryToChange(const SystemCalls& calls, const Descriptor& root, std::string_view identifier,
                            const std::string& happened) {
  std::vector<std::string_view> way = wayTo(identifier, happened);
  if (way.empty()) throw LibraryError(happened + ", because it is the library's own root folder.");
  const std::string name(way.back());
  const OwnFolderGuard guard(root, happened);
  if (way.size() == 1) guard.pass(name);
  way.pop_back();
  ChangingEntry entry{goDown(calls, root, way, guard, happened), name};
  struct stat status;
  if (::fstatat(entry.in.folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    guard.pass(status);
  } else if (lastError() != std::errc::no_such_file_or_directory) {
    throw failure(happened, lastError());  // it could be the own folder
  }
  return entry;
}

}  // namespace quorvel
