#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>

#include "quorvel/files/OpenedRoot.h"
#include "quorvel/history/HistoryError.h"
#include "quorvel/history/HistorySchema.h"
#include "quorvel/history/SQLite.h"

namespace quorvel {

/// Opens the database of a library's version history, and commits changes to it.
///
/// Keeps no connection open, so operations may be called from several threads; they share only the file. Follows no
/// symbolic link at `.kelvane` or in it, and touches nothing outside the `.kelvane` that it finds in the opened root,
/// whatever other programs put in its place meanwhile.
///
/// Throws HistoryError if the file is not a history that this program can use, std::system_error if the root cannot be
/// opened, and sqlite::Error for everything else; `failure` turns the latter into a HistoryError.
class HistoryFile {
 public:
  /// An operation waits for at most `patience` while another program has the history locked. `migrations` lead to the
  /// current format (HistorySchema.h). Their steps and `calls` must outlive the object.
  HistoryFile(std::filesystem::path root, std::chrono::milliseconds patience,
              const HistoryMigrations& migrations = historyMigrations(),
              const SystemCalls& calls = SystemCalls::ofTheSystem());

  const std::filesystem::path& root() const noexcept { return root_; }

  /// The root that this thread's call works in; opened now if this thread holds none. `findRoot` returns null if the
  /// folder does not exist, `openRoot` throws.
  std::shared_ptr<const OpenedRoot> findRoot() const;
  std::shared_ptr<const OpenedRoot> openRoot() const;

  /// A connection in a transaction that sees one state of the history and changes no file. Empty if the library has no
  /// history. The file may be of an earlier format that has the current tables; it stays as it is. Two things are done
  /// to the file first, if need be: what a dead program left half done is undone, and a format with other tables is
  /// brought up to date.
  std::optional<sqlite::Connection> reading(const std::shared_ptr<const OpenedRoot>& root) const;

  /// A connection in a transaction that excludes other writers. Creates the folder and the database if they are
  /// missing, and updates an earlier format within the transaction.
  sqlite::Connection writing(const std::shared_ptr<const OpenedRoot>& root) const;

  /// Commits what was done on a connection of `writing`; it is on the disk afterwards. Throws HistoryError if the
  /// root's path no longer leads to this database. Nothing has changed then, unless the message says so, because it
  /// happened at the very end.
  static void commit(sqlite::Connection& connection, const OpenedRoot& root);

  /// The sentence for a failure of SQLite.
  HistoryError failure(const sqlite::Error& error, HistoryUse use) const;

 private:
  void makeReadable(const std::shared_ptr<const Descriptor>& folder,
                    const std::shared_ptr<const OpenedRoot>& root) const;
  sqlite::Connection created(const std::shared_ptr<const Descriptor>& folder, const OpenedRoot& root) const;

  std::filesystem::path root_;
  std::chrono::milliseconds patience_;
  HistoryMigrations migrations_;
  const SystemCalls& calls_;
};

}  // namespace quorvel
