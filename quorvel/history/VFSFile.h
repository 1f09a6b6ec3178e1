#pragma once

#include <sqlite3.h>
#include <sys/types.h>

#include <optional>

#include "quorvel/files/Descriptor.h"

namespace quorvel::sqlite {

class ConfinedVFS;

/// What kind of file SQLite opened.
enum class VFSFileKind {
  database,
  journal,     ///< One that another program left.
  newJournal,  ///< One that was just created; its name is not on the disk yet.
};

/// How many bytes SQLite must reserve for such a file (sqlite3_vfs::szOsFile).
extern const int sizeOfVFSFile;

/// Makes an opened file one that SQLite reads, writes and locks (sqlite3_io_methods). `room` is the memory that SQLite
/// reserved for it. SQLite owns the file afterwards and closes it, which must happen before `files` ends.
///
/// `size` is the size of a journal, which nobody else changes while it is open; none for a database.
///
/// Throws std::bad_alloc; the descriptor is closed then. The functions that SQLite calls throw nothing: each failure
/// becomes SQLite's code for it, and `files` notes the value of errno.
void openVFSFile(sqlite3_file* room, ConfinedVFS& files, Descriptor opened, VFSFileKind kind,
                 std::optional<off_t> size);

}  // namespace quorvel::sqlite
