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
#include "quorvel/files/Leftovers.h"
#include "quorvel/files/OpenedRoot.h"
#include "quorvel/files/SystemCalls.h"
#include "quorvel/files/WaitForWriters.h"
#include "quorvel/history/History.h"
#include "quorvel/library/ChangeTarget.h"
#include "quorvel/library/Listing.h"
#include "quorvel/library/WritersNote.h"

namespace quorvel {

/// The label of a version that was found in a file that a dead writer left. It need not be a text that the script ever
/// had.
inline constexpr std::string_view foundLabel = "Before — found after an interrupted change";

/// A script library of plain files: a script is a ".md" file below the root, a folder is a directory.
///
/// It keeps nothing between two calls and may be called from several threads at once. What an identifier names is
/// opened beneath the root without following a symbolic link. Links, names that begin with a dot and names that are not
/// UTF-8 are not listed. What is in the library's own folder, ".kelvane", can be read but not changed.
///
/// Another program may move the root away, and make another folder with its name, at any moment. While a thread has the
/// lock, its operations and the history's work in the one folder that was locked; without the lock, each call opens the
/// root anew. So a root that is gone is a failure and never an empty library. A writing operation fails if the root is
/// not in its place at the end: nothing is changed then, or the sentence says what was changed and in which folder. If
/// a folder below the root is moved away during a call, the call finishes in it, at its new location; `write` looks
/// again after its replacement, and undoes it.
///
/// Operations throw LibraryError. Its sentences name the item and say what is true afterwards; unless they say
/// otherwise, texts, names and history are as they were. Failures of the history pass through (HistoryError).
class FolderLibrary final : public ScriptLibrary {
 public:
  /// What a library works with unless told otherwise.
  struct Options {
    const SystemCalls& calls = SystemCalls::ofTheSystem();
    std::chrono::milliseconds patience = std::chrono::seconds(10);  ///< How long `lock` waits for other writers.

    /// How long a program that has a script open for writing may take to save it.
    std::chrono::milliseconds patienceWithWriters = quorvel::patienceWithWriters;
  };

  /// The path is made absolute at once; the folder is opened by each call and need not be there yet. `history` is the
  /// history of the same folder, and not null.
  FolderLibrary(const std::filesystem::path& root, std::shared_ptr<History> history);
  FolderLibrary(const std::filesystem::path& root, std::shared_ptr<History> history, const Options& options);

  /// Throws if the library's folder is not there or cannot be read.
  void requireReadable() const;

  /// How many scripts and folders are left out of `contents` because their names are not UTF-8.
  std::size_t countOfUnlistableNames() const;

  const std::filesystem::path& root() const noexcept override { return root_; }
  std::string fileExtension() const override;

  /// Folders first, then scripts, each in natural order (Listing.h). A folder below that we are not permitted to read
  /// has no children; any other failure to read one throws. Items with paths too long for the system are left out.
  std::vector<ScriptItem> contents(const std::filesystem::path& folder) const override;

  /// The same items. Needs memory for the names in the folders on the way to the current one only.
  void visit(ItemVisitor& visitor) const override;

  /// The script's exact bytes. Throws if it is larger than `largestText` (WholeFile.h), or grows while it is read.
  std::string read(const ScriptItem& script) const override;

  /// The same if no link leads to a file with the extension of scripts, and this thread has no lock: the root and the
  /// file are opened in one system call.
  std::optional<std::string> readAtOnce(std::string_view identifier) const override;

  /// The same, once no program has the script open for writing, as far as the system tells. After two seconds it is
  /// read all the same, and `write` refuses to replace it.
  std::string readToReplace(const ScriptItem& script) const override;

  /// The path begins with `root()`, as it is spelt or with its links resolved. Throws for any other path. Nothing is
  /// inside the root "/".
  std::string identifier(const std::filesystem::path& file) const override;

  /// The lock is one on the file ".kelvane/lock" (LockLibrary.h). The operations below rely on it and do not lock.
  std::unique_ptr<LibraryLock> lock() override;

  /// Replaces the script by a new file in one step, with the old one's mode, owner, access lists and attributes, and
  /// returns when it is on the disk for good (Replacement.h). Other hard links of the old file keep the old text. If
  /// another program saved a text there meanwhile, the history has it when this returns.
  ///
  /// Not promised: such a text can be lost if the system cannot swap two files in one step, and it is saved between the
  /// last look and the replacement; or if the system cannot tell who has a file open (WaitForWriters.h), and the other
  /// program has not written all of it when its file is read.
  ///
  /// First it deletes what writers that died left behind (Leftovers.h), in the folders that they noted (WritersNote.h);
  /// without the lock, in this folder. A text among it that was once a script's, and that the script's history does not
  /// have, is saved there first. Creating and renaming a script do the same; renaming looks into its folder in any
  /// case. What cannot be deleted in another folder waits for the next writer.
  void write(std::string_view text, const ScriptItem& script) override;

  ScriptItem create(std::string_view name, const std::optional<std::string>& folder) override;

  /// If the text cannot be written, the script is taken away again, unless another program has begun to use it, the
  /// system does not tell whether one has (WaitForWriters.h), or the disk does not let us. Then the sentence says that
  /// it is there, and what is in it.
  ScriptItem createWithText(std::string_view name, const std::optional<std::string>& folder,
                            std::string_view text) override;

  ScriptItem createFolder(std::string_view name, const std::optional<std::string>& folder) override;

  /// Refuses to rename a folder if the path of something in it would become too long for the system: `contents` would
  /// leave that out from then on.
  ScriptItem rename(const ScriptItem& item, std::string_view name) override;

  /// Puts a script that is gone back: creates it with this text at exactly this identifier, with the folders above it.
  /// The history of the script that was there is its history again. Throws if something is there, and if the text
  /// cannot be written, as `createWithText` does; folders that were made stay.
  ScriptItem recreate(std::string_view identifier, std::string_view text);

 private:
  std::shared_ptr<const OpenedRoot> openRoot() const;
  std::shared_ptr<const OpenedRoot> openRootToChange(const std::string& happened) const;
  static std::shared_ptr<WritersNote> noted(const OpenedRoot& root, const PathBeneath& folder,
                                            const std::string& happened);
  std::string read(const ScriptItem& script, std::chrono::milliseconds patience) const;
  Descriptor openAtOnce(const PathBeneath& path) const;
  Expected<Descriptor> openToRead(const PathBeneath& path) const;
  std::size_t longestIdentifier() const;
  ListingScope scope(const OpenedRoot& root, PathBeneath folder) const;
  bool fitsWith(std::size_t moreBytes, const PathBeneath& folder) const;
  std::filesystem::path pathOf(std::string_view identifier) const;
  SweptLeftovers sweepFolder(const FolderToChange& folder);
  bool sweepAnother(const OpenedRoot& root, const PathBeneath& path) noexcept;
  enum class Look { whereNoted, alsoHere };
  std::vector<std::uint64_t> sweep(const OpenedRoot& root, const FolderToChange& folder, Look look = Look::whereNoted);
  void sweepBeforeRenaming(const OpenedRoot& root, const EntryToChange& script, const std::string& happened);
  bool keepUnlessHeld(std::string_view text, const std::string& identifier, std::string_view label);

  /// A script or a folder that was just made.
  struct Made {
    std::shared_ptr<const OpenedRoot> root;
    EntryToChange target;
    ScriptItem item;
    std::optional<FileIdentity> file;  ///< Which file a script is; none if the system did not tell.
    bool wasSetAside = false;          ///< Whether a script before it had versions under its name.
  };
  Made make(std::string_view name, const std::optional<std::string>& folder, ScriptItem::Kind kind,
            std::string_view state = {});

  /// Gives a new script its text, or takes it away. `isMade` begins the sentence about a script that stays without that
  /// text, and `advice` follows it where it is empty and nobody is known to use it.
  struct IfItStays {
    std::string isMade;
    std::string_view advice;
  };
  void fill(const Made& made, std::string_view text, const IfItStays& words);

  std::filesystem::path root_;
  std::shared_ptr<History> history_;
  Options options_;
};

}  // namespace quorvel
