#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "quorvel/files/Descriptor.h"
#include "quorvel/history/SQLite.h"

/// How histories follow their scripts through renames, in a transaction that the caller has opened and commits.
///
/// A rename is two changes, one of the folder and one of the database, and the process may die between them. So it is
/// written down before the first: what is renamed to what, and the inode of the thing. Whoever finds such a record
/// later looks which of the two places has that inode. `root` is the opened root of the library, the same that has the
/// history in it.
namespace quorvel {

struct Rename {
  std::string from;
  std::string to;
  bool isFolder = false;
  std::uint64_t inode = 0;
};

/// The history of the script with that identifier becomes that of an earlier one. False where there is none.
bool makeEarlier(sqlite::Connection& connection, std::string_view identifier);

/// The other way round, for the last of the earlier ones. Nothing where there is none, or where the script has a
/// history of its own.
void makePresent(sqlite::Connection& connection, std::string_view identifier);

/// The rename of what is at `from` now; nothing when nothing is there.
std::optional<Rename> plannedRename(const Descriptor& root, std::string_view from, std::string_view to);

/// Whether a rename changes anything in the history.
bool concernsHistory(sqlite::Connection& connection, const Rename& rename);

/// Writes the rename down as about to be made; the number of the record is the result.
std::int64_t recordRename(sqlite::Connection& connection, const Rename& rename);

/// The recorded rename was made: the history follows, and the record goes. Nothing when there is no such record.
void finishRename(sqlite::Connection& connection, std::int64_t record);

/// Whether a rename is written down that was neither finished nor struck out.
bool hasPendingRenames(sqlite::Connection& connection);

/// For writers: finishes what is recorded, or strikes it out where the rename was not made. Flushes the folders first,
/// so that the history is never ahead of them.
void settleRenames(sqlite::Connection& connection, const Descriptor& root);

/// For readers: makes this connection see the history as `settleRenames` would leave it, and writes nothing.
void interpretRenames(sqlite::Connection& connection, const Descriptor& root);

}  // namespace quorvel
