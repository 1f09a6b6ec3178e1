#include "quorvel/library/HistoryFile.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "quorvel/library/OwnFolder.h"

namespace quorvel {
namespace {

using sqlite::Connection;

constexpr const char* fileName = "history.sqlite";
constexpr const char* journalName = "history.sqlite-journal";
constexpr off_t smallestDatabase = 512;
constexpr std::size_t longestPath = 504;  // SQLite's own limit, less the journal's suffix

HistoryError folderFailure(const std::system_error& error, HistoryUse use) {
  const int reason = error.code().value();
  return reason == ENOTDIR ? HistoryFailure::noFolder(use) : HistoryFailure::refused(reason, use);
}

bool isThere(const Descriptor& folder, HistoryUse use) {
  struct stat status {};
  if (::fstatat(folder.get(), fileName, &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return false;
    throw HistoryFailure::refused(errno, use);
  }
  if (!S_ISREG(status.st_mode)) throw HistoryFailure::noFile(use);
  // SQLite would wait for ever for somebody to write into a pipe.
  struct stat journal {};
  if (::fstatat(folder.get(), journalName, &journal, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISREG(journal.st_mode)) {
    throw HistoryFailure::noJournal(use);
  }
  // SQLite takes a file that is too short for a database to be empty, and would write over it.
  const bool isStump = status.st_size > 0 && status.st_size < smallestDatabase;
  if (isStump && ::faccessat(folder.get(), journalName, F_OK, AT_SYMLINK_NOFOLLOW) != 0) {
    throw HistoryFailure::damaged(use);
  }
  return true;
}

/// The folder's own name is flushed before a database is made in it, by whichever process that was: once there is a
/// database, it cannot vanish with its folder.
void flushAbove(const Descriptor& folder) {
  const Descriptor above(::openat(folder.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!above) throw std::system_error(errno, std::generic_category());
  flushFolder(above);
}

void prepare(Connection& connection) {
  connection.runAll("PRAGMA cell_size_check = ON; PRAGMA trusted_schema = OFF");
}

Connection openedForWriting(const std::filesystem::path& file, Connection::Access access,
                            std::chrono::milliseconds patience) {
  Connection connection(file, access, patience);
  prepare(connection);
  connection.runAll("PRAGMA journal_mode = DELETE; PRAGMA synchronous = EXTRA; BEGIN IMMEDIATE");
  return connection;
}

void bringUpToDate(Connection& connection, std::span<const std::string_view> migrations, HistoryUse use) {
  switch (historyFormat(connection, migrations)) {
    case HistoryFormat::current:
      return;
    case HistoryFormat::empty:
    case HistoryFormat::earlier:
      return migrateHistory(connection, migrations);
    case HistoryFormat::later:
      throw HistoryFailure::later(use);
    case HistoryFormat::foreign:
      throw HistoryFailure::foreign(use);
  }
}

/// Opening a database for writing finishes what a dead process left half-way.
void makeReadable(const std::filesystem::path& file, std::chrono::milliseconds patience,
                  std::span<const std::string_view> migrations) {
  Connection connection = openedForWriting(file, Connection::Access::writing, patience);
  bringUpToDate(connection, migrations, HistoryUse::reading);
  connection.run("COMMIT");
}

}  // namespace

HistoryFile::HistoryFile(std::filesystem::path root, std::chrono::milliseconds patience,
                         std::span<const std::string_view> migrations)
    : root_(std::move(root)), patience_(patience), migrations_(migrations) {
}

std::filesystem::path HistoryFile::path(HistoryUse use) const {
  std::error_code error;
  auto path = std::filesystem::canonical(root_, error) / ownFolderName / fileName;
  if (error) throw HistoryFailure::refused(error.value(), use);
  if (path.native().size() > longestPath) throw HistoryFailure::refused(ENAMETOOLONG, use);
  return path;
}

std::optional<Connection> HistoryFile::reading() const {
  constexpr HistoryUse use = HistoryUse::reading;
  try {
    const Descriptor folder = openOwnFolder(root_);
    if (!folder || !isThere(folder, use)) return std::nullopt;
  } catch (const std::system_error& error) {
    throw folderFailure(error, use);
  }
  const auto file = path(use);
  for (bool repaired = false;; repaired = true) {
    try {
      Connection connection(file, Connection::Access::reading, patience_);
      prepare(connection);
      connection.run("BEGIN");
      switch (historyFormat(connection, migrations_)) {
        case HistoryFormat::current:
          return connection;
        case HistoryFormat::empty:
          return std::nullopt;
        case HistoryFormat::earlier:
          break;
        case HistoryFormat::later:
          throw HistoryFailure::later(use);
        case HistoryFormat::foreign:
          throw HistoryFailure::foreign(use);
      }
    } catch (const sqlite::Error& error) {
      if (repaired || error.code() != SQLITE_READONLY_ROLLBACK) throw;
    }
    makeReadable(file, patience_, migrations_);
  }
}

Connection HistoryFile::writing() const {
  constexpr HistoryUse use = HistoryUse::writing;
  try {
    const Descriptor folder = makeOwnFolder(root_);
    if (!isThere(folder, use)) flushAbove(folder);
  } catch (const std::system_error& error) {
    throw folderFailure(error, use);
  }
  Connection connection = openedForWriting(path(use), Connection::Access::creating, patience_);
  bringUpToDate(connection, migrations_, use);
  return connection;
}

HistoryError HistoryFile::failure(const sqlite::Error& error, HistoryUse use) const {
  return HistoryFailure::of(error, use, patience_);
}

}  // namespace quorvel
