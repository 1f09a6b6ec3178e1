#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "quorvel/files/Descriptor.h"
#include "quorvel/history/SQLite.h"

/// Moves histories when their scripts are renamed. All functions work in a transaction that the caller begins and
/// commits.
///
/// A rename is two changes, one in the file system and one in the database, and the process may die between them. So
/// the rename is recorded before the first change: the old identifier, the new one, and the inode of the script or
/// folder. Whoever finds such a record later looks which of the two names has that inode (docs/HISTORY-FORMAT.md).
///
/// `root` is the opened root of the library that contains the history. Functions throw sqlite::Error, and
/// std::system_error if the system does not tell what has a name. Their time is proportional to the number of histories
/// under the old and the new name, that of `interpretRenames` to the number of all scripts.
namespace quorvel {

struct Rename {
  std::string from;
  std::string to;
  bool isFolder = false;
  std::uint64_t inode = 0;
};

/// Makes the history of the script with that identifier that of an earlier script. Returns whether there was one.
bool makeEarlier(sqlite::Connection& connection, std::string_view identifier);

/// Makes the history of the latest earlier script that of the present one. No effect if there is none, or if the
/// present script has a history.
void makePresent(sqlite::Connection& connection, std::string_view identifier);

/// The rename of what has the name `from` now. Empty if nothing has it.
std::optional<Rename> plannedRename(const Descriptor& root, std::string_view from, std::string_view to);

/// Whether the history has anything under the old or the new name.
bool concernsHistory(sqlite::Connection& connection, const Rename& rename);

/// Records a rename that is about to happen. Returns the number of the record.
std::int64_t recordRename(sqlite::Connection& connection, const Rename& rename);

/// Moves the histories of a recorded rename that has happened, and deletes the record. No effect without the record.
void finishRename(sqlite::Connection& connection, std::int64_t record);

/// Whether there is a record.
bool hasPendingRenames(sqlite::Connection& connection);

/// For writers: finishes each recorded rename that has happened, and deletes all records. Flushes the folders first, so
/// that the history is never ahead of them.
void settleRenames(sqlite::Connection& connection, const Descriptor& root);

/// For readers: makes this connection see the history as `settleRenames` would leave it. Writes nothing.
void interpretRenames(sqlite::Connection& connection, const Descriptor& root);

}  // namespace quorvel
