#include "quorvel/history/HistoryFile.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "quorvel/files/FileIdentity.h"
#include "quorvel/history/HeldOwnFolder.h"
#include "quorvel/history/OwnFolder.h"

namespace quorvel {
namespace {

using sqlite::Connection;

constexpr const char* journalName = "history.sqlite-journal";
constexpr off_t smallestDatabase = 512;

HistoryError folderFailure(const std::system_error& error, HistoryUse use) {
  const int reason = error.code().value();
  return reason == ENOTDIR ? HistoryFailure::noFolder(use) : HistoryFailure::refused(reason, use);
}

bool isThere(const Descriptor& folder, HistoryUse use) {
  struct stat status {};
  if (::fstatat(folder.get(), historyFileName, &status, AT_SYMLINK_NOFOLLOW) != 0) {
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

void prepare(Connection& connection) {
  connection.runAll("PRAGMA cell_size_check = ON; PRAGMA trusted_schema = OFF");
}

Connection openedForWriting(const std::shared_ptr<const Descriptor>& folder, Connection::Access access,
                            std::chrono::milliseconds patience) {
  Connection connection(folder, historyFileName, access, patience);
  prepare(connection);
  {
    // Held at its row, it keeps the database locked for reading, so that the lines below it neither unlock and lock it
    // nor look for a journal each anew. A writer that is in the way meanwhile is waited for only without it.
    auto held = connection.prepare("PRAGMA application_id");
    held.next();
    connection.runAll("PRAGMA journal_mode = DELETE; PRAGMA synchronous = EXTRA");
    try {
      connection.run("BEGIN IMMEDIATE");
      return connection;
    } catch (const sqlite::Error& error) {
      if (error.primaryCode() != SQLITE_BUSY) throw;
    }
  }
  connection.run("BEGIN IMMEDIATE");
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
void makeReadable(const std::shared_ptr<const Descriptor>& folder, std::chrono::milliseconds patience,
                  std::span<const std::string_view> migrations) {
  Connection connection = openedForWriting(folder, Connection::Access::writing, patience);
  bringUpToDate(connection, migrations, HistoryUse::reading);
  connection.run("COMMIT");
}

/// Whether what the connection writes to is what the library's path leads to.
bool isInPlace(const Connection& connection, const OpenedRoot& root) {
  return root.isInPlace() && !connection.hasMoved() &&
         identityOf(root.folder().get(), std::string(ownFolderName)) == identityOf(connection.folder().get());
}

}  // namespace

HistoryFile::HistoryFile(std::filesystem::path root, std::chrono::milliseconds patience,
                         std::span<const std::string_view> migrations)
    : root_(std::move(root)), patience_(patience), migrations_(migrations) {
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

std::optional<Connection> HistoryFile::reading(const OpenedRoot& root) const {
  constexpr HistoryUse use = HistoryUse::reading;
  std::shared_ptr<const Descriptor> folder;
  try {
    folder = std::make_shared<const Descriptor>(openOwnFolder(root.folder()));
    if (!*folder || !isThere(*folder, use)) return std::nullopt;
  } catch (const std::system_error& error) {
    throw folderFailure(error, use);
  }
  for (bool repaired = false;; repaired = true) {
    try {
      Connection connection(folder, historyFileName, Connection::Access::reading, patience_);
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
    makeReadable(folder, patience_, migrations_);
  }
}

Connection HistoryFile::writing(const OpenedRoot& root) const {
  constexpr HistoryUse use = HistoryUse::writing;
  std::shared_ptr<const Descriptor> folder;
  try {
    const auto held = HeldOwnFolder::of(root);
    folder = held ? held->folder() : std::make_shared<const Descriptor>(makeOwnFolder(root.folder()));
    // The folder's own name is flushed before a database is made in it, by whichever process the folder was made: once
    // there is a database, it cannot vanish with its folder.
    if (!isThere(*folder, use)) flushRoot(root.folder());
  } catch (const std::system_error& error) {
    throw folderFailure(error, use);
  }
  Connection connection = openedForWriting(folder, Connection::Access::creating, patience_);
  bringUpToDate(connection, migrations_, use);
  return connection;
}

void HistoryFile::commit(Connection& connection, const OpenedRoot& root) {
  if (!isInPlace(connection, root)) {
    const auto error = root.errorOfLooking();
    throw error ? HistoryFailure::refused(error.value(), HistoryUse::writing) : HistoryFailure::moved();
  }
  connection.run("COMMIT");
  if (!isInPlace(connection, root)) {
    const auto error = root.errorOfLooking();
    throw error ? HistoryFailure::uncertain(error.value()) : HistoryFailure::movedAtTheEnd();
  }
}

HistoryError HistoryFile::failure(const sqlite::Error& error, HistoryUse use) const {
  return HistoryFailure::of(error, use, patience_);
}

}  // namespace quorvel
