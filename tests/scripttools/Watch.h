#pragma once

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/QuorvelLibrary.h"

namespace kelvane::tests {

/// Records the calls of a library and its history, in order, and makes chosen ones fail. A record is a string such as
/// "write Talk.md", with "unlocked: " before it if the lock was not held.
struct Watch {
  std::vector<std::string> accesses;
  std::optional<std::size_t> failingAccess;  ///< The access with this number, 0 for the first, throws `failure`.
  std::optional<std::string> failingLock;    ///< What `lock` throws.
  std::function<void()> meanwhile;           ///< What others do before they let go of the lock.
  bool locked = false;

  static constexpr std::string_view failure = "The disk said no.";

  void note(std::string access) {
    const bool fails = failingAccess == accesses.size();
    accesses.push_back(locked ? std::move(access) : "unlocked: " + access);
    if (fails) throw std::runtime_error(std::string(failure));
  }

  /// The records of one operation, such as "write" or "snapshot", with or without the lock.
  std::size_t count(std::string_view operation) const {
    return static_cast<std::size_t>(std::count_if(accesses.begin(), accesses.end(), [&](std::string_view access) {
      const std::string_view unlocked = "unlocked: ";
      if (access.starts_with(unlocked)) access.remove_prefix(unlocked.size());
      return access.starts_with(operation);
    }));
  }

  /// How many calls saved, created, renamed or wrote something.
  std::size_t changes() const { return count("snapshot") + count("write") + count("create") + count("rename"); }
};

/// Passes every call on to another library, and records it.
class WatchedLibrary : public quorvel::ScriptLibrary {
 public:
  WatchedLibrary(std::shared_ptr<quorvel::ScriptLibrary> library, std::shared_ptr<Watch> watch)
      : library_(std::move(library)), watch_(std::move(watch)) {}

  const std::filesystem::path& root() const noexcept override { return library_->root(); }
  std::string fileExtension() const override { return library_->fileExtension(); }
  std::string identifier(const std::filesystem::path& file) const override { return library_->identifier(file); }

  std::vector<quorvel::ScriptItem> contents(const std::filesystem::path& folder) const override {
    watch_->note("contents");
    return library_->contents(folder);
  }
  std::string read(const quorvel::ScriptItem& script) const override {
    watch_->note("read " + script.identifier);
    return library_->read(script);
  }
  std::string readToReplace(const quorvel::ScriptItem& script) const override {
    watch_->note("readToReplace " + script.identifier);
    return library_->readToReplace(script);
  }
  void write(std::string_view text, const quorvel::ScriptItem& script) override {
    watch_->note("write " + script.identifier);
    library_->write(text, script);
  }
  quorvel::ScriptItem create(std::string_view name, const std::optional<std::string>& folder) override {
    watch_->note("create " + std::string(name) + " in " + folder.value_or("the root"));
    return library_->create(name, folder);
  }
  quorvel::ScriptItem createFolder(std::string_view name, const std::optional<std::string>& folder) override {
    watch_->note("createFolder " + std::string(name) + " in " + folder.value_or("the root"));
    return library_->createFolder(name, folder);
  }
  quorvel::ScriptItem rename(const quorvel::ScriptItem& item, std::string_view name) override {
    watch_->note("rename " + item.identifier + " to " + std::string(name));
    return library_->rename(item, name);
  }

  std::unique_ptr<quorvel::LibraryLock> lock() override {
    if (watch_->meanwhile) watch_->meanwhile();
    watch_->accesses.push_back("lock");
    if (watch_->failingLock) throw std::runtime_error(*watch_->failingLock);
    return std::make_unique<Lock>(watch_);
  }

 private:
  class Lock : public quorvel::LibraryLock {
   public:
    explicit Lock(std::shared_ptr<Watch> watch) : watch_(std::move(watch)) { watch_->locked = true; }
    ~Lock() override {
      watch_->accesses.push_back("unlock");
      watch_->locked = false;
    }

   private:
    std::shared_ptr<Watch> watch_;
  };

  std::shared_ptr<quorvel::ScriptLibrary> library_;
  std::shared_ptr<Watch> watch_;
};

/// The same for a history. Paths are recorded relative to the library's root.
class WatchedStore : public quorvel::VersionStore {
 public:
  WatchedStore(std::shared_ptr<quorvel::VersionStore> store, std::filesystem::path root, std::shared_ptr<Watch> watch)
      : store_(std::move(store)), root_(std::move(root)), watch_(std::move(watch)) {}

  std::optional<quorvel::ScriptVersion> snapshot(std::string_view text, const std::filesystem::path& script,
                                                 std::string_view label) override {
    watch_->note("snapshot " + below(script) + " as " + std::string(label));
    return store_->snapshot(text, script, label);
  }
  std::vector<quorvel::ScriptVersion> versions(const std::filesystem::path& script) const override {
    watch_->note("versions " + below(script));
    return store_->versions(script);
  }

 private:
  std::string below(const std::filesystem::path& script) const {
    return script.native().substr(std::min(script.native().size(), root_.native().size() + 1));
  }

  std::shared_ptr<quorvel::VersionStore> store_;
  std::filesystem::path root_;
  std::shared_ptr<Watch> watch_;
};

}  // namespace kelvane::tests
