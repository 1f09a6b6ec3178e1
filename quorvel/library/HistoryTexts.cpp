#include "quorvel/library/HistoryTexts.h"

namespace quorvel {

std::int64_t textHash(std::string_view text) noexcept {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char byte : text) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
  return static_cast<std::int64_t>(hash);
}

std::optional<std::int64_t> findText(sqlite::Connection& connection, std::string_view text) {
  auto found = connection.prepare("SELECT id FROM texts WHERE hash = ? AND bytes = ?", textHash(text), text);
  if (!found.next()) return std::nullopt;
  return found.integer(0);
}

std::int64_t keepText(sqlite::Connection& connection, std::string_view text) {
  if (const auto id = findText(connection, text)) return *id;
  connection.run("INSERT INTO texts (hash, bytes) VALUES (?, ?)", textHash(text), text);
  return connection.lastInserted();
}

}  // namespace quorvel
