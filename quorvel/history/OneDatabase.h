#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>

#include "quorvel/files/Descriptor.h"

namespace quorvel::sqlite {

/// The file system as one connection sees it: one opened folder, and in it the database that the connection opens first
/// and the rollback journal beside it. Both are opened, made, looked for and deleted in that folder and nowhere else,
/// whatever other programs put in the place of its name meanwhile. Neither is ever a link or anything but a file.
///
/// SQLite does what these files ask of it, and whoever can put a file beside a script can write them: a journal can
/// name a file anywhere on the disk, which SQLite deletes once the journal is played back, and a database can ask for a
/// write-ahead log, which makes two files as soon as it is read. Neither happens here. SQLite's temporary files are
/// refused as well, so what it needs for a moment has to stay in memory.
///
/// Reading, writing and locking are SQLite's own, so that any other program which uses SQLite keeps out of the way and
/// is kept out.
///
/// Lives as long as the connection that was opened with its name.
class OneDatabase {
 public:
  /// The code of the failure when another file was asked for: for a write-ahead log, and for anything else.
  static constexpr int otherFile = SQLITE_AUTH;
  static constexpr int writeAheadLog = SQLITE_AUTH | (2 << 8);

  /// The system has no path that leads to an opened folder.
  static constexpr int noWayToFolder = SQLITE_AUTH | (3 << 8);

  /// Throws sqlite::Error.
  explicit OneDatabase(std::shared_ptr<const Descriptor> folder);
  OneDatabase(const OneDatabase&) = delete;
  OneDatabase& operator=(const OneDatabase&) = delete;
  ~OneDatabase();

  /// What sqlite3_open_v2 finds it by.
  const char* name() const noexcept { return name_.c_str(); }

  /// The path by which sqlite3_open_v2 opens a file of the folder.
  std::string path(const std::string& file) const;

  const Descriptor& folder() const noexcept { return *folder_; }

 private:
  template <auto operation, typename... Arguments>
  static int passOn(sqlite3_vfs* files, Arguments... arguments);

  static int open(sqlite3_vfs* files, const char* name, sqlite3_file* file, int flags, int* flagsUsed);
  static int remove(sqlite3_vfs* files, const char* name, int flushing);
  static int access(sqlite3_vfs* files, const char* name, int what, int* answer);
  static int fullPath(sqlite3_vfs* files, const char* name, int size, char* path);

  const std::shared_ptr<const Descriptor> folder_;
  sqlite3_vfs* const system_;
  const std::string name_;
  sqlite3_vfs files_{};
  const char* database_ = nullptr;  // SQLite's own, which stays as long as the database is open
};

}  // namespace quorvel::sqlite
