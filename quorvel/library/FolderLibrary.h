#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/QuorvelLibrary.h"
#include "quorvel/files/OpenedRoot.h"
#include "quorvel/files/SystemCalls.h"
#include "quorvel/files/WaitForWriters.h"
#include "quorvel/history/History.h"
#include "quorvel/library/ChangeTarget.h"
#include "quorvel/library/Listing.h"

namespace quorvel {

/// A script library of plain files: a script is a ".md" file below the root, a folder is a directory.
///
/// It keeps nothing between two calls and may be used from several threads at once. Outside the lock every call opens
/// the root anew, so a folder that vanished is a failure and never an empty library. What an identifier names is opened
/// beneath the root without following a symbolic link. Links, names that begin with a dot and names that are not UTF-8
/// are not listed. What lies in the library's own folder, ".kelvane", can be read but not changed. A folder that
/// another program moves away while a call is at work in it is worked in to the end of that call, where it is then;
/// `write` looks again behind its replacement, and takes it back.
///
/// The root may be moved away and another folder get its name at any moment. From `lock` to its end the operations of
/// that thread work in the one folder that was locked, and so does the history, and each operation by itself where
/// there is no lock. A writing operation fails when its root is not in its place at the end: nothing is changed, or the
/// sentence says what was changed and in which folder.
///
/// Operations throw LibraryError, whose sentences name the item and say what is true afterwards; unless they say
/// otherwise, text, names and history are as they were. Failures of the history pass through.
class FolderLibrary final : public ScriptLibrary {
 public:
  /// What a test may replace.
  struct Options {
    const SystemCalls& calls = SystemCalls::ofTheSystem();
    std::chrono::milliseconds patience = std::chrono::seconds(10);  ///< How long `lock` waits for other writers.

    /// How long a program that has a script open for writing may take to save it.
    std::chrono::milliseconds patienceWithWriters = quorvel::patienceWithWriters;
  };

  /// The folder is made absolute at once, and looked at by each call only. `history` is the history of the same folder
  /// and may not be null.
  FolderLibrary(const std::filesystem::path& root, std::shared_ptr<History> history);
  FolderLibrary(const std::filesystem::path& root, std::shared_ptr<History> history, const Options& options);

  /// Throws unless the library's folder is there and can be read.
  void requireReadable() const;

  /// How many scripts and folders are left out of `contents` because their names are not UTF-8.
  std::size_t countOfUnlistableNames() const;

  const std::filesystem::path& root() const noexcept override { return root_; }
  std::string fileExtension() const override;

  /// Folders first, then scripts, each in natural order. A folder below that may not be read has no children; any other
  /// failure to read one is a failure of the whole. What has too long a path for the system to open it is left out.
  std::vector<ScriptItem> contents(const std::filesystem::path& folder) const override;

  /// The script's exact bytes. Throws for one that is larger than `largestText` (WholeFile.h), or grows meanwhile.
  std::string read(const ScriptItem& script) const override;

  /// The same, once no program has the script open for writing, where the system can tell; after two seconds all the
  /// same, and `write` refuses then.
  std::string readToReplace(const ScriptItem& script) const override;

  /// For a path as `root()` spells it or with the links on it resolved. Nothing is inside the whole disk, "/".
  std::string identifier(const std::filesystem::path& file) const override;

  /// The lock is one on ".kelvane/lock", held against other threads and processes, and let go by the system when the
  /// process dies. The operations below rely on it and do not take it.
  std::unique_ptr<LibraryLock> lock() override;

  /// Puts a new file in the place of the script in one step, with the old one's mode, owner, access lists and
  /// attributes, and returns when it is on the disk for good; the file's other hard links keep the old text. A text
  /// that another program saved there meanwhile is in the history when this returns. Two things are not promised: where
  /// the system cannot exchange two files in one step, such a save can be lost if it falls between the last look and
  /// the replacement; and where it cannot tell who has a file open (disks over the network, FUSE and other rarer kinds,
  /// a script of another owner), so can what a program that saves in place has not yet written when its file is looked
  /// at.
  ///
  /// Before it does, it clears away what writers that died left in the folder; a text among it that was taken out of
  /// this folder's scripts and that their history does not hold is kept there first. Creating a script and renaming do
  /// the same.
  void write(std::string_view text, const ScriptItem& script) override;

  ScriptItem create(std::string_view name, const std::optional<std::string>& folder) override;
  ScriptItem createFolder(std::string_view name, const std::optional<std::string>& folder) override;

  /// A folder keeps its name when the new one would make the path of something in it too long for the system: that
  /// would be left out of `contents` from then on.
  ScriptItem rename(const ScriptItem& item, std::string_view name) override;

  /// Makes an empty script at exactly this identifier, with the folders above it, for a script that is gone: the
  /// history of the script that was there is its history again. Throws when something is there.
  ScriptItem recreate(std::string_view identifier);

 private:
  std::shared_ptr<const OpenedRoot> openRoot() const;
  std::shared_ptr<const OpenedRoot> openRootToChange(const std::string& happened) const;
  std::string read(const ScriptItem& script, std::chrono::milliseconds patience) const;
  std::size_t longestIdentifier() const;
  ListingScope scope(const OpenedRoot& root, PathBeneath folder) const;
  bool fitsWith(std::size_t moreBytes, const PathBeneath& folder) const;
  std::filesystem::path pathOf(std::string_view identifier) const;
  std::vector<std::uint64_t> sweep(const FolderToChange& folder);
  void sweepBeforeRenaming(const EntryToChange& script, const std::string& happened);
  void keepUnlessHeld(std::string_view text, const std::string& identifier, std::string_view label);
  ScriptItem make(std::string_view name, const std::optional<std::string>& folder, ScriptItem::Kind kind);

  std::filesystem::path root_;
  std::shared_ptr<History> history_;
  Options options_;
};

}  // namespace quorvel
