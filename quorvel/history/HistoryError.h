#pragma once

#include <chrono>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "quorvel/history/SQLite.h"

namespace quorvel {

/// An operation of the version history failed. `what()` is complete sentences for a person: what happened and what to
/// do. Scripts and history are as they were, unless the sentences say that this is not certain for the history.
class HistoryError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What the history was used for. It decides what the sentences say about the outcome.
enum class HistoryUse { reading, writing };

/// Makes the sentences for everything that can go wrong, each with what to do about it.
struct HistoryFailure {
  HistoryFailure() = delete;

  static HistoryError damaged(HistoryUse use);
  static HistoryError foreign(HistoryUse use);         ///< A database, but not a version history.
  static HistoryError later(HistoryUse use);           ///< From a newer version of the program.
  static HistoryError noFolder(HistoryUse use);        ///< `.kelvane` is a file or a symbolic link.
  static HistoryError noFile(HistoryUse use);          ///< Something that is not a file has the database's name.
  static HistoryError noJournal(HistoryUse use);       ///< Something that is not a file has the journal's name.
  static HistoryError linkedJournal(HistoryUse use);   ///< A file with another name has the name of a new journal.
  static HistoryError strangeJournal(HistoryUse use);  ///< The journal names other files.
  static HistoryError writeAheadLog(HistoryUse use);   ///< Another program has made it use a write-ahead log.

  /// The library, its own folder or the database was moved away or replaced while the history was written. In the
  /// second case the change had already been made, in what was moved away.
  static HistoryError moved();
  static HistoryError movedAtTheEnd();

  /// The system failed with this value of errno when the change may already have been made.
  static HistoryError uncertain(int error);

  /// The system refused an operation with this value of errno.
  static HistoryError refused(int error, HistoryUse use);

  /// SQLite failed. `patience` is how long it waited if the database was locked.
  static HistoryError of(const sqlite::Error& error, HistoryUse use, std::chrono::milliseconds patience);
};

}  // namespace quorvel
