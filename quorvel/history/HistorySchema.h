#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "quorvel/history/SQLite.h"

/// The tables of a version history's database, and how an earlier format becomes the current one.
namespace quorvel {

/// Marks a database as a version history. SQLite stores it in the file's header.
inline constexpr std::int64_t historyApplicationID = 0x4b6c766e;

/// How a database gets the current format.
struct HistoryMigrations {
  /// The steps from one format to the next, in SQL: the first creates format 1 in an empty database, the second turns
  /// that into format 2, and so on. The number of steps is the number of the current format. A released step never
  /// changes. Beside SQLite's own functions it may call xxh3(BLOB), which is `textHash`.
  std::span<const std::string_view> steps;

  /// The first format that has the tables of the current one. From it on, readers take a file as it is. They bring only
  /// a file of a format before it up to date, because their queries would not find its tables.
  std::size_t firstReadable = 1;
};

/// Those of this program. The steps live as long as the program.
HistoryMigrations historyMigrations() noexcept;

/// What a database is to this program. `empty`: nothing was ever put into it. `earlier` and `readable`: an earlier
/// format, which readers cannot or can take as it is. `foreign`: not a version history.
enum class HistoryFormat { empty, earlier, readable, current, later, foreign };

/// Throws sqlite::Error.
HistoryFormat historyFormat(sqlite::Connection& connection, const HistoryMigrations& migrations);

/// Turns an empty database, or one of an earlier format, into the current format, within the open transaction. Throws
/// sqlite::Error; the caller then rolls the transaction back.
void migrateHistory(sqlite::Connection& connection, const HistoryMigrations& migrations);

}  // namespace quorvel
