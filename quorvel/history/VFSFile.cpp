#include "quorvel/history/VFSFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <system_error>
#include <utility>

#include "quorvel/files/Expected.h"
#include "quorvel/history/BufferedFile.h"
#include "quorvel/history/ConfinedVFS.h"
#include "quorvel/history/DatabaseLock.h"

// SQLite calls these through C, so no exception leaves them: each becomes the code that SQLite knows for the operation,
// and the system's reason waits in the file system for whoever asks.
//
// What the database holds is remembered only while the connection has a lock on it. What is written to it waits only as
// long as no other connection may look.

namespace quorvel::sqlite {
namespace {

constexpr int sectorSize = 4096;           // SQLite's own default
constexpr sqlite3_int64 readVersion = 19;  // the byte of the header that says how a database is to be read
constexpr char withLog = 2;

struct Opened {
  ConfinedVFS& files;
  BufferedFile bytes;
  DatabaseLock lock;
  const bool isDatabase;
  bool hasNewName;

  Opened(ConfinedVFS& vfs, Descriptor descriptor, VFSFileKind kind)
      : files(vfs),
        bytes(vfs.calls(), std::move(descriptor)),
        lock(bytes.descriptor()),
        isDatabase(kind == VFSFileKind::database),
        hasNewName(kind == VFSFileKind::newJournal) {}
};

/// What is in the room that SQLite gives.
struct Room {
  sqlite3_file base;  // first, because SQLite knows the file by it
  Opened* opened;
};

Opened& of(sqlite3_file* file) {
  return *reinterpret_cast<Room*>(file)->opened;
}

/// What `work` returns, or this code if the system fails.
template <typename Work>
int guarded(sqlite3_file* file, int code, Work work) noexcept {
  try {
    return work(of(file));
  } catch (const std::system_error& error) {
    of(file).files.setLastError(error.code().value());
    return code;
  } catch (const std::bad_alloc&) {
    return SQLITE_IOERR_NOMEM;
  }
}

int close(sqlite3_file* file) {
  delete &of(file);
  return SQLITE_OK;
}

int read(sqlite3_file* file, void* bytes, int count, sqlite3_int64 at) {
  return guarded(file, SQLITE_IOERR_READ, [&](Opened& own) {
    char* const begin = static_cast<char*>(bytes);
    const auto wanted = static_cast<std::size_t>(count);
    // SQLite reads the header when it opens the database, and again once it has the lock. Only the second counts, so
    // the first is answered as for an empty database.
    if (own.isDatabase && own.lock.level() == DatabaseLock::none) {
      std::memset(begin, 0, wanted);
      return SQLITE_IOERR_SHORT_READ;
    }
    const std::size_t found = own.bytes.read(begin, wanted, at);
    const bool hasVersion = own.isDatabase && at == 0 && count > readVersion;
    if (hasVersion && begin[readVersion] == withLog) return ConfinedVFS::writeAheadLog;
    return found == wanted ? SQLITE_OK : SQLITE_IOERR_SHORT_READ;
  });
}

int write(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 at) {
  return guarded(file, SQLITE_IOERR_WRITE, [&](Opened& own) {
    own.bytes.write(static_cast<const char*>(bytes), static_cast<std::size_t>(count), at);
    return SQLITE_OK;
  });
}

int truncate(sqlite3_file* file, sqlite3_int64 size) {
  return guarded(file, SQLITE_IOERR_TRUNCATE, [&](Opened& own) {
    own.bytes.truncate(size);
    return SQLITE_OK;
  });
}

/// From the first flush of a journal on, others may play it back into the database beside it. So this is the moment to
/// see that it is the right one. The journal's name is flushed too: only then may the database change.
int flush(sqlite3_file* file, int) {
  return guarded(file, SQLITE_IOERR_FSYNC, [&](Opened& own) {
    if (own.hasNewName) {
      const Expected<bool> isInPlace = own.files.isInPlace();
      if (!isInPlace) throw std::system_error(isInPlace.error());
      if (!*isInPlace) return SQLITE_READONLY_DBMOVED;
    }
    own.bytes.flush();
    if (own.hasNewName && own.files.calls().flushFolder(own.files.folder().get()) != 0)
      throw std::system_error(errno, std::generic_category());
    own.hasNewName = false;
    return SQLITE_OK;
  });
}

int fileSize(sqlite3_file* file, sqlite3_int64* size) {
  return guarded(file, SQLITE_IOERR_FSTAT, [&](Opened& own) {
    *size = own.bytes.size();
    return SQLITE_OK;
  });
}

/// Looks at a database that was just locked.
int lookAt(Opened& own) {
  struct stat status {};
  if (::fstat(own.bytes.descriptor(), &status) != 0) {
    own.files.setLastError(errno);
    own.lock.lower(DatabaseLock::none);
    return SQLITE_IOERR_FSTAT;
  }
  own.bytes.remember(status.st_size);
  const int code = own.files.judgeDatabase(status);
  if (code != SQLITE_OK) {
    own.bytes.forget();
    own.lock.lower(DatabaseLock::none);
  }
  return code;
}

int lock(sqlite3_file* file, int level) {
  return guarded(file, SQLITE_IOERR_LOCK, [&](Opened& own) {
    const bool isFirst = own.lock.level() == DatabaseLock::none;
    if (!own.lock.raise(static_cast<DatabaseLock::Level>(level))) return SQLITE_BUSY;
    return isFirst ? lookAt(own) : SQLITE_OK;
  });
}

int unlock(sqlite3_file* file, int level) {
  const int sent = guarded(file, SQLITE_IOERR_WRITE, [&](Opened& own) {
    own.bytes.sendWaiting();
    return SQLITE_OK;
  });
  const int lowered = guarded(file, SQLITE_IOERR_UNLOCK, [&](Opened& own) {
    if (level == SQLITE_LOCK_NONE) own.bytes.forget();
    own.lock.lower(static_cast<DatabaseLock::Level>(level));
    return SQLITE_OK;
  });
  return lowered == SQLITE_OK ? sent : lowered;
}

int checkReservedLock(sqlite3_file* file, int* answer) {
  return guarded(file, SQLITE_IOERR_CHECKRESERVEDLOCK, [&](Opened& own) {
    *answer = own.lock.isReserved() ? 1 : 0;
    return SQLITE_OK;
  });
}

int control(sqlite3_file* file, int what, void* answer) {
  if (what != SQLITE_FCNTL_LAST_ERRNO) return SQLITE_NOTFOUND;
  *static_cast<int*>(answer) = of(file).files.lastError();
  return SQLITE_OK;
}

int sizeOfSector(sqlite3_file*) {
  return sectorSize;
}

/// As SQLite takes for granted of all disks: a write leaves the bytes beside it alone even if the power fails.
int characteristics(sqlite3_file*) {
  return SQLITE_IOCAP_POWERSAFE_OVERWRITE;
}

constexpr sqlite3_io_methods methods() {
  sqlite3_io_methods methods{};
  methods.iVersion = 1;  // without the shared memory that a write-ahead log needs
  methods.xClose = close;
  methods.xRead = read;
  methods.xWrite = write;
  methods.xTruncate = truncate;
  methods.xSync = flush;
  methods.xFileSize = fileSize;
  methods.xLock = lock;
  methods.xUnlock = unlock;
  methods.xCheckReservedLock = checkReservedLock;
  methods.xFileControl = control;
  methods.xSectorSize = sizeOfSector;
  methods.xDeviceCharacteristics = characteristics;
  return methods;
}

constexpr sqlite3_io_methods fileMethods = methods();

}  // namespace

const int sizeOfVFSFile = static_cast<int>(sizeof(Room));

void openVFSFile(sqlite3_file* room, ConfinedVFS& files, Descriptor opened, VFSFileKind kind,
                 std::optional<off_t> size) {
  auto file = std::make_unique<Opened>(files, std::move(opened), kind);
  // Nobody else changes a journal while its database is locked, as it always is when SQLite opens one.
  if (size) file->bytes.remember(*size);
  new (room) Room{{&fileMethods}, file.release()};
}

}  // namespace quorvel::sqlite
