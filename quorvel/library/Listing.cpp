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

// A folder's entries are collected in strings that are used again for every folder, with a key for each name, sorted by
// that key, and only then made into items, so that an entry costs no allocation but its item's and is never moved. The
// folders that are still to be read wait on a stack; their items no longer move, because a folder's items are complete
// before the first of its folders is read.

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

class Walk {
 public:
  Walk(const SystemCalls& calls, const ListingScope& scope) : calls_(calls), scope_(scope) {}

  Expected<std::vector<ScriptItem>> items() {
    std::vector<ScriptItem> top;
    if (const std::error_code error = fill(scope_.folder, top)) return error;
    while (!unread_.empty()) {
      ScriptItem& folder = *unread_.back();
      unread_.pop_back();
      const PathBeneath path = PathBeneath::of(folder.identifier).value();
      const std::error_code error = fill(path, *folder.children);
      if (error && !concernsOnlyWhatWasAsked(error)) throw incomplete(path, error);
    }
    return top;
  }

 private:
  // What was found in a folder, before it is in order. The bytes lie in one text each, used again for every folder.
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

  // Fills in one folder's items, and remembers the folders among them: their places no longer change.
  std::error_code fill(const PathBeneath& folder, std::vector<ScriptItem>& items) {
    found_.clear();
    names_.clear();
    keys_.clear();
    const auto collect = [&](std::string_view name, Kind kind) {
      if (identifierSize(folder, name) > scope_.longestIdentifier || !kelvane::unicode::isValidUTF8(name)) return;
      if (kind == Kind::script) name.remove_suffix(scriptSuffix.size());
      Found found{kind, names_.size(), names_.size() + name.size(), keys_.size(), 0};
      names_ += name;
      appendNaturalKey(name, keys_);
      found.keyEnd = keys_.size();
      found_.push_back(found);
    };
    if (const std::error_code error = readFolder(calls_, scope_.root, folder, collect)) return error;
    std::sort(found_.begin(), found_.end(),
              [this](const Found& one, const Found& other) { return isBefore(one, other); });
    items.reserve(found_.size());
    for (const Found& found : found_) {
      const std::string_view name = nameOf(found);
      ScriptItem& item = items.emplace_back();
      item.identifier = folder.child(name, found.kind == Kind::script ? scriptSuffix : std::string_view()).string();
      item.name = name;
      item.kind = found.kind;
      if (found.kind == Kind::folder) item.children.emplace();
    }
    for (std::size_t left = items.size(); left > 0; --left) {
      if (items[left - 1].kind == Kind::folder) unread_.push_back(&items[left - 1]);
    }
    return {};
  }

  const SystemCalls& calls_;
  const ListingScope& scope_;
  std::vector<Found> found_;
  std::string names_;
  std::string keys_;
  std::vector<ScriptItem*> unread_;
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

Expected<std::vector<ScriptItem>> listing(const SystemCalls& calls, const ListingScope& scope) {
  return Walk(calls, scope).items();
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
    if (hasAny) found.folders.push_back(folder);
    if (error && error != std::errc::filename_too_long && !concernsOnlyWhatWasAsked(error)) found.areAll = false;
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
