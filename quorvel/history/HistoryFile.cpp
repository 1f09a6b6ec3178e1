#include "quorvel/history/HistoryFile.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "quorvel/files/Expected.h"
#include "quorvel/files/FileIdentity.h"
#include "quorvel/history/HeldOwnFolder.h"
#include "quorvel/history/OwnFolder.h"

namespace quorvel {
namespace {

using sqlite::Connection;

HistoryError folderFailure(const std::system_error& error, HistoryUse use) {
  const int reason = error.code().value();
  return reason == ENOTDIR ? HistoryFailure::noFolder(use) : HistoryFailure::refused(reason, use);
}

void prepare(Connection& connection) {
  connection.distrustSchema();
  connection.run("PRAGMA cell_size_check = ON");
}

/// Whether the library's path leads to the database of the connection, or why the system does not tell. This only
/// looks, so a link on the way does no harm.
Expected<bool> isInPlace(const FileIdentity& database, const OpenedRoot& root) {
  const Expected<bool> isRootInPlace = root.look();
  if (!isRootInPlace.value_or(false)) return isRootInPlace;
  const auto found = identityOf(root.folder().get(), std::string(ownFolderName).append("/").append(historyFileName));
  if (found) return *found == database;
  const bool isElsewhere = found.error() == std::errc::no_such_file_or_directory ||
                           found.error() == std::errc::not_a_directory ||
                           found.error() == std::errc::too_many_symbolic_link_levels;
  return isElsewhere ? Expected<bool>(false) : Expected<bool>(found.error());
}

/// Begins a transaction that no other writer shares, and that fails if the path leads elsewhere when it changes the
/// disk.
void beginWriting(Connection& connection, std::shared_ptr<const OpenedRoot> root) {
  prepare(connection);
  connection.setGuard([root = std::move(root)](const FileIdentity& database) { return isInPlace(database, *root); });
  {
    // Held at its row, it keeps the database locked for reading, so that the lines below it neither unlock and lock it
    // nor look for a journal each anew. A writer that is in the way meanwhile is waited for only without it.
    auto held = connection.prepare("PRAGMA application_id");
    held.next();
    connection.run("PRAGMA synchronous = EXTRA");
    try {
      return connection.run("BEGIN IMMEDIATE");
    } catch (const sqlite::Error& error) {
      if (error.primaryCode() != SQLITE_BUSY) throw;
    }
  }
  connection.run("BEGIN IMMEDIATE");
}

void bringUpToDate(Connection& connection, const HistoryMigrations& migrations) {
  switch (historyFormat(connection, migrations)) {
    case HistoryFormat::current:
      return;
    case HistoryFormat::empty:
    case HistoryFormat::earlier:
    case HistoryFormat::readable:
      return migrateHistory(connection, migrations);
    case HistoryFormat::later:
      throw HistoryFailure::later(HistoryUse::writing);
    case HistoryFormat::foreign:
      throw HistoryFailure::foreign(HistoryUse::writing);
  }
}

}  // namespace

HistoryFile::HistoryFile(std::filesystem::path root, std::chrono::milliseconds patience,
                         const HistoryMigrations& migrations, const SystemCalls& calls)
    : root_(std::move(root)), patience_(patience), migrations_(migrations), calls_(calls) {
}

std::shared_ptr<const OpenedRoot> HistoryFile::findRoot() const {
  try {
    return OpenedRoot::find(root_);
  } catch (const std::system_error& error) {
    if (error.code() != std::errc::no_such_file_or_directory) throw;
    return nullptr;
  }
}

std::shared_ptr<const OpenedRoot> HistoryFile::openRoot() const {
  auto root = findRoot();
  if (!root) throw std::system_error(ENOENT, std::generic_category());
  return root;
}

std::optional<Connection> HistoryFile::reading(const std::shared_ptr<const OpenedRoot>& root) const {
  constexpr HistoryUse use = HistoryUse::reading;
  std::shared_ptr<const Descriptor> folder;
  try {
    folder = std::make_shared<const Descriptor>(openOwnFolder(root->folder()));
    if (!*folder) return std::nullopt;
  } catch (const std::system_error& error) {
    throw folderFailure(error, use);
  }
  for (bool isRepaired = false;; isRepaired = true) {
    try {
      auto connection = Connection::find(folder, historyFileName, Connection::Access::reading, patience_, calls_);
      if (!connection) return std::nullopt;
      prepare(*connection);
      connection->run("BEGIN");
      switch (historyFormat(*connection, migrations_)) {
        case HistoryFormat::readable:
        case HistoryFormat::current:
          return connection;
        case HistoryFormat::empty:
          return std::nullopt;
        case HistoryFormat::earlier:
          if (isRepaired) throw sqlite::Error(SQLITE_BUSY, 0, "another program brought the earlier format back");
          break;
        case HistoryFormat::later:
          throw HistoryFailure::later(use);
        case HistoryFormat::foreign:
          throw HistoryFailure::foreign(use);
      }
    } catch (const sqlite::Error& error) {
      if (isRepaired || error.code() != SQLITE_READONLY_ROLLBACK) throw;
    }
    makeReadable(folder, root);
  }
}

/// Locking a database for writing undoes what a dead process left half-way. Nothing else changes, unless the format is
/// one that cannot be read.
void HistoryFile::makeReadable(const std::shared_ptr<const Descriptor>& folder,
                               const std::shared_ptr<const OpenedRoot>& root) const {
  Connection connection(folder, historyFileName, Connection::Access::writing, patience_, calls_);
  beginWriting(connection, root);
  if (historyFormat(connection, migrations_) != HistoryFormat::earlier) return;
  migrateHistory(connection, migrations_);
  commit(connection, *root);
}

Connection HistoryFile::writing(const std::shared_ptr<const OpenedRoot>& root) const {
  constexpr HistoryUse use = HistoryUse::writing;
  std::shared_ptr<const Descriptor> folder;
  try {
    const auto held = HeldOwnFolder::of(*root);
    folder = held ? held->folder() : std::make_shared<const Descriptor>(makeOwnFolder(root->folder()));
  } catch (const std::system_error& error) {
    throw folderFailure(error, use);
  }
  auto found = Connection::find(folder, historyFileName, Connection::Access::writing, patience_, calls_);
  Connection connection = found ? std::move(*found) : created(folder, *root);
  beginWriting(connection, root);
  bringUpToDate(connection, migrations_);
  return connection;
}

/// The folder's own name is flushed before a database is created in it, whichever process created the folder: once
/// there is a database, it cannot vanish with its folder.
Connection HistoryFile::created(const std::shared_ptr<const Descriptor>& folder, const OpenedRoot& root) const {
  try {
    flushRoot(root.folder());
  } catch (const std::system_error& error) {
    throw folderFailure(error, HistoryUse::writing);
  }
  return Connection(folder, historyFileName, Connection::Access::creating, patience_, calls_);
}

void HistoryFile::commit(Connection& connection, const OpenedRoot& root) {
  try {
    connection.run("COMMIT");
  } catch (const sqlite::Error& error) {
    if (error.code() != SQLITE_READONLY_DBMOVED) throw;
    throw HistoryFailure::moved();
  }
  const Expected<bool> isStillInPlace = isInPlace(connection.identity(), root);
  if (!isStillInPlace) throw HistoryFailure::uncertain(isStillInPlace.error().value());
  if (!*isStillInPlace) throw HistoryFailure::movedAtTheEnd();
}

HistoryError HistoryFile::failure(const sqlite::Error& error, HistoryUse use) const {
  return HistoryFailure::of(error, use, patience_);
}

}  // namespace quorvel
