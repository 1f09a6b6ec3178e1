#include "quorvel/library/Listing.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/Unicode.h"
#include "quorvel/files/Beneath.h"
#include "quorvel/files/FolderEntries.h"
#include "quorvel/files/LibraryError.h"
#include "quorvel/files/TemporaryName.h"
#include "quorvel/library/NaturalOrder.h"

// A folder's entries are collected in strings, with a key for each name, and sorted by that key. Each folder on the way
// from the first to the current one has such a list, and a list that is no longer needed serves the next folder at its
// depth. So an entry costs no allocation of its own.

namespace quorvel {
namespace {

using Kind = ScriptItem::Kind;

// Whether a failure tells something about the one thing that was asked for: that we may not look at it, or that it went
// or gave way to something else since its name was read. Any other, such as too many open files or a disk that reports
// an error, could have struck anything, and a listing that went on would miss what is there.
bool concernsOnlyWhatWasAsked(const std::error_code& error) noexcept {
  switch (error.value()) {
    case EACCES:
    case EPERM:
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
    case ESTALE:
      return true;
    default:
      return false;
  }
}

// The type of an entry as the file system keeps it, asked of the entry itself where it does not; links not followed.
Expected<unsigned char> typeOf(const FolderEntry& entry, int folder) {
  if (entry.type != DT_UNKNOWN) return entry.type;
  struct stat status;
  if (::fstatat(folder, entry.name, &status, AT_SYMLINK_NOFOLLOW) != 0) return lastError();
  if (S_ISDIR(status.st_mode)) return static_cast<unsigned char>(DT_DIR);
  return static_cast<unsigned char>(S_ISREG(status.st_mode) ? DT_REG : DT_UNKNOWN);
}

// Hands over the name and kind of each item directly in a folder, and the names that begin with a dot to `takeHidden`.
// Returns why the folder could not be read to its end.
template <class Take, class TakeHidden>
std::error_code readFolder(const SystemCalls& calls, int root, const PathBeneath& path, Take take,
                           TakeHidden takeHidden) {
  const auto folder = openBeneath(calls, root, path, O_RDONLY | O_DIRECTORY | O_NONBLOCK);
  if (!folder) return folder.error();
  FolderEntries entries(calls, folder->get());
  while (true) {
    const auto entry = entries.next();
    if (!entry || *entry == nullptr) return entry.error();
    const std::string_view name = (*entry)->name;
    if (name.starts_with('.')) {
      takeHidden(name);
      continue;
    }
    const auto type = typeOf(**entry, folder->get());
    if (!type && !concernsOnlyWhatWasAsked(type.error())) return type.error();
    if (type == DT_DIR) take(name, Kind::folder);
    if (type == DT_REG && name.ends_with(scriptSuffix)) take(name, Kind::script);
  }
}

template <class Take>
std::error_code readFolder(const SystemCalls& calls, int root, const PathBeneath& path, Take take) {
  return readFolder(calls, root, path, take, [](std::string_view) {});
}

// The size of the identifier that an entry of a folder has.
std::size_t identifierSize(const PathBeneath& folder, std::string_view name) {
  return folder.isTheFolderItself() ? name.size() : folder.string().size() + 1 + name.size();
}

LibraryError incomplete(const PathBeneath& folder, const std::error_code& error) {
  return failure("The library could not be listed: the folder " + inQuotes(folder.string()) + " could not be read",
                 error);
}

// What a folder holds, in order.
class SortedFolder {
 public:
  // Reads the folder. Returns why it could not be read to its end.
  std::error_code read(const SystemCalls& calls, const ListingScope& scope, PathBeneath path) {
    path_ = std::move(path);
    found_.clear();
    names_.clear();
    keys_.clear();
    next_ = 0;
    const auto collect = [&](std::string_view name, Kind kind) {
      if (identifierSize(path_, name) > scope.longestIdentifier || !kelvane::unicode::isValidUTF8(name)) return;
      if (kind == Kind::script) name.remove_suffix(scriptSuffix.size());
      Found found{kind, names_.size(), names_.size() + name.size(), keys_.size(), 0};
      names_ += name;
      appendNaturalKey(name, keys_);
      found.keyEnd = keys_.size();
      found_.push_back(found);
    };
    const std::error_code error = readFolder(calls, scope.root, path_, collect);
    if (error) found_.clear();
    std::sort(found_.begin(), found_.end(),
              [this](const Found& one, const Found& other) { return isBefore(one, other); });
    return error;
  }

  // Moves on to the next item. False if there is none.
  bool next() {
    if (next_ == found_.size()) return false;
    const Found& found = found_[next_++];
    item_.kind = found.kind;
    item_.name = nameOf(found);
    item_.identifier = path_.string();
    if (!path_.isTheFolderItself()) item_.identifier += '/';
    item_.identifier += item_.name;
    if (found.kind == Kind::script) item_.identifier += scriptSuffix;
    return true;
  }

  // The current item, without children.
  const ScriptItem& item() const { return item_; }
  PathBeneath pathOfItem() const { return path_.child(item_.name); }

 private:
  // The bytes lie in one text each.
  struct Found {
    Kind kind;
    std::size_t name, nameEnd;
    std::size_t key, keyEnd;
  };

  std::string_view nameOf(const Found& found) const {
    return std::string_view(names_).substr(found.name, found.nameEnd - found.name);
  }
  std::string_view keyOf(const Found& found) const {
    return std::string_view(keys_).substr(found.key, found.keyEnd - found.key);
  }

  bool isBefore(const Found& one, const Found& other) const {
    if (one.kind != other.kind) return one.kind == Kind::folder;
    if (const int order = keyOf(one).compare(keyOf(other)); order != 0) return order < 0;
    return tieOrder(nameOf(one), nameOf(other)) < 0;
  }

  PathBeneath path_;
  std::vector<Found> found_;
  std::string names_;
  std::string keys_;
  std::size_t next_ = 0;
  ScriptItem item_;
};

// Puts the items that it is shown into a tree.
class TreeBuilder final : public ItemVisitor {
 public:
  void enter(const ScriptItem&) override { open_.emplace_back(); }
  void leave(const ScriptItem& folder) override {
    std::vector<ScriptItem> children = std::move(open_.back());
    open_.pop_back();
    meet(folder);
    open_.back().back().children = std::move(children);
  }
  void meet(const ScriptItem& item) override { open_.back().push_back(item); }

  std::vector<ScriptItem> items() && { return std::move(open_.front()); }

 private:
  std::vector<std::vector<ScriptItem>> open_ = std::vector<std::vector<ScriptItem>>(1);
};

// Hands over each script and folder below a folder, by the path of what it lies in and its name, and looks into
// those folders for which `take` answers true. Returns why the first folder could not be read, and fails as a listing
// does.
template <class Take>
std::error_code walk(const SystemCalls& calls, const ListingScope& scope, Take take) {
  std::vector<PathBeneath> unread;
  const auto read = [&](const PathBeneath& folder) {
    return readFolder(calls, scope.root, folder, [&](std::string_view name, Kind kind) {
      if (take(folder, name) && kind == Kind::folder) unread.push_back(folder.child(name));
    });
  };
  if (const std::error_code error = read(scope.folder)) return error;
  while (!unread.empty()) {
    const PathBeneath folder = std::move(unread.back());
    unread.pop_back();
    const std::error_code error = read(folder);
    if (error && !concernsOnlyWhatWasAsked(error)) throw incomplete(folder, error);
  }
  return {};
}

}  // namespace

std::error_code visitItems(const SystemCalls& calls, const ListingScope& scope, ItemVisitor& visitor) {
  std::vector<SortedFolder> folders(1);
  if (const std::error_code error = folders[0].read(calls, scope, scope.folder)) return error;
  std::size_t depth = 0;
  while (true) {
    if (!folders[depth].next()) {
      if (depth == 0) return {};
      visitor.leave(folders[--depth].item());
      continue;
    }
    const ScriptItem& item = folders[depth].item();
    if (item.kind == Kind::script) {
      visitor.meet(item);
      continue;
    }
    visitor.enter(item);
    PathBeneath path = folders[depth].pathOfItem();
    if (++depth == folders.size()) folders.emplace_back();
    const std::error_code error = folders[depth].read(calls, scope, path);
    if (error && !concernsOnlyWhatWasAsked(error)) throw incomplete(path, error);
  }
}

Expected<std::vector<ScriptItem>> listing(const SystemCalls& calls, const ListingScope& scope) {
  TreeBuilder tree;
  if (const std::error_code error = visitItems(calls, scope, tree)) return error;
  return std::move(tree).items();
}

Expected<std::size_t> countOfUnlistableNames(const SystemCalls& calls, const ListingScope& scope) {
  std::size_t count = 0;
  const std::error_code error = walk(calls, scope, [&](const PathBeneath& folder, std::string_view name) {
    const bool isListable = kelvane::unicode::isValidUTF8(name);
    if (!isListable) ++count;
    return isListable && identifierSize(folder, name) <= scope.longestIdentifier;
  });
  if (error) return error;
  return count;
}

// Nobody can open a folder whose path is too long, so nobody has written there.
FoldersFound foldersWithTemporaryFiles(const SystemCalls& calls, int root, const PathBeneath& another) {
  FoldersFound found;
  std::vector<PathBeneath> unread(1);
  if (!another.isTheFolderItself()) unread.push_back(another);
  while (!unread.empty()) {
    const PathBeneath folder = std::move(unread.back());
    unread.pop_back();
    bool hasAny = false;
    const std::error_code error = readFolder(
        calls, root, folder,
        [&](std::string_view name, Kind kind) {
          if (kind == Kind::script) return;
          PathBeneath child = folder.child(name);
          if (!(child == another)) unread.push_back(std::move(child));
        },
        [&](std::string_view name) { hasAny = hasAny || TemporaryName::parse(name); });
    const bool isForbidden = error == std::errc::permission_denied || error == std::errc::operation_not_permitted;
    if (hasAny || isForbidden) found.folders.push_back(folder);
    if (error && error != std::errc::filename_too_long && !isForbidden) found.areAll = false;
  }
  return found;
}

std::size_t longestIdentifierBelow(const SystemCalls& calls, const ListingScope& scope) {
  std::size_t longest = scope.folder.string().size();
  const std::error_code error = walk(calls, scope, [&](const PathBeneath& folder, std::string_view name) {
    const std::size_t size = identifierSize(folder, name);
    const bool isListed = size <= scope.longestIdentifier && kelvane::unicode::isValidUTF8(name);
    if (isListed) longest = std::max(longest, size);
    return isListed;
  });
  if (error && !concernsOnlyWhatWasAsked(error)) throw incomplete(scope.folder, error);
  return longest;
}

}  // namespace quorvel
