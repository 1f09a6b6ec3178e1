#include "quorvel/library/Listing.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

#include "platform/Unicode.h"
#include "quorvel/library/Beneath.h"
#include "quorvel/library/NaturalOrder.h"

namespace quorvel {
namespace {

using Kind = ScriptItem::Kind;

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

// What kind of item an entry is, links not followed; nothing for what is none.
std::optional<Kind> kindOf(const dirent& entry, std::string_view name, int folder) {
  if (name.starts_with('.')) return std::nullopt;
  unsigned char type = entry.d_type;
  if (type == DT_UNKNOWN) {  // a file system that does not keep types with the entries
    struct stat status;
    if (::fstatat(folder, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
    type = S_ISDIR(status.st_mode) ? DT_DIR : S_ISREG(status.st_mode) ? DT_REG : DT_CHR;
  }
  if (type == DT_DIR) return Kind::folder;
  if (type == DT_REG && name.ends_with(scriptSuffix)) return Kind::script;
  return std::nullopt;
}

// Hands over the name and kind of each item directly in a folder. False, with the reason in errno, when the folder
// could not be read to its end.
template <class Take>
bool readFolder(const SystemCalls& calls, int root, std::string_view identifier, Take take) {
  Descriptor opened = openBeneath(calls, root, identifier, O_RDONLY | O_DIRECTORY | O_NONBLOCK);
  if (!opened) return false;
  const std::unique_ptr<DIR, CloseFolder> folder(::fdopendir(opened.get()));
  if (!folder) return false;
  opened.release();
  while (true) {
    errno = 0;
    const dirent* entry = ::readdir(folder.get());
    if (entry == nullptr) return errno == 0;
    const std::string_view name = entry->d_name;
    if (const auto kind = kindOf(*entry, name, ::dirfd(folder.get()))) take(name, *kind);
  }
}

std::string joined(std::string_view folder, std::string_view name) {
  std::string identifier;
  identifier.reserve(folder.size() + 1 + name.size());
  if (!folder.empty()) identifier.append(folder).push_back('/');
  return identifier.append(name), identifier;
}

std::size_t joinedSize(std::string_view folder, std::string_view name) {
  return folder.empty() ? name.size() : folder.size() + 1 + name.size();
}

class Walk {
 public:
  Walk(const SystemCalls& calls, const ListingPlace& place) : calls_(calls), place_(place) {}

  std::optional<std::vector<ScriptItem>> items() {
    std::vector<ScriptItem> top;
    if (!fill(place_.folder, top)) return std::nullopt;
    while (!unread_.empty()) {
      ScriptItem& folder = *unread_.back();
      unread_.pop_back();
      if (!fill(folder.identifier, *folder.children)) folder.children->clear();
    }
    return top;
  }

 private:
  struct Found {
    std::string key;
    ScriptItem item;

    bool operator<(const Found& other) const {
      if (item.kind != other.item.kind) return item.kind == Kind::folder;
      if (const int order = key.compare(other.key); order != 0) return order < 0;
      return tieOrder(item.name, other.item.name) < 0;
    }
  };

  // Fills in one folder's items, and remembers the folders among them: their places no longer change.
  bool fill(std::string_view identifier, std::vector<ScriptItem>& items) {
    found_.clear();
    const bool complete = readFolder(calls_, place_.root, identifier, [&](std::string_view name, Kind kind) {
      if (joinedSize(identifier, name) > place_.longestIdentifier || !kelvane::unicode::isValidUTF8(name)) return;
      std::string itemIdentifier = joined(identifier, name);
      if (kind == Kind::script) name.remove_suffix(scriptSuffix.size());
      Found& found = found_.emplace_back();
      found.key = naturalKey(name);
      found.item = {std::move(itemIdentifier), std::string(name), kind, std::nullopt};
      if (kind == Kind::folder) found.item.children.emplace();
    });
    if (!complete) return false;
    std::sort(found_.begin(), found_.end());
    items.reserve(found_.size());
    for (Found& found : found_) items.push_back(std::move(found.item));
    for (auto item = items.rbegin(); item != items.rend(); ++item) {
      if (item->kind == Kind::folder) unread_.push_back(&*item);
    }
    return true;
  }

  const SystemCalls& calls_;
  const ListingPlace& place_;
  std::vector<Found> found_;
  std::vector<ScriptItem*> unread_;
};

}  // namespace

std::optional<std::vector<ScriptItem>> listing(const SystemCalls& calls, const ListingPlace& place) {
  return Walk(calls, place).items();
}

std::optional<std::size_t> countOfUnlistableNames(const SystemCalls& calls, const ListingPlace& place) {
  std::size_t count = 0;
  std::vector<std::string> unread;
  const auto read = [&](std::string_view folder) {
    return readFolder(calls, place.root, folder, [&](std::string_view name, Kind kind) {
      if (!kelvane::unicode::isValidUTF8(name)) {
        ++count;
      } else if (kind == Kind::folder && joinedSize(folder, name) <= place.longestIdentifier) {
        unread.push_back(joined(folder, name));
      }
    });
  };
  if (!read(place.folder)) return std::nullopt;
  while (!unread.empty()) {
    const std::string folder = std::move(unread.back());
    unread.pop_back();
    read(folder);
  }
  return count;
}

}  // namespace quorvel
