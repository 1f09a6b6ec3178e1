#include "quorvel/history/HistoryTexts.h"

#include "quorvel/files/FNV1a.h"

namespace quorvel {
namespace {

std::optional<std::int64_t> findHashed(sqlite::Connection& connection, std::string_view text, std::int64_t hash) {
  auto found = connection.prepare("SELECT id FROM texts WHERE hash = ? AND bytes = ?", hash, text);
  if (!found.next()) return std::nullopt;
  return found.integer(0);
}

}  // namespace

std::int64_t textHash(std::string_view text) noexcept {
  return static_cast<std::int64_t>(fnv1a(text));
}

std::optional<std::int64_t> findText(sqlite::Connection& connection, std::string_view text) {
  return findHashed(connection, text, textHash(text));
}

std::int64_t saveText(sqlite::Connection& connection, std::string_view text) {
  const std::int64_t hash = textHash(text);
  if (const auto id = findHashed(connection, text, hash)) return *id;
  connection.run("INSERT INTO texts (hash, bytes) VALUES (?, ?)", hash, text);
  return connection.lastInserted();
}

}  // namespace quorvel
