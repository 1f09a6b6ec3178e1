#include "quorvel/history/ConfinedVFS.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <exception>
#include <string_view>
#include <utility>

#include "quorvel/history/SQLite.h"
#include "quorvel/history/VFSFile.h"

// SQLite's own file system opens files by paths alone, which other programs can lead elsewhere between two calls. This
// one opens, looks for and deletes names in an opened folder. It also makes a third of the system calls.

namespace quorvel::sqlite {
namespace {

constexpr mode_t modeOfNewDatabase = 0644;  // SQLite's own; the folder keeps others out
constexpr mode_t permissions = 0777;
constexpr off_t smallestDatabase = 512;

ConfinedVFS& of(sqlite3_vfs* files) {
  return *static_cast<ConfinedVFS*>(files->pAppData);
}

bool isBeside(const char* database, const char* name, std::string_view suffix) noexcept {
  if (!database || !name) return false;
  const std::string_view own = database;
  const std::string_view other = name;
  return other.size() == own.size() + suffix.size() && other.starts_with(own) && other.ends_with(suffix);
}

bool isRefusedForWriting(int error) {
  return error == EACCES || error == EPERM || error == EROFS;
}

/// Whether opening a name failed because it is a link, a folder, or a pipe or socket that nobody listens to.
bool isNoFile(int error) {
  return error == ELOOP || error == EISDIR || error == ENXIO;
}

}  // namespace

template <auto operation, typename... Arguments>
int ConfinedVFS::passOn(sqlite3_vfs* files, Arguments... arguments) {
  sqlite3_vfs* system = of(files).system_;
  return (system->*operation)(system, arguments...);
}

ConfinedVFS::ConfinedVFS(std::shared_ptr<const Descriptor> folder, const SystemCalls& calls)
    : folder_(std::move(folder)),
      calls_(calls),
      system_(sqlite3_vfs_find(nullptr)),
      name_("confined " + std::to_string(reinterpret_cast<std::uintptr_t>(this))) {
  if (!system_) throw Error(SQLITE_ERROR, 0, sqlite3_errstr(SQLITE_ERROR));
  files_.iVersion = 2;
  files_.szOsFile = sizeOfVFSFile;
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
  files_.xGetLastError = lastError;
  const int code = sqlite3_vfs_register(&files_, 0);
  if (code != SQLITE_OK) throw Error(code, 0, sqlite3_errstr(code));
}

ConfinedVFS::~ConfinedVFS() {
  sqlite3_vfs_unregister(&files_);
}

int ConfinedVFS::failed(int code) noexcept {
  lastError_ = errno;
  return code;
}

bool ConfinedVFS::isJournal(const char* name) const noexcept {
  return isBeside(database_.name, name, "-journal");
}

bool ConfinedVFS::isLog(const char* name) const noexcept {
  return isBeside(database_.name, name, "-wal");
}

int ConfinedVFS::refusal(const char* name) const noexcept {
  return isLog(name) ? writeAheadLog : otherFile;
}

int ConfinedVFS::open(sqlite3_vfs* files, const char* name, sqlite3_file* file, int flags, int* flagsUsed) noexcept {
  ConfinedVFS& own = of(files);
  file->pMethods = nullptr;  // which tells SQLite that there is nothing to close
  try {
    if ((flags & SQLITE_OPEN_MAIN_DB) != 0 && !own.database_.name)
      return own.openDatabase(name, file, flags, flagsUsed);
    if ((flags & SQLITE_OPEN_MAIN_JOURNAL) != 0 && own.isJournal(name))
      return own.openJournal(name, file, flags, flagsUsed);
    return own.refusal(name);
  } catch (const std::exception&) {
    return SQLITE_NOMEM;
  }
}

int ConfinedVFS::openDatabase(const char* name, sqlite3_file* file, int flags, int* flagsUsed) {
  const bool writes = (flags & SQLITE_OPEN_READWRITE) != 0;
  const int creating = (flags & SQLITE_OPEN_CREATE) != 0 ? O_CREAT : 0;
  int used = flags;
  Descriptor opened(calls_.open(folder_->get(), name, (writes ? O_RDWR : O_RDONLY) | creating, modeOfNewDatabase));
  if (!opened && writes && isRefusedForWriting(errno)) {
    used = (flags & ~(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)) | SQLITE_OPEN_READONLY;
    const int error = errno;
    opened = Descriptor(calls_.open(folder_->get(), name, O_RDONLY, 0));
    if (!opened) errno = error;
  }
  if (!opened) return isNoFile(errno) ? databaseIsNoFile : failed(SQLITE_CANTOPEN);
  database_.name = name;
  openVFSFile(file, *this, std::move(opened), VFSFileKind::database, std::nullopt);
  if (flagsUsed) *flagsUsed = used;
  return SQLITE_OK;
}

int ConfinedVFS::judgeDatabase(const struct stat& status) {
  if (!S_ISREG(status.st_mode)) return databaseIsNoFile;
  database_ = {
      database_.name, {status.st_dev, status.st_ino}, status.st_mode & permissions, status.st_uid, status.st_gid};
  // SQLite takes a file that is too short for a database to be empty, and would write over it.
  if (status.st_size == 0 || status.st_size >= smallestDatabase) return SQLITE_OK;
  const bool hasJournal = identityOf(folder_->get(), std::string(database_.name) + "-journal").has_value();
  return hasJournal ? SQLITE_OK : SQLITE_NOTADB;
}

/// Whoever may use the database must be able to play its journal back, so a new journal gets the database's permissions
/// and owner.
int ConfinedVFS::openJournal(const char* name, sqlite3_file* file, int flags, int* flagsUsed) {
  const bool writes = (flags & SQLITE_OPEN_READWRITE) != 0;
  const bool creates = (flags & SQLITE_OPEN_CREATE) != 0;
  Descriptor opened(
      calls_.open(folder_->get(), name, (writes ? O_RDWR : O_RDONLY) | (creates ? O_CREAT : 0), database_.mode));
  if (!opened) return isNoFile(errno) ? journalIsNoFile : failed(SQLITE_CANTOPEN);
  struct stat status {};
  if (::fstat(opened.get(), &status) != 0) return failed(SQLITE_CANTOPEN);
  if (!S_ISREG(status.st_mode)) return journalIsNoFile;
  // One that is there already is written over, and its other name may be outside the library.
  if (creates && status.st_nlink > 1) return journalHasOtherName;
  if (creates && status.st_size == 0) {
    const bool hasMode = (status.st_mode & permissions) == database_.mode;
    if (!hasMode && ::fchmod(opened.get(), database_.mode) != 0) return failed(SQLITE_CANTOPEN);
    const bool hasOwner = status.st_uid == database_.owner && status.st_gid == database_.group;
    if (!hasOwner && ::geteuid() == 0 && ::fchown(opened.get(), database_.owner, database_.group) != 0)
      return failed(SQLITE_CANTOPEN);
  }
  openVFSFile(file, *this, std::move(opened), creates ? VFSFileKind::newJournal : VFSFileKind::journal, status.st_size);
  if (flagsUsed) *flagsUsed = flags;
  return SQLITE_OK;
}

int ConfinedVFS::remove(sqlite3_vfs* files, const char* name, int flushing) noexcept {
  ConfinedVFS& own = of(files);
  if (!own.isJournal(name)) return own.refusal(name);
  if (own.calls_.unlink(own.folder_->get(), name) != 0)
    return own.failed(errno == ENOENT ? SQLITE_IOERR_DELETE_NOENT : SQLITE_IOERR_DELETE);
  if (flushing == 0) return SQLITE_OK;
  return own.calls_.flushFolder(own.folder_->get()) == 0 ? SQLITE_OK : own.failed(SQLITE_IOERR_DIR_FSYNC);
}

/// SQLite takes an empty journal for none, as a program leaves it that dies before anything is flushed.
int ConfinedVFS::access(sqlite3_vfs* files, const char* name, int, int* answer) noexcept {
  ConfinedVFS& own = of(files);
  *answer = 0;
  if (!own.isJournal(name) && !own.isLog(name)) return own.refusal(name);
  struct stat status {};
  if (own.calls_.status(own.folder_->get(), name, &status) != 0)
    return errno == ENOENT ? SQLITE_OK : own.failed(SQLITE_IOERR_ACCESS);
  const bool isFile = S_ISREG(status.st_mode);
  if (isFile && status.st_size == 0) return SQLITE_OK;
  if (own.isLog(name)) return writeAheadLog;
  if (!isFile) return journalIsNoFile;
  *answer = 1;
  return SQLITE_OK;
}

/// Names stay as they are: they are names in the folder.
int ConfinedVFS::fullPath(sqlite3_vfs*, const char* name, int size, char* path) noexcept {
  const std::string_view whole = name;
  if (size <= 0 || whole.size() >= static_cast<std::size_t>(size)) return SQLITE_CANTOPEN_FULLPATH;
  path[whole.copy(path, whole.size())] = '\0';
  return SQLITE_OK;
}

int ConfinedVFS::lastError(sqlite3_vfs* files, int, char*) noexcept {
  return of(files).lastError_;
}

}  // namespace quorvel::sqlite
