#pragma once

#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/Expected.h"
#include "quorvel/files/FileIdentity.h"
#include "quorvel/files/SystemCalls.h"

namespace quorvel::sqlite {

/// The file system of one connection (a VFS, as SQLite calls it): one opened folder, and in it the database that the
/// connection opens first and that database's rollback journal. Both are opened, created, looked for and deleted in
/// that folder and nowhere else, whatever other programs put in the place of its name meanwhile. Neither is ever a link
/// or anything but a file.
///
/// SQLite does what these files ask of it, and whoever can put a file beside a script can write them: a journal can
/// name a file anywhere on the disk, which SQLite deletes after playing the journal back, and a database can ask for a
/// write-ahead log, which creates two files as soon as the database is read. Both are refused, and so are temporary
/// files: SQLite must keep its temporary data in memory.
///
/// Locks exclude other programs that use SQLite in the usual way, and are excluded by them (DatabaseLock.h). There is
/// one exception: if this process also opens the database in the usual way, that connection loses its locks whenever
/// one of ours is closed. POSIX demands that.
///
///     ConfinedVFS files(folder, SystemCalls::ofTheSystem());
///     sqlite3_open_v2("history.sqlite", &connection, flags, files.name());
///
/// Must outlive the connection that was opened with its name. For one thread at a time.
class ConfinedVFS {
 public:
  /// The codes of failures that SQLite does not know: another file was asked for; the database has a write-ahead log;
  /// the database, or its journal, is not a file but a link, a folder, a pipe or the like; the file that a new journal
  /// would be written over has another name, too (a hard link).
  static constexpr int otherFile = SQLITE_AUTH;
  static constexpr int writeAheadLog = SQLITE_AUTH | (2 << 8);
  static constexpr int databaseIsNoFile = SQLITE_AUTH | (3 << 8);
  static constexpr int journalIsNoFile = SQLITE_AUTH | (4 << 8);
  static constexpr int journalHasOtherName = SQLITE_AUTH | (5 << 8);

  /// Registers the file system. `calls` must outlive it. Throws sqlite::Error.
  ConfinedVFS(std::shared_ptr<const Descriptor> folder, const SystemCalls& calls);
  ConfinedVFS(const ConfinedVFS&) = delete;
  ConfinedVFS& operator=(const ConfinedVFS&) = delete;
  ~ConfinedVFS();

  /// What sqlite3_open_v2 finds it by. The database's own name is given without a folder.
  const char* name() const noexcept { return name_.c_str(); }

  const Descriptor& folder() const noexcept { return *folder_; }
  const SystemCalls& calls() const noexcept { return calls_; }

  /// Which file the database is. Known once the connection has locked it.
  FileIdentity database() const noexcept { return database_.identity; }

  /// Just before the first bytes of a change reach the disk, `isInPlace` is asked whether the database is still the
  /// right one. If not, the change fails with SQLITE_READONLY_DBMOVED and changes nothing; with an error, as a flush
  /// that the system refused.
  void setGuard(std::function<Expected<bool>(const FileIdentity& database)> isInPlace) {
    isInPlace_ = std::move(isInPlace);
  }
  Expected<bool> isInPlace() const { return isInPlace_ ? isInPlace_(database_.identity) : true; }

  /// Notes which file the database is, whenever it was just locked. Returns a code that refuses it, or SQLITE_OK.
  int judgeDatabase(const struct stat& status);

  /// The value of errno behind the latest failure of the system, for the message to the person.
  void setLastError(int error) noexcept { lastError_ = error; }
  int lastError() const noexcept { return lastError_; }

 private:
  /// What is known of the database since it was opened.
  struct Database {
    const char* name;  // SQLite's own, which stays as long as the database is open
    FileIdentity identity;
    mode_t mode;
    uid_t owner;
    gid_t group;
  };

  template <auto operation, typename... Arguments>
  static int passOn(sqlite3_vfs* files, Arguments... arguments);

  static int open(sqlite3_vfs* files, const char* name, sqlite3_file* file, int flags, int* flagsUsed) noexcept;
  static int remove(sqlite3_vfs* files, const char* name, int flushing) noexcept;
  static int access(sqlite3_vfs* files, const char* name, int what, int* answer) noexcept;
  static int fullPath(sqlite3_vfs* files, const char* name, int size, char* path) noexcept;
  static int lastError(sqlite3_vfs* files, int size, char* text) noexcept;

  int openDatabase(const char* name, sqlite3_file* file, int flags, int* flagsUsed);
  int openJournal(const char* name, sqlite3_file* file, int flags, int* flagsUsed);
  int failed(int code) noexcept;
  int refusal(const char* name) const noexcept;
  bool isJournal(const char* name) const noexcept;
  bool isLog(const char* name) const noexcept;

  const std::shared_ptr<const Descriptor> folder_;
  const SystemCalls& calls_;
  sqlite3_vfs* const system_;
  const std::string name_;
  sqlite3_vfs files_{};
  Database database_{};
  std::function<Expected<bool>(const FileIdentity& database)> isInPlace_;
  int lastError_ = 0;
};

}  // namespace quorvel::sqlite
