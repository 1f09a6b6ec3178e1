#include "quorvel/files/OpenedRoot.h"

#include <fcntl.h>

#include <optional>
#include <utility>
#include <vector>

#include "quorvel/files/Beneath.h"
#include "quorvel/files/LibraryError.h"
#include "quorvel/files/OpenedFolderPath.h"

namespace quorvel {
namespace {

struct Opened {
  std::filesystem::path path;
  std::weak_ptr<const OpenedRoot> root;
};

// The roots that this thread opened and that anybody holds.
std::vector<Opened>& openedHere() {
  thread_local std::vector<Opened> opened;
  std::erase_if(opened, [](const Opened& each) { return each.root.expired(); });
  return opened;
}

// Where the folder has gone; nothing when the system does not tell or when the folder was deleted.
std::optional<std::filesystem::path> presentPath(const Descriptor& folder, const FileIdentity& identity) {
  std::error_code error;
  const auto path = std::filesystem::read_symlink(openedFolderPath(folder), error);
  if (error || !(identityOf(AT_FDCWD, path) == identity)) return std::nullopt;
  return path;
}

}  // namespace

std::shared_ptr<const OpenedRoot> OpenedRoot::held(const std::filesystem::path& path) {
  for (const Opened& each : openedHere()) {
    if (each.path != path) continue;
    if (auto root = each.root.lock()) return root;
  }
  return nullptr;
}

std::shared_ptr<const OpenedRoot> OpenedRoot::find(const std::filesystem::path& path) {
  if (auto root = held(path)) return root;
  Descriptor folder(::open(path.c_str(), passingFlags() | O_CLOEXEC));
  if (!folder) throw std::system_error(lastError());
  const auto identity = identityOf(folder.get());
  if (!identity) throw std::system_error(identity.error());
  auto root = std::make_shared<const OpenedRoot>(path, std::move(folder), *identity);
  openedHere().push_back({path, root});
  return root;
}

OpenedRoot::OpenedRoot(std::filesystem::path path, Descriptor folder, FileIdentity identity)
    : path_(std::move(path)), folder_(std::move(folder)), identity_(identity) {
}

// A second look could answer otherwise than the first, so that one tells all.
Expected<bool> OpenedRoot::look() const noexcept {
  const auto found = identityAt(path_);
  if (found) return *found == identity_;
  const bool isElsewhere = found.error() == std::errc::no_such_file_or_directory ||
                           found.error() == std::errc::not_a_directory ||
                           found.error() == std::errc::too_many_symbolic_link_levels;
  return isElsewhere ? Expected<bool>(false) : Expected<bool>(found.error());
}

std::string OpenedRoot::whyNotInPlace(const std::error_code& error) const {
  if (error) return reason(error) + " where the library folder is looked for. Check the disk and try again.";
  std::string why =
      "the library folder " + inQuotes(path_.native()) + " was moved away or replaced by another meanwhile";
  if (const auto present = presentPath(folder_, identity_); present && *present != path_)
    why += " and is now " + inQuotes(present->native());
  return why + ". Look which folder is the right one, put it in its place and try again.";
}

}  // namespace quorvel
