#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/QuorvelLibrary.h"
#include "quorvel/files/OpenedRoot.h"
#include "quorvel/files/SystemCalls.h"
#include "quorvel/history/HistoryError.h"
#include "quorvel/history/HistoryFile.h"
#include "quorvel/history/VersionNumber.h"

namespace quorvel {

/// One version, as a list for a person shows it.
struct HistoryEntry {
  VersionNumber version;
  std::chrono::system_clock::time_point saved;  ///< To the microsecond.
  std::string label;
  std::size_t words = 0;
  std::size_t size = 0;  ///< Bytes.

  bool operator==(const HistoryEntry&) const = default;
};

/// A script that has a history. Whether its file is still there is for the caller to see.
struct HistoryOfScript {
  std::string identifier;
  std::int64_t earlier = 0;   ///< Not 0 for a script whose place another one has taken since.
  std::int64_t versions = 0;  ///< How many there are, at least 1.
  std::chrono::system_clock::time_point newest;

  bool operator==(const HistoryOfScript&) const = default;
};

/// A rename that the history knows of and that is about to be made, being made, or made. Its destruction without
/// `done` looks where the thing is and lets the history follow only if it is at the new place, so leaving by an
/// exception at any point is right; so is the end of the process, after which the next to open the history looks.
/// Not to outlive its History.
class PendingRename {
 public:
  PendingRename(PendingRename&& other) noexcept;
  PendingRename& operator=(PendingRename&&) = delete;
  ~PendingRename();

  /// The rename was made and the folder that it happened in was flushed: the history follows. What cannot be written
  /// now (a full disk, say) is made up for by the next writer, and readers see it followed at once.
  void done() noexcept;

 private:
  friend class History;
  PendingRename() = default;  // of a rename that the history has nothing to do with
  PendingRename(const HistoryFile& file, std::shared_ptr<const OpenedRoot> root, std::int64_t record) noexcept
      : file_(&file), root_(std::move(root)), record_(record) {}

  const HistoryFile* file_ = nullptr;
  std::shared_ptr<const OpenedRoot> root_;  // the record is in the history of this one
  std::int64_t record_ = 0;
};

/// The version history of a library, in `.kelvane/history.sqlite` below its root (docs/HISTORY-FORMAT.md).
///
/// Scripts are named by identifiers: paths relative to the root, compared byte for byte. `snapshot` and `versions` take
/// the root with the identifier joined to it, as they come from the tools. Identifiers and labels may hold any bytes.
///
/// Nothing is opened before the first operation, reading creates and changes no file (but for undoing the change that
/// a dead process left half-way, where that may be written), and a library without a history reads as an empty one.
/// What a writing operation did is on the disk for good when it returns, and in the library that the root leads to
/// then. In a thread that holds the library's lock every operation works in the very folder that was locked
/// (OpenedRoot.h). Nothing is ever removed from a history.
///
/// Every operation may be called from several threads and processes at once; one that finds the history in use waits
/// for its `patience` and then fails. From `beginAnew` to the creation of the file, and from `willRename` to the end of
/// its result, the library's lock must be held, as it must by whoever calls `snapshot` meanwhile.
///
/// Operations throw HistoryError, and leave everything as it was: the history is damaged, in use, from a newer version
/// of the program, another program's database, made to use other files, moved away or replaced while it was written,
/// behind a symbolic link, not permitted to be read or written, the disk full; or the text is of something in the
/// library's own folder, of which no version is kept.
class History final : public VersionStore {
 public:
  using Clock = std::function<std::chrono::system_clock::time_point()>;

  /// `root` is the library's folder, made absolute at once; the paths given to operations begin with it, as it was
  /// given or absolute.
  explicit History(std::filesystem::path root, Clock clock = std::chrono::system_clock::now,
                   std::chrono::milliseconds patience = std::chrono::seconds(10),
                   const SystemCalls& calls = SystemCalls::ofTheSystem());

  std::optional<ScriptVersion> snapshot(std::string_view text, const std::filesystem::path& script,
                                        std::string_view label) override;

  std::vector<ScriptVersion> versions(const std::filesystem::path& script) const override;

  /// The versions of the script with that identifier, newest first: of the one that is there or was there last, or of
  /// an earlier one. Empty where there are none.
  std::vector<HistoryEntry> entries(std::string_view identifier, std::int64_t earlier = 0) const;

  /// A version's exact bytes. Nothing when there is no such version.
  std::optional<std::string> text(std::string_view identifier, VersionNumber version) const;

  /// All scripts that have a history, those that are gone included, in the order of their identifiers' bytes, and those
  /// with one identifier as below.
  std::vector<HistoryOfScript> scripts() const;

  /// Those with one identifier: the script itself, if it has a history, then the earlier ones, the latest of them
  /// first.
  std::vector<HistoryOfScript> scripts(std::string_view identifier) const;

  /// Whether a text can be had again from the history of the script itself: whether one of its versions has exactly
  /// these bytes. True for the empty text, which is not kept.
  bool holds(std::string_view text, std::string_view identifier) const;

  /// To be called before a new script is created at a place where no file is: the history of the script that was there
  /// becomes that of an earlier one, and the new script begins with none. Nothing happens where there is no history.
  /// Not to be called when a script that is gone is put back.
  ///
  /// The earlier history keeps the identifier and gets the next number of its own: `kelvane history Talk` lists the
  /// versions of the script as 1, 2, 3 and below them those of earlier scripts of the name as 1.1, 1.2, and
  /// `kelvane show Talk 1.2` and `kelvane restore Talk 1.2` take such a number as they take 2.
  ///
  /// The answer is whether there was one. When the script is not created after all, `goOn` then gives it back to the
  /// place, as far as the history can be written.
  bool beginAnew(std::string_view identifier);
  void goOn(std::string_view identifier) noexcept;

  /// To be called before a script or a folder is renamed on the disk, to a place where nothing is; `from` must be
  /// there. The history of what was at the new place before becomes that of earlier scripts; that of the thing renamed,
  /// and for a folder of all scripts below it, follows. One call for each attempt, one attempt at a time:
  ///
  ///     auto rename = history.willRename(from, to);   // throws: do not rename
  ///     … renameat2, fsync of the folder …            // throws: leave
  ///     rename.done();
  [[nodiscard]] PendingRename willRename(std::string_view from, std::string_view to);

  /// What is wrong with the history, a sentence each; empty when it is sound or there is none. Reads all of it.
  std::vector<std::string> problems() const;

 private:
  std::string identifier(const std::filesystem::path& script) const;

  std::filesystem::path root_;
  HistoryFile file_;
  Clock clock_;
};

}  // namespace quorvel
