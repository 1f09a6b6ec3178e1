#pragma once

#include <sqlite3.h>

#include <string>

namespace quorvel::sqlite {

/// The file system as one connection sees it: the database that it opens first and the rollback journal beside it.
///
/// SQLite does what these files ask of it, and whoever can put a file beside a script can write them: a journal can
/// name a file anywhere on the disk, which SQLite deletes once the journal is played back, and a database can ask for a
/// write-ahead log, which makes two files as soon as it is read. Neither happens here. SQLite's temporary files are
/// refused as well, so what it needs for a moment has to stay in memory.
///
/// Lives as long as the connection that was opened with its name.
class OneDatabase {
 public:
  /// The code of the failure when another file was asked for: for a write-ahead log, and for anything else.
  static constexpr int otherFile = SQLITE_AUTH;
  static constexpr int writeAheadLog = SQLITE_AUTH | (2 << 8);

  /// Throws sqlite::Error.
  OneDatabase();
  OneDatabase(const OneDatabase&) = delete;
  OneDatabase& operator=(const OneDatabase&) = delete;
  ~OneDatabase();

  /// What sqlite3_open_v2 finds it by.
  const char* name() const noexcept { return name_.c_str(); }

 private:
  template <auto operation, typename... Arguments>
  static int passOn(sqlite3_vfs* files, Arguments... arguments);

  static int open(sqlite3_vfs* files, const char* name, sqlite3_file* file, int flags, int* flagsUsed);
  static int remove(sqlite3_vfs* files, const char* name, int flushing);
  static int access(sqlite3_vfs* files, const char* name, int what, int* answer);

  sqlite3_vfs* const system_;
  const std::string name_;
  sqlite3_vfs files_{};
  const char* database_ = nullptr;  // SQLite's own, which stays as long as the database is open
};

}  // namespace quorvel::sqlite
