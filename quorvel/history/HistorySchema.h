#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "quorvel/history/SQLite.h"

/// The tables of a version history's database, and how an earlier format becomes the current one.
namespace quorvel {

/// Marks a database as a version history. SQLite stores it in the file's header.
inline constexpr std::int64_t historyApplicationID = 0x4b6c766e;

/// The steps from one format to the next, in SQL: the first creates format 1 in an empty database, the second turns
/// that into format 2, and so on. The number of steps is the number of the current format. A released step never
/// changes. Beside SQLite's own functions it may call xxh3(BLOB), which is `textHash`.
std::span<const std::string_view> historyMigrations() noexcept;

enum class HistoryFormat { empty, earlier, current, later, foreign };

/// Which format a database has if `migrations` lead to the current one: `empty` if nothing was ever put into it,
/// `foreign` if it is not a version history. Throws sqlite::Error.
HistoryFormat historyFormat(sqlite::Connection& connection, std::span<const std::string_view> migrations);

/// Turns an empty database, or one of an earlier format, into the current format, within the open transaction. Throws
/// sqlite::Error; the caller then rolls the transaction back.
void migrateHistory(sqlite::Connection& connection, std::span<const std::string_view> migrations);

}  // namespace quorvel
