#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "quorvel/history/SQLite.h"

/// What a version history's database looks like inside, and how one of an earlier format becomes one of today's.
namespace quorvel {

/// Marks a database as a version history; SQLite keeps it in the file's header.
inline constexpr std::int64_t historyApplicationID = 0x4b6c766e;

/// The steps from one format to the next: the first makes format 1 in an empty database, the second format 2 of it, and
/// so on; today's format is their number. A step once released never changes.
std::span<const std::string_view> historyMigrations() noexcept;

enum class HistoryFormat { empty, earlier, current, later, foreign };

/// Which format a database has when `migrations` lead to the current one: empty when nothing was ever put into it,
/// foreign when it is not a version history.
HistoryFormat historyFormat(sqlite::Connection& connection, std::span<const std::string_view> migrations);

/// Brings an empty database or one of an earlier format to the current one, within the transaction that is open.
void migrateHistory(sqlite::Connection& connection, std::span<const std::string_view> migrations);

}  // namespace quorvel
