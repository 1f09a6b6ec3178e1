#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "quorvel/history/SQLite.h"

/// The texts that versions share: the same bytes are in the database once.
namespace quorvel {

/// FNV-1a. It only finds candidates; that two texts are equal is told by their bytes.
std::int64_t textHash(std::string_view text) noexcept;

/// The row that holds these bytes.
std::optional<std::int64_t> findText(sqlite::Connection& connection, std::string_view text);

/// The same, added where it is missing.
std::int64_t keepText(sqlite::Connection& connection, std::string_view text);

}  // namespace quorvel
