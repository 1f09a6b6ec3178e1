#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "quorvel/history/SQLite.h"

/// The texts of versions. The database contains the same bytes only once. Functions throw sqlite::Error; their time is
/// proportional to the length of the text.
namespace quorvel {

/// The 64-bit XXH3 hash of the bytes, with seed 0. It only finds candidates: two texts are equal only if their bytes
/// are. It is stored in the database, so it never changes.
std::int64_t textHash(std::string_view text) noexcept;

using TextHash = std::int64_t (*)(std::string_view) noexcept;

/// The function that made the hashes in this database: `textHash`, or FNV-1a if the file is still of format 1.
TextHash textHashIn(sqlite::Connection& connection);

/// The row that contains these bytes. Empty if there is none.
std::optional<std::int64_t> findText(sqlite::Connection& connection, std::string_view text);

/// The same, but adds the row if there is none. The database has the current format, as every writer's.
std::int64_t saveText(sqlite::Connection& connection, std::string_view text);

}  // namespace quorvel
