#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "quorvel/files/LibraryError.h"
#include "quorvel/files/TemporaryName.h"
#include "quorvel/library/FolderLibrary.h"
#include "tests/quorvel/SystemAbilities.h"
#include "tests/quorvel/history/HistoryCalls.h"
#include "tests/support/Files.h"
#include "tests/support/Sentence.h"
#include "tests/support/TemporaryFolder.h"

namespace quorvel {

/// System calls that can be made to fail, or to be interrupted by something, when they are about to be made.
class StagedCalls : public SystemCalls {
 public:
  /// Asked before each call by its name; an answer other than 0 is the errno that it fails with, without being made.
  std::function<int(std::string_view call)> before = [](std::string_view) { return 0; };

  /// All calls fail with that errno whose names are given.
  void lack(std::vector<std::string> calls, int error) {
    before = [calls = std::move(calls), error](std::string_view call) {
      return std::find(calls.begin(), calls.end(), call) == calls.end() ? 0 : error;
    };
  }

  /// Files are swapped even if the system cannot do it in one step, for tests of what happens between two swaps.
  bool swaps = false;

  /// The n-th renaming from now on (1 for the next) is made, and answered as if it had failed; 0 for none.
  mutable int renamingToBeDenied = 0;

  /// Once, just before that call is made for the n-th time (1 for the first), this happens.
  void interrupt(std::string call, std::function<void()> happening, int time = 1) {
    before = [call = std::move(call), happening = std::move(happening), left = time](std::string_view made) mutable {
      if (made == call && --left == 0) happening();
      return 0;
    };
  }

  int openBeneath(int folder, const char* path, int flags) const noexcept override {
    return made("openBeneath") ? SystemCalls::openBeneath(folder, path, flags) : -1;
  }
  /// Staged together with the call that it saves.
  int openWithoutLinks(const char* path, int flags) const noexcept override {
    return made("openBeneath") ? SystemCalls::openWithoutLinks(path, flags) : -1;
  }
  long readEntries(int folder, void* records, std::size_t size) const noexcept override {
    return made("readEntries") ? SystemCalls::readEntries(folder, records, size) : -1;
  }
  const dirent* nextEntry(DIR* folder) const noexcept override {
    return made("nextEntry") ? SystemCalls::nextEntry(folder) : nullptr;
  }
  long read(int file, void* bytes, std::size_t count) const noexcept override {
    return made("read") ? SystemCalls::read(file, bytes, count) : -1;
  }
  long write(int file, const void* bytes, std::size_t count) const noexcept override {
    return made("write") ? SystemCalls::write(file, bytes, count) : -1;
  }
  long readAt(int file, void* bytes, std::size_t count, off_t at) const noexcept override {
    return made("readAt") ? SystemCalls::readAt(file, bytes, count, at) : -1;
  }
  long writeAt(int file, const void* bytes, std::size_t count, off_t at) const noexcept override {
    return made("writeAt") ? SystemCalls::writeAt(file, bytes, count, at) : -1;
  }
  int truncate(int file, off_t size) const noexcept override {
    return made("truncate") ? SystemCalls::truncate(file, size) : -1;
  }
  int flush(int file) const noexcept override { return made("flush") ? SystemCalls::flush(file) : -1; }
  int exchange(int folder, const char* one, const char* other) const noexcept override {
    if (!made("exchange")) return -1;
    return swaps ? swapInAnyWay(folder, one, other) : SystemCalls::exchange(folder, one, other);
  }
  int rename(int folder, const char* from, const char* to) const noexcept override {
    if (!made("rename")) return -1;
    const int answer = SystemCalls::rename(folder, from, to);
    if (renamingToBeDenied == 0 || --renamingToBeDenied != 0) return answer;
    errno = EIO;
    return -1;
  }
  int renameToFreeName(int folder, const char* from, const char* to) const noexcept override {
    return made("renameToFreeName") ? SystemCalls::renameToFreeName(folder, from, to) : -1;
  }
  int link(int folder, const char* from, const char* to) const noexcept override {
    return made("link") ? SystemCalls::link(folder, from, to) : -1;
  }
  int unlink(int folder, const char* name) const noexcept override {
    return made("unlink") ? SystemCalls::unlink(folder, name) : -1;
  }

 private:
  bool made(std::string_view call) const noexcept {
    const int error = before(call);
    errno = error;
    return error == 0;
  }
};

/// Whether a staged call only looks for something in a folder.
inline bool readsFolders(std::string_view call) {
  return call == "openBeneath" || call == "readEntries" || call == "nextEntry";
}

/// A library's folder, its history, and the library over both.
class LibraryHouse : public ::testing::Test {
 protected:
  /// In a folder below this one.
  explicit LibraryHouse(const std::filesystem::path& parent = std::filesystem::temp_directory_path()) : folder(parent) {
    std::filesystem::create_directory(root);
  }

  static ScriptItem script(std::string identifier) {
    std::string name = std::filesystem::path(identifier).stem();
    return {std::move(identifier), std::move(name), ScriptItem::Kind::script, std::nullopt};
  }

  static ScriptItem folderItem(std::string identifier) {
    std::string name = std::filesystem::path(identifier).filename();
    return {std::move(identifier), std::move(name), ScriptItem::Kind::folder, std::nullopt};
  }

  /// Puts a file on the disk, with the folders above it.
  void put(const std::filesystem::path& file, std::string_view bytes = "words") const {
    kelvane::tests::writeFile(root / file, bytes);
  }

  std::string bytesOf(const std::filesystem::path& file) const { return kelvane::tests::bytesOf(root / file); }

  /// The names in a folder, hidden ones included but for the library's own folder, sorted by their bytes.
  std::vector<std::string> names(const std::filesystem::path& within = {}) const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(root / within)) {
      if (entry.path().filename() != ".kelvane") names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  /// How many temporary files of writers are in a folder.
  std::size_t leftovers(const std::filesystem::path& within = {}) const {
    const auto all = names(within);
    return static_cast<std::size_t>(std::count_if(
        all.begin(), all.end(), [](std::string_view name) { return name.starts_with(TemporaryName::prefix); }));
  }

  /// Replaces a script's text as a tool does, under the lock.
  void writeLocked(std::string_view text, std::string identifier) {
    const auto lock = library.lock();
    library.write(text, script(std::move(identifier)));
  }

  /// A listing as indented lines: "[Scenes]" for a folder, "Talk" for a script.
  static std::string tree(const std::vector<ScriptItem>& items, std::size_t depth = 0) {
    std::string lines;
    for (const ScriptItem& item : items) {
      const bool isFolder = item.kind == ScriptItem::Kind::folder;
      lines.append(depth * 2, ' ').append(isFolder ? "[" + item.name + "]" : item.name).append("\n");
      if (item.children) lines += tree(*item.children, depth + 1);
    }
    return lines;
  }
  std::string tree() const { return tree(library.contents(root)); }

  /// The versions of a script, oldest first, as "label: text" lines.
  std::string story(std::string_view identifier, std::int64_t earlier = 0) const {
    std::string lines;
    const auto entries = history->entries(identifier, earlier);
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
      lines += entry->label + ": " + history->text(identifier, entry->version).value_or("(none)") + "\n";
    }
    return lines;
  }

  /// Gives the library to the user that `becomeNobody` makes us.
  void giveToNobody() const {
    std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
    if (::geteuid() != 0) return;
    ASSERT_EQ(::chown(root.c_str(), 65534, 65534), 0);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
      ASSERT_EQ(::chown(entry.path().c_str(), 65534, 65534), 0);
    }
  }

  static std::string sentenceOf(const std::function<void()>& attempt) { return kelvane::tests::sentenceOf(attempt); }

  const kelvane::tests::TemporaryFolder folder;
  const std::filesystem::path root = folder.path() / "Library";
  HistoryCalls historyCalls;
  const std::shared_ptr<History> history =
      std::make_shared<History>(root, std::chrono::system_clock::now, std::chrono::seconds(10), historyCalls);
  StagedCalls calls;
  FolderLibrary::Options options{calls, std::chrono::milliseconds(50)};
  FolderLibrary library{root, history, options};

  /// The same library, for tests in which another program never finishes saving.
  FolderLibrary impatient() const {
    return FolderLibrary(root, history, {calls, options.patience, std::chrono::milliseconds(5)});
  }
};

}  // namespace quorvel
