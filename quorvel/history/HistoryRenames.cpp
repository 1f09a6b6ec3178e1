#include "quorvel/history/HistoryRenames.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>
#include <vector>

#include "quorvel/history/OwnFolder.h"

namespace quorvel {
namespace {

using sqlite::Connection;

struct Record {
  std::int64_t number = 0;
  Rename rename;
};

struct Row {
  std::int64_t id = 0;
  std::string identifier;
  std::int64_t earlier = 0;
};

std::vector<Row> rows(sqlite::Statement statement) {
  std::vector<Row> rows;
  while (statement.next()) rows.push_back({statement.integer(0), statement.bytes(1), statement.integer(2)});
  return rows;
}

/// The histories that go with a thing of that identifier: the one of the script itself, or all below the folder, those
/// of earlier scripts among them.
std::vector<Row> rowsOf(Connection& connection, std::string_view identifier, bool isFolder) {
  if (!isFolder) {
    return rows(connection.prepare("SELECT id, identifier, earlier FROM scripts WHERE identifier = ? AND earlier = 0",
                                   identifier));
  }
  // In the order of bytes the identifiers below a folder stand together: from "folder/" up to "folder0", as "0" is
  // what follows "/".
  const std::string begin = std::string(identifier) + '/';
  const std::string end = std::string(identifier) + '0';
  return rows(
      connection.prepare("SELECT id, identifier, earlier FROM scripts WHERE identifier >= ? AND identifier < ?"
                         " ORDER BY identifier, earlier",
                         begin, end));
}

std::int64_t nextEarlier(Connection& connection, std::string_view identifier) {
  return connection.integer("SELECT coalesce(max(earlier), 0) + 1 FROM scripts WHERE identifier = ?", identifier);
}

void place(Connection& connection, std::int64_t id, std::string_view identifier, std::int64_t earlier) {
  connection.run("UPDATE scripts SET identifier = ?, earlier = ? WHERE id = ?", identifier, earlier, id);
}

/// Nothing was at the new place when the thing was renamed, so the histories there are those of scripts that are gone.
void follow(Connection& connection, const Rename& rename) {
  for (const Row& row : rowsOf(connection, rename.to, rename.isFolder)) {
    if (row.earlier == 0) place(connection, row.id, row.identifier, nextEarlier(connection, row.identifier));
  }
  for (const Row& row : rowsOf(connection, rename.from, rename.isFolder)) {
    const std::string identifier = rename.to + row.identifier.substr(rename.from.size());
    place(connection, row.id, identifier, row.earlier == 0 ? 0 : nextEarlier(connection, identifier));
  }
}

std::vector<Record> records(Connection& connection) {
  std::vector<Record> records;
  if (!hasPendingRenames(connection)) return records;
  auto statement = connection.prepare("SELECT id, source, target, isFolder, inode FROM pendingRenames ORDER BY id");
  while (statement.next()) {
    records.push_back({statement.integer(0),
                       {statement.bytes(1), statement.bytes(2), statement.integer(3) != 0,
                        static_cast<std::uint64_t>(statement.integer(4))}});
  }
  return records;
}

struct stat statusAt(const Descriptor& root, const std::string& identifier, bool& isThere) {
  struct stat status {};
  isThere = ::fstatat(root.get(), identifier.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  const bool isTold = isThere || errno == ENOENT || errno == ENOTDIR || errno == ENAMETOOLONG || errno == ELOOP;
  if (!isTold) throw std::system_error(errno, std::generic_category());
  return status;
}

/// The thing's inode tells, at the old place first: where a rename is made of two names and one removal, it has not
/// happened before the removal. The inode may be at neither place, because an editor has since saved the script as a
/// new file, or the file system numbers anew when it is mounted; then the one place that is taken tells. When both or
/// none are, the history stays where it was.
bool wasMade(const Rename& rename, const Descriptor& root) {
  bool atFrom = false;
  bool atTo = false;
  const struct stat from = statusAt(root, rename.from, atFrom);
  const struct stat to = statusAt(root, rename.to, atTo);
  if (atFrom && from.st_ino == rename.inode) return false;
  if (atTo && to.st_ino == rename.inode) return true;
  return atTo && !atFrom;
}

void flushParent(const Descriptor& root, std::string_view identifier) {
  const std::size_t slash = identifier.rfind('/');
  const std::string parent(slash == std::string_view::npos ? "." : identifier.substr(0, slash));
  const Descriptor folder(::openat(root.get(), parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder) return flushFolder(folder);
  if (errno != ENOENT && errno != ENOTDIR) throw std::system_error(errno, std::generic_category());
}

void strikeOut(Connection& connection, std::int64_t record) {
  connection.run("DELETE FROM pendingRenames WHERE id = ?", record);
}

}  // namespace

bool makeEarlier(Connection& connection, std::string_view identifier) {
  const std::vector<Row> present = rowsOf(connection, identifier, false);
  for (const Row& row : present) place(connection, row.id, identifier, nextEarlier(connection, identifier));
  return !present.empty();
}

void makePresent(Connection& connection, std::string_view identifier) {
  if (!rowsOf(connection, identifier, false).empty()) return;
  connection.run("UPDATE scripts SET earlier = 0 WHERE identifier = ? AND earlier = ?", identifier,
                 nextEarlier(connection, identifier) - 1);
}

std::optional<Rename> plannedRename(const Descriptor& root, std::string_view from, std::string_view to) {
  bool isThere = false;
  const struct stat status = statusAt(root, std::string(from), isThere);
  if (!isThere) return std::nullopt;
  return Rename{std::string(from), std::string(to), S_ISDIR(status.st_mode), status.st_ino};
}

bool concernsHistory(Connection& connection, const Rename& rename) {
  return !rowsOf(connection, rename.from, rename.isFolder).empty() ||
         !rowsOf(connection, rename.to, rename.isFolder).empty();
}

std::int64_t recordRename(Connection& connection, const Rename& rename) {
  connection.run("INSERT INTO pendingRenames (source, target, isFolder, inode) VALUES (?, ?, ?, ?)", rename.from,
                 rename.to, std::int64_t{rename.isFolder}, static_cast<std::int64_t>(rename.inode));
  return connection.lastInserted();
}

void finishRename(Connection& connection, std::int64_t number) {
  for (const Record& record : records(connection)) {
    if (record.number != number) continue;
    follow(connection, record.rename);
    strikeOut(connection, number);
  }
}

bool hasPendingRenames(Connection& connection) {
  return connection.prepare("SELECT 1 FROM pendingRenames").next();
}

void settleRenames(Connection& connection, const Descriptor& root) {
  for (const Record& record : records(connection)) {
    const bool made = wasMade(record.rename, root);
    flushParent(root, record.rename.from);
    flushParent(root, record.rename.to);
    if (made) follow(connection, record.rename);
    strikeOut(connection, record.number);
  }
}

void interpretRenames(Connection& connection, const Descriptor& root) {
  const std::vector<Record> pending = records(connection);
  if (pending.empty()) return;
  // SQLite looks for a table among the temporary ones first, so every statement after this one sees the copy.
  connection.runAll(
      "CREATE TEMP TABLE scripts (id INTEGER PRIMARY KEY, identifier BLOB NOT NULL, earlier INTEGER NOT NULL,"
      " UNIQUE (identifier, earlier)) STRICT;"
      "INSERT INTO temp.scripts SELECT id, identifier, earlier FROM main.scripts");
  for (const Record& record : pending) {
    if (wasMade(record.rename, root)) follow(connection, record.rename);
  }
}

}  // namespace quorvel
