#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "quorvel/files/OpenedRoot.h"
#include "quorvel/history/HistoryError.h"
#include "quorvel/history/HistorySchema.h"
#include "quorvel/history/SQLite.h"

namespace quorvel {

/// The database file of a library's version history: how it is opened. Keeps no connection, so that threads and
/// processes share nothing but the file. Follows no symbolic link at `.kelvane` or in it, and touches nothing outside
/// the `.kelvane` that it found in the opened root, whatever others put in its place meanwhile.
///
/// Throws HistoryError for what is not a history that this program can use, sqlite::Error for the rest, which
/// `failure` turns into a HistoryError, and std::system_error where the root cannot be opened.
class HistoryFile {
 public:
  /// `patience` is how long an operation waits while another program has the history locked.
  HistoryFile(std::filesystem::path root, std::chrono::milliseconds patience,
              std::span<const std::string_view> migrations = historyMigrations(),
              const SystemCalls& calls = SystemCalls::ofTheSystem());

  const std::filesystem::path& root() const noexcept { return root_; }

  /// The root that this thread's call works in, opened now if it holds none. `findRoot` is null when there is none.
  std::shared_ptr<const OpenedRoot> findRoot() const;
  std::shared_ptr<const OpenedRoot> openRoot() const;

  /// A connection in a transaction that sees one state of the history and changes no file. Nothing when the library has
  /// no history. Only where the file must first be brought to a state that can be read (out of a change whose program
  /// died half-way, or of an earlier format) is it written to before.
  std::optional<sqlite::Connection> reading(const std::shared_ptr<const OpenedRoot>& root) const;

  /// A connection in a transaction that no other writer shares; what it does is on the disk after its COMMIT. Makes
  /// what is missing.
  sqlite::Connection writing(const std::shared_ptr<const OpenedRoot>& root) const;

  /// Makes what was done on it permanent, in the history that the library has now: throws when the root, its own folder
  /// or the database in it was moved away or replaced since it was opened. Nothing was changed then, or, if that
  /// happened at the very end, what the sentence says.
  static void commit(sqlite::Connection& connection, const OpenedRoot& root);

  HistoryError failure(const sqlite::Error& error, HistoryUse use) const;

 private:
  void makeReadable(const std::shared_ptr<const Descriptor>& folder,
                    const std::shared_ptr<const OpenedRoot>& root) const;
  sqlite::Connection created(const std::shared_ptr<const Descriptor>& folder, const OpenedRoot& root) const;

  std::filesystem::path root_;
  std::chrono::milliseconds patience_;
  std::span<const std::string_view> migrations_;
  const SystemCalls& calls_;
};

}  // namespace quorvel
