#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <span>
#include <string_view>

#include "quorvel/library/HistoryError.h"
#include "quorvel/library/HistorySchema.h"
#include "quorvel/library/SQLite.h"

namespace quorvel {

/// The database file of a library's version history: how it is opened. Keeps no connection, so that threads and
/// processes share nothing but the file. Follows no symbolic link at `.kelvane` or in it.
///
/// Throws HistoryError for what is not a history that this program can use, sqlite::Error for the rest, which
/// `failure` turns into a HistoryError.
class HistoryFile {
 public:
  /// `patience` is how long an operation waits while another program has the history locked.
  HistoryFile(std::filesystem::path root, std::chrono::milliseconds patience,
              std::span<const std::string_view> migrations = historyMigrations());

  const std::filesystem::path& root() const noexcept { return root_; }

  /// A connection in a transaction that sees one state of the history and changes no file. Nothing when the library has
  /// no history. Only where the file must first be brought to a state that can be read (out of a change whose program
  /// died half-way, or of an earlier format) is it written to before.
  std::optional<sqlite::Connection> reading() const;

  /// A connection in a transaction that no other writer shares; what it does is on the disk after its COMMIT. Makes
  /// what is missing.
  sqlite::Connection writing() const;

  HistoryError failure(const sqlite::Error& error, HistoryUse use) const;

 private:
  std::filesystem::path path(HistoryUse use) const;

  std::filesystem::path root_;
  std::chrono::milliseconds patience_;
  std::span<const std::string_view> migrations_;
};

}  // namespace quorvel
