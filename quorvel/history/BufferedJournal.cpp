#include "quorvel/history/BufferedJournal.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string>

// The system's file lies in the same room, behind ours. What waits is one run of bytes: a write within it or at its end
// joins it, any other one sends it off first. So does a read of which only a part waits.

namespace quorvel::sqlite {
namespace {

constexpr std::size_t mostWaiting = std::size_t{1} << 20;

struct Journal {
  sqlite3_file base{};  // first, as SQLite knows the journal by it
  std::string waiting;
  sqlite3_int64 begin = 0;

  sqlite3_int64 end() const { return begin + static_cast<sqlite3_int64>(waiting.size()); }
};

constexpr std::size_t behind =
    (sizeof(Journal) + alignof(std::max_align_t) - 1) / alignof(std::max_align_t) * alignof(std::max_align_t);

Journal& of(sqlite3_file* file) {
  return *reinterpret_cast<Journal*>(file);
}

sqlite3_file* systemFile(sqlite3_file* file) {
  return reinterpret_cast<sqlite3_file*>(reinterpret_cast<char*>(file) + behind);
}

template <auto operation, typename... Arguments>
int passOn(sqlite3_file* file, Arguments... arguments) {
  sqlite3_file* system = systemFile(file);
  return (system->pMethods->*operation)(system, arguments...);
}

// What could not be sent off goes on waiting, so that a change that the disk has no room for can be undone.
int sendOff(sqlite3_file* file) {
  Journal& journal = of(file);
  if (journal.waiting.empty()) return SQLITE_OK;
  const int code = passOn<&sqlite3_io_methods::xWrite>(file, static_cast<const void*>(journal.waiting.data()),
                                                       static_cast<int>(journal.waiting.size()), journal.begin);
  if (code == SQLITE_OK) journal.waiting.clear();
  return code;
}

int write(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 at) {
  Journal& journal = of(file);
  const bool joins = at >= journal.begin && at <= journal.end() && journal.waiting.size() < mostWaiting;
  if (!joins) {
    if (const int code = sendOff(file); code != SQLITE_OK) return code;
  }
  if (journal.waiting.empty()) journal.begin = at;
  const auto from = static_cast<std::size_t>(at - journal.begin);
  const auto size = static_cast<std::size_t>(count);
  try {
    journal.waiting.resize(std::max(journal.waiting.size(), from + size));
  } catch (const std::bad_alloc&) {
    return SQLITE_IOERR_NOMEM;
  }
  std::memcpy(journal.waiting.data() + from, bytes, size);
  return SQLITE_OK;
}

int read(sqlite3_file* file, void* bytes, int count, sqlite3_int64 at) {
  const Journal& journal = of(file);
  const bool overlaps = at < journal.end() && at + count > journal.begin;
  if (overlaps && at >= journal.begin && at + count <= journal.end()) {
    std::memcpy(bytes, journal.waiting.data() + (at - journal.begin), static_cast<std::size_t>(count));
    return SQLITE_OK;
  }
  if (overlaps) {
    if (const int code = sendOff(file); code != SQLITE_OK) return code;
  }
  return passOn<&sqlite3_io_methods::xRead>(file, bytes, count, at);
}

int truncate(sqlite3_file* file, sqlite3_int64 size) {
  const int code = sendOff(file);
  return code == SQLITE_OK ? passOn<&sqlite3_io_methods::xTruncate>(file, size) : code;
}

int flush(sqlite3_file* file, int flags) {
  const int code = sendOff(file);
  return code == SQLITE_OK ? passOn<&sqlite3_io_methods::xSync>(file, flags) : code;
}

int fileSize(sqlite3_file* file, sqlite3_int64* size) {
  const int code = passOn<&sqlite3_io_methods::xFileSize>(file, size);
  const Journal& journal = of(file);
  if (code == SQLITE_OK && !journal.waiting.empty()) *size = std::max(*size, journal.end());
  return code;
}

// SQLite closes a journal that it is done with, or that it failed with and that a later opener plays back: what still
// waits then was never flushed, so nothing in the database relies on it.
int close(sqlite3_file* file) {
  const int code = passOn<&sqlite3_io_methods::xClose>(file);
  std::destroy_at(&of(file));
  return code;
}

constexpr sqlite3_io_methods methods() {
  sqlite3_io_methods methods{};
  methods.iVersion = 1;
  methods.xClose = close;
  methods.xRead = read;
  methods.xWrite = write;
  methods.xTruncate = truncate;
  methods.xSync = flush;
  methods.xFileSize = fileSize;
  methods.xLock = passOn<&sqlite3_io_methods::xLock>;
  methods.xUnlock = passOn<&sqlite3_io_methods::xUnlock>;
  methods.xCheckReservedLock = passOn<&sqlite3_io_methods::xCheckReservedLock>;
  methods.xFileControl = passOn<&sqlite3_io_methods::xFileControl>;
  methods.xSectorSize = passOn<&sqlite3_io_methods::xSectorSize>;
  methods.xDeviceCharacteristics = passOn<&sqlite3_io_methods::xDeviceCharacteristics>;
  return methods;
}

constexpr sqlite3_io_methods journalMethods = methods();

}  // namespace

int sizeOfBufferedJournal(int sizeOfSystemFile) noexcept {
  return static_cast<int>(behind) + sizeOfSystemFile;
}

int openBufferedJournal(sqlite3_vfs* system, const char* name, sqlite3_file* file, int flags, int* flagsUsed) noexcept {
  Journal* journal = new (file) Journal;
  systemFile(file)->pMethods = nullptr;
  const int code = system->xOpen(system, name, systemFile(file), flags, flagsUsed);
  if (systemFile(file)->pMethods) {  // then it is to be closed, even if it could not be opened
    journal->base.pMethods = &journalMethods;
  } else {
    std::destroy_at(journal);
    file->pMethods = nullptr;
  }
  return code;
}

}  // namespace quorvel::sqlite
