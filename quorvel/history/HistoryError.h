#pragma once

#include <chrono>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "quorvel/history/SQLite.h"

namespace quorvel {

/// The version history could not do what it was asked. `what()` is complete sentences for the person; scripts and
/// history are as they were, unless the sentences say that it is not certain whether the history is.
class HistoryError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What the history was asked for: it decides what the sentences say of the outcome.
enum class HistoryUse { reading, writing };

/// The sentences for what can go wrong, each with what to do about it.
struct HistoryFailure {
  HistoryFailure() = delete;

  static HistoryError damaged(HistoryUse use);
  static HistoryError foreign(HistoryUse use);         ///< A database, but not a version history.
  static HistoryError later(HistoryUse use);           ///< From a newer version of the program.
  static HistoryError noFolder(HistoryUse use);        ///< `.kelvane` is a file or a symbolic link.
  static HistoryError noFile(HistoryUse use);          ///< The database's name is taken by something that is no file.
  static HistoryError noJournal(HistoryUse use);       ///< The journal's name is.
  static HistoryError strangeJournal(HistoryUse use);  ///< Its journal leads to other files.
  static HistoryError writeAheadLog(HistoryUse use);   ///< Another program made it use one.

  /// The library, its own folder or the database was moved away or replaced while the history was being written.
  static HistoryError moved();
  static HistoryError movedAtTheEnd();  ///< When the change was already made in what was moved away.

  /// The system failed, for a value of errno, when the change may already have been made.
  static HistoryError uncertain(int error);

  /// The system refused, for a value of errno.
  static HistoryError refused(int error, HistoryUse use);

  /// SQLite refused or failed; `patience` is how long it had waited if the database was locked.
  static HistoryError of(const sqlite::Error& error, HistoryUse use, std::chrono::milliseconds patience);
};

}  // namespace quorvel
