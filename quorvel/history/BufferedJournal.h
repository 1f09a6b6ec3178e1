#pragma once

#include <sqlite3.h>

#include <cstddef>

/// SQLite's rollback journal, whose bytes wait in memory until they must be on the disk.
///
/// SQLite writes three pieces for each page that it is about to change, the most of them of four bytes. It relies on
/// none of them before it has asked for the journal to be flushed, and writes nothing into the database before that. So
/// they wait and go to the system as one piece then; the order of what is flushed stays SQLite's own. A program that
/// dies before leaves an empty journal beside a database that has not changed.
namespace quorvel::sqlite {

/// How much room such a file needs, for a system's file of that size behind it.
int sizeOfBufferedJournal(int sizeOfSystemFile) noexcept;

/// Opens the journal by the system's own means, in room of that size. As `sqlite3_vfs::xOpen`.
int openBufferedJournal(sqlite3_vfs* system, const char* name, sqlite3_file* file, int flags, int* flagsUsed) noexcept;

}  // namespace quorvel::sqlite
