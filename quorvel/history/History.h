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

/// One version, as a list shows it to a person.
struct HistoryEntry {
  VersionNumber version;
  std::chrono::system_clock::time_point saved;  ///< To the microsecond.
  std::string label;
  std::size_t words = 0;
  std::size_t size = 0;  ///< In bytes.

  bool operator==(const HistoryEntry&) const = default;
};

/// A script that has versions. Its file may be gone; the history does not look.
struct HistoryOfScript {
  std::string identifier;
  std::int64_t earlier = 0;   ///< 0 for the script that has the identifier now or had it last; see VersionNumber.
  std::int64_t versions = 0;  ///< How many there are, at least 1.
  std::chrono::system_clock::time_point newest;

  bool operator==(const HistoryOfScript&) const = default;
};

/// One version of one of the library's scripts.
struct TimeLineEntry {
  std::string identifier;
  HistoryEntry entry;
  std::optional<std::size_t> wordsBefore;  ///< Those of the script's version before it; empty for its first.

  bool operator==(const TimeLineEntry&) const = default;
};

/// A rename that the history knows of: about to happen, happening, or done. Made by History::willRename.
///
/// If it is destroyed without `done`, it looks for the script and moves the history only if the script is at the new
/// name. So it is right to leave by an exception at any point. If the process ends before, whoever opens the history
/// next does the same.
///
/// Must not outlive its History. For one thread.
class PendingRename {
 public:
  PendingRename(PendingRename&& other) noexcept;
  PendingRename& operator=(PendingRename&&) = delete;
  ~PendingRename();

  /// Moves the history to the new name. Call it once the rename has happened and its folder is flushed. If the history
  /// cannot be written now, because the disk is full for example, the next writer moves it; readers see it at the new
  /// name at once.
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

/// The version history of a library: the texts that its scripts had, in `.kelvane/history.sqlite` below the library's
/// root (docs/HISTORY-FORMAT.md).
///
///     History history(root);
///     history.snapshot("old text", root / "Talks/Opening.md", "Before — shorter");
///     for (const HistoryEntry& entry : history.entries("Talks/Opening.md"))
///       std::cout << entry.version.text() << ' ' << entry.label << '\n';
///     history.text("Talks/Opening.md", *VersionNumber::parse("1"));  // "old text"
///
/// Scripts are named by identifiers: paths relative to the root, compared byte for byte. `snapshot` and `versions` get
/// the root with the identifier joined to it, as tools have it. Identifiers and labels may contain any bytes.
///
/// Reading: opens nothing before the first operation, creates no file, and changes none, except that it undoes the
/// change that a dead process left half done, if that is permitted. A library without a history has an empty one.
///
/// Writing: when an operation returns, its change is on the disk, in the library that the root leads to at that moment.
/// If it throws, nothing has changed, unless the message says that this is not certain. Nothing is ever removed. In a
/// thread that holds the library's lock, every operation works in the folder that was locked (OpenedRoot.h).
///
/// Threads: every operation may be called from several threads and processes at once. One that finds the history locked
/// waits for at most `patience` and then throws. The library's lock must be held from `setAside` until the new file
/// exists, and from `willRename` until its result is destroyed; others who call `snapshot` meanwhile must hold it too.
///
/// Cost: an operation opens the file anew. It takes time proportional to what it returns or stores; `willRename` of a
/// folder to the number of histories below it; `problems` to the whole file. A writing operation flushes the disk five
/// times.
///
/// Failures: operations throw HistoryError, whose message says what to do: the history is damaged, locked, from a newer
/// version of the program, another program's database, made to use other files, moved away while it was written, behind
/// a symbolic link, or not permitted to be used; the disk is full or fails; or the text belongs to the library's own
/// folder, of which no versions are saved.
class History final : public VersionStore {
 public:
  using Clock = std::function<std::chrono::system_clock::time_point()>;

  /// `root` is the library's folder. Paths given to operations begin with it, either as it was given or absolute.
  /// `calls` must outlive the history.
  explicit History(std::filesystem::path root, Clock clock = std::chrono::system_clock::now,
                   std::chrono::milliseconds patience = std::chrono::seconds(10),
                   const SystemCalls& calls = SystemCalls::ofTheSystem());

  /// Saves a text as the newest version of the script. Empty if the text is empty, of which no version is saved.
  std::optional<ScriptVersion> snapshot(std::string_view text, const std::filesystem::path& script,
                                        std::string_view label) override;

  std::vector<ScriptVersion> versions(const std::filesystem::path& script) const override;

  /// The versions of a script, newest first: of the one that has the identifier now or had it last, or of an earlier
  /// one. Empty if there are none.
  std::vector<HistoryEntry> entries(std::string_view identifier, std::int64_t earlier = 0) const;

  /// The exact bytes of a version. Empty if there is no such version.
  std::optional<std::string> text(std::string_view identifier, VersionNumber version) const;

  /// All scripts that have versions, deleted ones included, sorted by the bytes of their identifiers, and those with
  /// the same identifier as below.
  std::vector<HistoryOfScript> scripts() const;

  /// Those with one identifier: first the present script, if it has versions, then the earlier ones, the latest first.
  std::vector<HistoryOfScript> scripts(std::string_view identifier) const;

  /// The versions of all scripts that were saved at that moment or later, newest first, at most `most` of them. Takes
  /// time proportional to the number of all versions; no text is read.
  std::vector<TimeLineEntry> timeLine(std::chrono::system_clock::time_point since, std::size_t most) const;

  /// Whether a version of the script has exactly these bytes, so that the text can be restored. True for the empty
  /// text, of which no version is saved. Takes as long for any number of versions if one of the newest has the text, or
  /// if no version of any script has it; otherwise proportional to the versions that are newer.
  bool hasVersionWith(std::string_view text, std::string_view identifier) const;

  /// Call this before a new script is created under a free name, but not before a deleted script is restored. The
  /// versions of the script that had the name before become those of an earlier script, and the new one begins with
  /// none. Returns whether there were any.
  ///
  /// The earlier script keeps the identifier and gets the next number: `kelvane history Talk` lists the versions of the
  /// present script as 1, 2 and 3, and those of the first script with that name as 1.1 and 1.2.
  bool setAside(std::string_view identifier);

  /// Call this if the new script was not created after all. Gives the versions back to the identifier. If the history
  /// cannot be written, they stay those of an earlier script.
  void undoSetAside(std::string_view identifier) noexcept;

  /// Call this before a script or folder is renamed to a free name; `from` must exist. Afterwards, the history of what
  /// had the new name before belongs to earlier scripts, and that of the renamed script, or of every script below the
  /// renamed folder, is under the new name. One call per attempt, and one attempt at a time:
  ///
  ///     auto rename = history.willRename(from, to);   // throws: do not rename
  ///     … renameat2, fsync of the folder …            // throws: leave
  ///     rename.done();
  [[nodiscard]] PendingRename willRename(std::string_view from, std::string_view to);

  /// What is wrong with the history, one sentence each. Empty if it is valid or if there is none. Reads all of it, and
  /// does not throw HistoryError.
  std::vector<std::string> problems() const;

 private:
  std::string identifier(const std::filesystem::path& script) const;

  std::filesystem::path root_;
  HistoryFile file_;
  Clock clock_;
};

}  // namespace quorvel
