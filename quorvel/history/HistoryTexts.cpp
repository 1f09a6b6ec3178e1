#include "quorvel/history/HistoryTexts.h"

// All of the hash's code stands in this header, so that nothing is linked.
#define XXH_INLINE_ALL
#ifdef KELVANE_PORTABLE
#define XXH_VECTOR 0  // no vector instructions
#endif
#include <xxhash.h>

#include "quorvel/files/FNV1a.h"

#if XXH_VERSION_NUMBER < 800
#error "The hash XXH3 has the same values on all machines since xxHash 0.8.0. Install that or a later version."
#endif

namespace quorvel {
namespace {

std::optional<std::int64_t> findHashed(sqlite::Connection& connection, std::string_view text, std::int64_t hash) {
  auto found = connection.prepare("SELECT id FROM texts WHERE hash = ? AND bytes = ?", hash, text);
  if (!found.next()) return std::nullopt;
  return found.integer(0);
}

std::int64_t hashOfFormat1(std::string_view text) noexcept {
  return static_cast<std::int64_t>(fnv1a(text));
}

}  // namespace

std::int64_t textHash(std::string_view text) noexcept {
  return static_cast<std::int64_t>(XXH3_64bits(text.data(), text.size()));
}

TextHash textHashIn(sqlite::Connection& connection) {
  return connection.integer("PRAGMA user_version") == 1 ? hashOfFormat1 : textHash;
}

std::optional<std::int64_t> findText(sqlite::Connection& connection, std::string_view text) {
  return findHashed(connection, text, textHashIn(connection)(text));
}

std::int64_t saveText(sqlite::Connection& connection, std::string_view text) {
  const std::int64_t hash = textHash(text);
  if (const auto id = findHashed(connection, text, hash)) return *id;
  connection.run("INSERT INTO texts (hash, bytes) VALUES (?, ?)", hash, text);
  return connection.lastInserted();
}

}  // namespace quorvel
