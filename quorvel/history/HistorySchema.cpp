#include "quorvel/history/HistorySchema.h"

#include <array>
#include <string>

#include "quorvel/history/HistoryTexts.h"

namespace quorvel {
namespace {

constexpr std::string_view format1 = R"sql(
  CREATE TABLE scripts (
    id INTEGER PRIMARY KEY,
    identifier BLOB NOT NULL,
    earlier INTEGER NOT NULL CHECK (earlier >= 0),
    UNIQUE (identifier, earlier)
  ) STRICT;

  CREATE TABLE texts (
    id INTEGER PRIMARY KEY,
    hash INTEGER NOT NULL,
    bytes BLOB NOT NULL CHECK (length(bytes) > 0)
  ) STRICT;
  CREATE INDEX textsByHash ON texts (hash);

  CREATE TABLE versions (
    script INTEGER NOT NULL REFERENCES scripts (id),
    number INTEGER NOT NULL CHECK (number > 0),
    saved INTEGER NOT NULL,
    label BLOB NOT NULL,
    words INTEGER NOT NULL CHECK (words >= 0),
    size INTEGER NOT NULL CHECK (size > 0),
    text INTEGER NOT NULL REFERENCES texts (id),
    PRIMARY KEY (script, number)
  ) STRICT, WITHOUT ROWID;

  CREATE TABLE pendingRenames (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    source BLOB NOT NULL,
    target BLOB NOT NULL,
    isFolder INTEGER NOT NULL,
    inode INTEGER NOT NULL
  ) STRICT;
)sql";

constexpr std::string_view format2 = "UPDATE texts SET hash = xxh3(bytes)";

constexpr std::array steps{format1, format2};

/// Format 2 changed no table, only what the hashes are, and `textHashIn` knows both.
constexpr std::size_t firstReadableFormat = 1;

}  // namespace

HistoryMigrations historyMigrations() noexcept {
  return {steps, firstReadableFormat};
}

HistoryFormat historyFormat(sqlite::Connection& connection, const HistoryMigrations& migrations) {
  const std::int64_t application = connection.integer("PRAGMA application_id");
  const std::int64_t format = connection.integer("PRAGMA user_version");
  const auto current = static_cast<std::int64_t>(migrations.steps.size());
  if (application == historyApplicationID) {
    if (format > current) return HistoryFormat::later;
    if (format == current) return HistoryFormat::current;
    if (format >= static_cast<std::int64_t>(migrations.firstReadable)) return HistoryFormat::readable;
    if (format > 0) return HistoryFormat::earlier;
    return HistoryFormat::foreign;
  }
  const bool untouched =
      application == 0 && format == 0 && connection.integer("SELECT count(*) FROM sqlite_schema") == 0;
  return untouched ? HistoryFormat::empty : HistoryFormat::foreign;
}

void migrateHistory(sqlite::Connection& connection, const HistoryMigrations& migrations) {
  const auto done = static_cast<std::size_t>(connection.integer("PRAGMA user_version"));
  connection.define<textHash>("xxh3");
  for (const std::string_view step : migrations.steps.subspan(done)) connection.runAll(step);
  connection.runAll("PRAGMA application_id = " + std::to_string(historyApplicationID) +
                    "; PRAGMA user_version = " + std::to_string(migrations.steps.size()));
}

}  // namespace quorvel
