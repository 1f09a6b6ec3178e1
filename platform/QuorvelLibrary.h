#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/QuorvelCore.h"

/// What the module asks of the application's script library and of its version history.
///
/// An application derives from `ScriptLibrary` and `VersionStore` and gives an object of each to
/// `kelvane::ScriptTools`. `FolderLibrary` (quorvel/library) and `History` (quorvel/history) implement them over a
/// folder of plain files.
///
/// # What the module calls
///
/// A tool that reads calls `readAtOnce`, `read`, `visit` or `versions`, without a lock. A tool that replaces a text
/// makes these calls, all on one thread:
///
/// 1. `lock`, after the arguments were checked. Identifiers are resolved again while the lock is held;
/// 2. `readToReplace`, once or twice, for the text that is about to be replaced;
/// 3. `VersionStore::snapshot` with that text;
/// 4. `write`, only if the snapshot succeeded;
/// 5. the destructor of the lock, whether the call succeeded or failed.
///
/// A tool that creates, renames or saves a version holds the lock in the same way.
///
/// The module checks every identifier that a client sends before it passes an item on: the item's path is inside
/// `root()`, with all symbolic links followed. For that it looks at the disk, so scripts and folders must exist there
/// as files and directories. An item can still be deleted, renamed or replaced by a link before the library opens it. A
/// library whose folder is shared must therefore open it without following links.
///
/// # Failure
///
/// Every operation that is not noexcept may throw any exception derived from std::exception. The module catches none:
/// `what()` reaches the client as the text of a failed result, so it must be a complete sentence that says what is true
/// now. An operation that cannot give the right answer must throw rather than give a wrong one, such as an empty text
/// for a file that cannot be read. Nothing is written after a failed read or a failed snapshot.
///
/// # Threads and ownership
///
/// The module shares both objects through std::shared_ptr with every tool that it makes, and calls them only during a
/// call of a tool. If a program handles requests on several threads, both must accept calls from several threads at
/// once; `Transport::run` uses one thread. Views and references passed in are valid until the operation returns.
///
/// Time is spent while the client waits: each operation should be linear in the text, the folder or the number of
/// versions that it is about.
namespace quorvel {

/// One saved version of a script.
struct ScriptVersion {
  std::chrono::system_clock::time_point saved;  ///< When it was saved. Clients see it in GMT, in whole seconds.
  std::string name;                             ///< The label that it was saved under.
  std::size_t words = 0;                        ///< The number of words of its text, counted when it was saved.

  bool operator==(const ScriptVersion&) const = default;
};

/// Keeps other writers out of a library while it lives. A library derives from this class; its destructor lets the next
/// writer in, and must not throw.
class LibraryLock {
 public:
  LibraryLock() = default;
  LibraryLock(const LibraryLock&) = delete;
  LibraryLock& operator=(const LibraryLock&) = delete;
  virtual ~LibraryLock() = default;
};

/// Is shown the items of a library one after the other. An item is shown without its children, and is valid until the
/// operation returns. What an operation throws ends the visit and reaches its caller.
class ItemVisitor {
 public:
  ItemVisitor() = default;
  ItemVisitor(const ItemVisitor&) = delete;
  ItemVisitor& operator=(const ItemVisitor&) = delete;
  virtual ~ItemVisitor() = default;

  /// A folder, before the items in it and again after them.
  virtual void enter(const ScriptItem& folder) = 0;
  virtual void leave(const ScriptItem& folder) = 0;

  /// A script, or a folder that the library does not list.
  virtual void meet(const ScriptItem& item) = 0;
};

/// A folder of scripts and folders.
class ScriptLibrary {
 public:
  ScriptLibrary() = default;
  ScriptLibrary(const ScriptLibrary&) = delete;
  ScriptLibrary& operator=(const ScriptLibrary&) = delete;
  virtual ~ScriptLibrary() = default;

  /// The library's folder, as an absolute path. The same for the life of the object. The folder need not exist; every
  /// other operation may throw then.
  virtual const std::filesystem::path& root() const noexcept = 0;

  /// The extension of script files, without the dot: "md". Compared byte for byte; a file with any other extension is
  /// not a script. The same for the life of the object.
  virtual std::string fileExtension() const = 0;

  /// The items directly in the folder, in the order that a person sees. The `children` of each folder are set, and hold
  /// its own items by the same rule, down to the last level. The module calls it with `root()` and keeps the order.
  virtual std::vector<ScriptItem> contents(const std::filesystem::path& folder) const = 0;

  /// Shows all items below `root()` in the order of `contents`. Override it if the library can do so without holding
  /// all of them at once, which takes a large library's memory and much of the time; by default it asks `contents`.
  virtual void visit(ItemVisitor& visitor) const;

  /// A script's whole text, byte for byte. `script` has the identifier that `identifier` returned for it.
  virtual std::string read(const ScriptItem& script) const = 0;

  /// The same in one step for an identifier that leads out of the library neither by "/" at its start nor by ".."; so
  /// it need not be looked up before. std::nullopt if the library cannot tell at once that it names a script, as when a
  /// symbolic link is on the way or nothing is there: then it is looked up, and `read`. Override it if the library
  /// opens scripts without following links.
  virtual std::optional<std::string> readAtOnce(std::string_view identifier) const;

  /// The same, for a text that is about to be replaced by one derived from it. Override it if other programs, which
  /// take no lock, may be in the middle of saving the script: wait here until that save is complete.
  virtual std::string readToReplace(const ScriptItem& script) const { return read(script); }

  /// The identifier of the script or folder at an absolute path inside the library: the path relative to the root, a
  /// script's with its extension; empty for the root. The path either starts with `root()` as it is returned, or has
  /// all its symbolic links followed. Looking the identifier up must lead to the same item again.
  virtual std::string identifier(const std::filesystem::path& file) const = 0;

  /// Keeps other writers out until the result is destroyed, on the same thread. May wait for them. If the lock is not
  /// available, throws the sentence that the call fails with, even if the call would have changed nothing.
  ///
  /// Null, the default, is for a library that has no other writers, or that keeps them out by itself.
  virtual std::unique_ptr<LibraryLock> lock() { return nullptr; }

  /// Replaces a script's whole text. If it throws, the script must still have its old text, or `what()` must say
  /// otherwise.
  virtual void write(std::string_view text, const ScriptItem& script) = 0;

  /// Creates an empty script in the folder with that identifier, or at the top level for std::nullopt. The name has no
  /// extension. It may be cleaned, and gets a number if it is already used: nothing is ever overwritten. Returns the
  /// item with its final name and identifier.
  virtual ScriptItem create(std::string_view name, const std::optional<std::string>& folder) = 0;

  /// The same for a script that is to have this text at once. The default is `create` and then `write`, and leaves an
  /// empty script if that fails. Override it if the script can be taken away again: if it throws, either no script was
  /// made, or `what()` must say which one there is.
  virtual ScriptItem createWithText(std::string_view name, const std::optional<std::string>& folder,
                                    std::string_view text) {
    ScriptItem script = create(name, folder);
    write(text, script);
    return script;
  }

  /// Creates a folder, by the same rules as a script.
  virtual ScriptItem createFolder(std::string_view name, const std::optional<std::string>& folder) = 0;

  /// Renames a script or a folder within its parent folder, by the same rules for names. Returns the item with its
  /// final name and identifier. What it contains, and its saved versions, stay with it.
  virtual ScriptItem rename(const ScriptItem& item, std::string_view name) = 0;
};

/// The saved versions of scripts. A script is named by its path: `root()` joined with its identifier.
class VersionStore {
 public:
  VersionStore() = default;
  VersionStore(const VersionStore&) = delete;
  VersionStore& operator=(const VersionStore&) = delete;
  virtual ~VersionStore() = default;

  /// Saves a text as the newest version of the script at that path, and returns it. std::nullopt for an empty text,
  /// which is not saved. The script need not exist and is not changed.
  ///
  /// When this returns, the version must be durable: the text that it preserves is overwritten next.
  virtual std::optional<ScriptVersion> snapshot(std::string_view text, const std::filesystem::path& script,
                                                std::string_view label) = 0;

  /// The saved versions of the script at that path, newest first. Empty if there are none.
  virtual std::vector<ScriptVersion> versions(const std::filesystem::path& script) const = 0;
};

/// How texts are joined. Declared here, and defined by the same library that defines platform/QuorvelCore.h.
struct ScriptText {
  ScriptText() = delete;

  /// `existing`, an empty line, and `added`. No line break is added that is there already, and none to an empty text.
  /// If `added` contains no CR LF, its line breaks become those of `existing`: the more frequent of LF and CR LF, or LF
  /// on a tie. Otherwise it is added as it is. Linear in both; throws nothing but std::bad_alloc.
  static std::string appending(std::string_view added, std::string_view existing);
};

}  // namespace quorvel
