#pragma once

#include <sqlite3.h>
#include <sys/types.h>

#include <optional>

#include "quorvel/files/Descriptor.h"

namespace quorvel::sqlite {

class ConfinedVFS;

enum class VFSFileKind {
  database,
  journal,     ///< One that another program left.
  newJournal,  ///< One that was just created; its name is not on the disk yet.
};

/// How much room SQLite must give such a file.
extern const int sizeOfVFSFile;

/// Makes an opened file one that SQLite reads, writes and locks (sqlite3_io_methods), in room that SQLite gave. SQLite
/// closes it. `size` is that of a journal. Throws std::bad_alloc.
void openVFSFile(sqlite3_file* room, ConfinedVFS& files, Descriptor opened, VFSFileKind kind,
                 std::optional<off_t> size);

}  // namespace quorvel::sqlite
