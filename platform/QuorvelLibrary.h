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

/// What the module asks of the application's script library and of its version history. Both are abstract, so that an
/// application and a test bring their own; `quorvel/library` has one over a folder of plain files.
///
/// Operations may throw; `what()` is then the complete sentence that the client reads. A host that never fails never
/// throws; one that cannot answer rightly throws rather than answer wrongly.
namespace quorvel {

/// One saved version of a script.
struct ScriptVersion {
  std::chrono::system_clock::time_point saved;
  std::string name;       ///< The label that it was saved under.
  std::size_t words = 0;  ///< Counted when it was saved.

  bool operator==(const ScriptVersion&) const = default;
};

/// Held by a tool call that writes, from its first read to its last write. Destroying it lets the next writer in.
class LibraryLock {
 public:
  LibraryLock() = default;
  LibraryLock(const LibraryLock&) = delete;
  LibraryLock& operator=(const LibraryLock&) = delete;
  virtual ~LibraryLock() = default;
};

class ScriptLibrary {
 public:
  ScriptLibrary() = default;
  ScriptLibrary(const ScriptLibrary&) = delete;
  ScriptLibrary& operator=(const ScriptLibrary&) = delete;
  virtual ~ScriptLibrary() = default;

  /// The library's folder.
  virtual const std::filesystem::path& root() const noexcept = 0;

  /// The extension of script files, without the dot.
  virtual std::string fileExtension() const = 0;

  /// The items directly in the folder, each folder with its children filled in, in the order a person sees them.
  virtual std::vector<ScriptItem> contents(const std::filesystem::path& folder) const = 0;

  /// A script's whole text.
  virtual std::string read(const ScriptItem& script) const = 0;

  /// The same, for a text that is about to be replaced by what is made of it. A library whose scripts are saved by
  /// programs that take no lock waits here until such a save is whole.
  virtual std::string readToReplace(const ScriptItem& script) const { return read(script); }

  /// The identifier of the item at a path inside the library: the path relative to the root, a script's with its
  /// extension. It resolves back to the same item.
  virtual std::string identifier(const std::filesystem::path& file) const = 0;

  /// Keeps other writers out while the result lives. Nothing for a library that has no other writers, or that looks
  /// after them itself, which is what this does unless overridden. Throws when the lock cannot be had.
  virtual std::unique_ptr<LibraryLock> lock() { return nullptr; }

  /// Replaces a script's whole text.
  virtual void write(std::string_view text, const ScriptItem& script) = 0;

  /// Makes a new, empty script in the folder with that identifier, at the top level for none. A taken name gets a
  /// number; the item returned has the final name.
  virtual ScriptItem create(std::string_view name, const std::optional<std::string>& folder) = 0;

  /// The same for a folder.
  virtual ScriptItem createFolder(std::string_view name, const std::optional<std::string>& folder) = 0;

  /// Gives a script or a folder a new name, numbered where it is taken; returns the item as it is then.
  virtual ScriptItem rename(const ScriptItem& item, std::string_view name) = 0;
};

class VersionStore {
 public:
  VersionStore() = default;
  VersionStore(const VersionStore&) = delete;
  VersionStore& operator=(const VersionStore&) = delete;
  virtual ~VersionStore() = default;

  /// Keeps a text as a version of the script file at that path; nothing for an empty text, which is not kept.
  virtual std::optional<ScriptVersion> snapshot(std::string_view text, const std::filesystem::path& script,
                                                std::string_view label) = 0;

  /// The saved versions of the script file at that path, newest first.
  virtual std::vector<ScriptVersion> versions(const std::filesystem::path& script) const = 0;
};

struct ScriptText {
  ScriptText() = delete;

  /// `existing` with `added` at its end after a blank line. An added text that contains no CR LF takes the line ending
  /// of `existing`: the more frequent of LF and CR LF, LF on a tie. Any other is added as it is.
  static std::string appending(std::string_view added, std::string_view existing);
};

}  // namespace quorvel
