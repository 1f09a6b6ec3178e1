#include "quorvel/history/OneDatabase.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdint>
#include <string_view>
#include <utility>

#include "quorvel/files/OpenedFolderPath.h"
#include "quorvel/files/SystemCalls.h"
#include "quorvel/history/BufferedJournal.h"
#include "quorvel/history/SQLite.h"

// SQLite's own file system knows files by their paths alone. So it gets paths that begin with the system's name for the
// descriptor of the folder (OpenedFolderPath.h) and go on with a single piece, which it opens without following a link.

namespace quorvel::sqlite {
namespace {

OneDatabase& of(sqlite3_vfs* files) {
  return *static_cast<OneDatabase*>(files->pAppData);
}

/// Whether the name is the database's with this at its end.
bool isBeside(const char* database, const char* name, std::string_view suffix) {
  if (!database || !name) return false;
  const std::string_view own = database;
  const std::string_view other = name;
  return other.size() == own.size() + suffix.size() && other.starts_with(own) && other.ends_with(suffix);
}

bool isJournal(const char* database, const char* name) {
  return isBeside(database, name, "-journal");
}

bool isLog(const char* database, const char* name) {
  return isBeside(database, name, "-wal");
}

int refusal(const char* database, const char* name) {
  return isLog(database, name) ? OneDatabase::writeAheadLog : OneDatabase::otherFile;
}

/// Whether something other than a file has the last piece of the path for its name in the folder.
bool isTakenByNoFile(const Descriptor& folder, std::string_view path) {
  const std::string name(path.substr(path.rfind('/') + 1));
  struct stat status;
  return ::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISREG(status.st_mode);
}

}  // namespace

template <auto operation, typename... Arguments>
int OneDatabase::passOn(sqlite3_vfs* files, Arguments... arguments) {
  sqlite3_vfs* system = of(files).system_;
  return (system->*operation)(system, arguments...);
}

OneDatabase::OneDatabase(std::shared_ptr<const Descriptor> folder)
    : folder_(std::move(folder)),
      system_(sqlite3_vfs_find(nullptr)),
      name_("one database " + std::to_string(reinterpret_cast<std::uintptr_t>(this))) {
  if (!system_) throw Error(SQLITE_ERROR, 0, sqlite3_errstr(SQLITE_ERROR));
  if (const std::error_code error = errorOfPath(openedFolderPath(*folder_), *folder_)) {
    if (error != std::errc::no_such_file_or_directory && error != std::errc::not_a_directory)
      throw Error(SQLITE_CANTOPEN, error.value(), sqlite3_errstr(SQLITE_CANTOPEN));
    throw Error(noWayToFolder, 0, "no path leads to an opened folder");
  }
  files_.iVersion = 2;
  files_.szOsFile = sizeOfBufferedJournal(system_->szOsFile);
  files_.mxPathname = system_->mxPathname;
  files_.zName = name_.c_str();
  files_.pAppData = this;
  files_.xOpen = open;
  files_.xDelete = remove;
  files_.xAccess = access;
  files_.xFullPathname = fullPath;
  files_.xRandomness = passOn<&sqlite3_vfs::xRandomness>;
  files_.xSleep = passOn<&sqlite3_vfs::xSleep>;
  files_.xCurrentTime = passOn<&sqlite3_vfs::xCurrentTime>;
  files_.xCurrentTimeInt64 = passOn<&sqlite3_vfs::xCurrentTimeInt64>;
  files_.xGetLastError = passOn<&sqlite3_vfs::xGetLastError>;
  const int code = sqlite3_vfs_register(&files_, 0);
  if (code != SQLITE_OK) throw Error(code, 0, sqlite3_errstr(code));
}

OneDatabase::~OneDatabase() {
  sqlite3_vfs_unregister(&files_);
}

int OneDatabase::open(sqlite3_vfs* files, const char* name, sqlite3_file* file, int flags, int* flagsUsed) {
  OneDatabase& own = of(files);
  file->pMethods = nullptr;  // which tells SQLite that there is nothing to close
  const bool isFirst = !own.database_ && (flags & SQLITE_OPEN_MAIN_DB) != 0;
  if (isFirst) own.database_ = name;
  const bool isOwn = isFirst || ((flags & SQLITE_OPEN_MAIN_JOURNAL) != 0 && isJournal(own.database_, name));
  if (!isOwn) return refusal(own.database_, name);
  if (isTakenByNoFile(*own.folder_, name)) return SQLITE_CANTOPEN_SYMLINK;
  return isFirst ? own.system_->xOpen(own.system_, name, file, flags, flagsUsed)
                 : openBufferedJournal(own.system_, name, file, flags, flagsUsed);
}

int OneDatabase::remove(sqlite3_vfs* files, const char* name, int flushing) {
  const OneDatabase& own = of(files);
  if (!isJournal(own.database_, name)) return refusal(own.database_, name);
  const int code = own.system_->xDelete(own.system_, name, 0);
  if (code != SQLITE_OK || flushing == 0) return code;
  return SystemCalls::ofTheSystem().flushFolder(own.folder_->get()) == 0 ? SQLITE_OK : SQLITE_IOERR_DIR_FSYNC;
}

int OneDatabase::access(sqlite3_vfs* files, const char* name, int what, int* answer) {
  const OneDatabase& own = of(files);
  const bool isOwn = isJournal(own.database_, name) || isLog(own.database_, name);
  return isOwn ? own.system_->xAccess(own.system_, name, what, answer) : refusal(own.database_, name);
}

/// The paths are absolute, and are not resolved, which would give the name back that the folder has now.
int OneDatabase::fullPath(sqlite3_vfs*, const char* name, int size, char* path) {
  const std::string_view whole = name;
  if (size <= 0 || whole.size() >= static_cast<std::size_t>(size)) return SQLITE_CANTOPEN_FULLPATH;
  path[whole.copy(path, whole.size())] = '\0';
  return SQLITE_OK;
}

std::string OneDatabase::path(const std::string& file) const {
  return openedFolderPath(*folder_) + '/' + file;
}

}  // namespace quorvel::sqlite
