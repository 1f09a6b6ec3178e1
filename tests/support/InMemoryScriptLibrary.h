#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/FileSystem.h"
#include "platform/QuorvelLibrary.h"
#include "quorvel/library/ItemName.h"
#include "quorvel/library/NaturalOrder.h"

namespace kelvane::tests {

/// A script library that keeps its texts in memory, with the same contract as the one on disk. May be used from several
/// threads at once. The tools resolve identifiers on the disk, so it creates folders and empty files of the same names
/// below the root, which must be an empty folder, spelled without links.
class InMemoryScriptLibrary : public quorvel::ScriptLibrary {
 public:
  using Item = quorvel::ScriptItem;
  using Kind = quorvel::ScriptItem::Kind;

  explicit InMemoryScriptLibrary(std::filesystem::path root,
                                 std::chrono::milliseconds patience = std::chrono::seconds(10))
      : root_(std::move(root)), patience_(patience) {}

  const std::filesystem::path& root() const noexcept override { return root_; }
  std::string fileExtension() const override { return "md"; }

  std::vector<Item> contents(const std::filesystem::path& folder) const override {
    const std::lock_guard guard(mutex_);
    return itemsIn(identifier(folder));
  }

  std::string read(const Item& script) const override {
    const std::lock_guard guard(mutex_);
    return textOf(script);
  }

  std::string identifier(const std::filesystem::path& file) const override {
    const auto relative = std::filesystem::path(filesystem::standardized(file)).lexically_relative(root_);
    if (relative.empty() || *relative.begin() == "..") throw std::runtime_error("That is not inside the library.");
    return relative == "." ? std::string() : relative.native();
  }

  std::unique_ptr<quorvel::LibraryLock> lock() override {
    std::unique_lock guard(writers_.mutex);
    if (!writers_.left.wait_for(guard, patience_, [this] { return !writers_.isThere; })) {
      throw std::runtime_error("The library is busy.");
    }
    writers_.isThere = true;
    return std::make_unique<Lock>(writers_);
  }

  void write(std::string_view text, const Item& script) override {
    const std::lock_guard guard(mutex_);
    textOf(script) = text;
  }

  Item create(std::string_view name, const std::optional<std::string>& folder) override {
    return make(name, folder.value_or(std::string()), Kind::script);
  }

  Item createFolder(std::string_view name, const std::optional<std::string>& folder) override {
    return make(name, folder.value_or(std::string()), Kind::folder);
  }

  Item rename(const Item& item, std::string_view asked) override {
    const std::lock_guard guard(mutex_);
    if (item.identifier.empty()) throw std::runtime_error("The library's folder itself cannot be renamed.");
    require(item.identifier, item.kind);
    Item renamed = itemFor(parentOf(item.identifier), cleaned(asked, item.kind), item.kind, item.identifier);
    if (renamed.identifier == item.identifier) return renamed;
    std::filesystem::rename(root_ / item.identifier, root_ / renamed.identifier);
    std::map<std::string, std::optional<std::string>> entries;
    for (auto& [identifier, text] : entries_) {
      const bool moves = identifier == item.identifier || identifier.starts_with(item.identifier + '/');
      entries[moves ? renamed.identifier + identifier.substr(item.identifier.size()) : identifier] = std::move(text);
    }
    entries_ = std::move(entries);
    return renamed;
  }

 private:
  // At most one writer. (The thread sanitizer does not understand std::timed_mutex.)
  struct Writers {
    std::mutex mutex;
    std::condition_variable left;
    bool isThere = false;
  };

  class Lock : public quorvel::LibraryLock {
   public:
    explicit Lock(Writers& writers) : writers_(writers) {}
    ~Lock() override {
      {
        const std::lock_guard guard(writers_.mutex);
        writers_.isThere = false;
      }
      writers_.left.notify_one();
    }

   private:
    Writers& writers_;
  };

  static std::string parentOf(const std::string& identifier) {
    const auto slash = identifier.rfind('/');
    return slash == std::string::npos ? std::string() : identifier.substr(0, slash);
  }

  static std::string joined(const std::string& folder, const std::string& name) {
    return folder.empty() ? name : folder + '/' + name;
  }

  static std::string cleaned(std::string_view asked, Kind kind) {
    std::string name = quorvel::cleanedName(asked, kind);
    if (name.empty()) throw std::runtime_error("There is nothing left of that name.");
    return name;
  }

  void require(const std::string& identifier, Kind kind) const {
    const auto found = entries_.find(identifier);
    if (found == entries_.end() || found->second.has_value() != (kind == Kind::script)) {
      throw std::runtime_error("\"" + identifier + "\" is not there.");
    }
  }

  std::string& textOf(const Item& script) {
    require(script.identifier, Kind::script);
    return *entries_[script.identifier];
  }
  const std::string& textOf(const Item& script) const {
    return const_cast<InMemoryScriptLibrary*>(this)->textOf(script);
  }

  // The item for a new entry in the folder. Its name gets a number if an entry other than `own` has the name already.
  Item itemFor(const std::string& folder, const std::string& name, Kind kind, const std::string& own) const {
    for (std::size_t number = 1;; ++number) {
      const std::string numbered = quorvel::numberedName(name, number);
      const std::string identifier = joined(folder, quorvel::fileName(numbered, kind));
      if (identifier == own || !entries_.contains(identifier)) return {identifier, numbered, kind, std::nullopt};
    }
  }

  Item make(std::string_view asked, const std::string& folder, Kind kind) {
    const std::lock_guard guard(mutex_);
    if (!folder.empty()) require(folder, Kind::folder);
    const Item made = itemFor(folder, cleaned(asked, kind), kind, {});
    if (kind == Kind::folder) {
      entries_[made.identifier] = std::nullopt;
      std::filesystem::create_directory(root_ / made.identifier);
    } else {
      entries_[made.identifier] = std::string();
      std::ofstream(root_ / made.identifier).close();
    }
    return made;
  }

  std::vector<Item> itemsIn(const std::string& folder) const {
    if (!folder.empty()) require(folder, Kind::folder);
    std::vector<Item> items;
    for (const auto& [identifier, text] : entries_) {
      if (parentOf(identifier) != folder) continue;
      const Kind kind = text ? Kind::script : Kind::folder;
      const auto file = std::filesystem::path(identifier);
      Item& item = items.emplace_back(Item{identifier, (text ? file.stem() : file.filename()).string(), kind, {}});
      if (!text) item.children = itemsIn(identifier);
    }
    std::sort(items.begin(), items.end(), [](const Item& left, const Item& right) {
      if (left.kind != right.kind) return left.kind == Kind::folder;
      return quorvel::naturalOrder(left.name, right.name) < 0;
    });
    return items;
  }

  const std::filesystem::path root_;
  const std::chrono::milliseconds patience_;
  mutable std::mutex mutex_;
  Writers writers_;
  std::map<std::string, std::optional<std::string>> entries_;  // a script's text; nullopt for a folder
};

}  // namespace kelvane::tests
