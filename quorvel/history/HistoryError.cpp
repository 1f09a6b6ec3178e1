#include "quorvel/history/HistoryError.h"

#include <sqlite3.h>

#include <cerrno>
#include <string>

#include "quorvel/files/LibraryError.h"
#include "quorvel/history/ConfinedVFS.h"
#include "quorvel/history/OwnFolder.h"

namespace quorvel {
namespace {

const std::string file = std::string(ownFolderName).append("/").append(historyFileName);
const std::string journal = std::string(file).append("-journal");
const std::string subject = "The version history of this library (" + file + ")";

/// "The version history … `happened`, so nothing was changed. `advice`"
HistoryError sentence(std::string_view happened, HistoryUse use, std::string_view advice) {
  const std::string_view outcome = use == HistoryUse::reading ? "it cannot be read" : "nothing was changed";
  std::string text = subject;
  text.append(" ").append(happened).append(", so ").append(outcome).append(".");
  if (!advice.empty()) text.append(" ").append(advice);
  return HistoryError(text);
}

/// SQLite reports a file that is too large, and a quota that is used up, as a failed write.
HistoryError failedByTheSystem(const sqlite::Error& error, HistoryUse use) {
  if (error.systemError() != 0) return HistoryFailure::refused(error.systemError(), use);
  return sentence("could not be used (SQLite says: " + std::string(error.what()) + ")", use, "Check the disk.");
}

/// Whether this may have failed just behind the moment in which a change becomes valid: the folder that the journal was
/// removed from could not be flushed, or the lock could not be let go.
bool leavesOutcomeOpen(const sqlite::Error& error) {
  return error.code() == SQLITE_IOERR_DIR_FSYNC || error.code() == SQLITE_IOERR_RDLOCK ||
         error.code() == SQLITE_IOERR_UNLOCK;
}

std::string seconds(std::chrono::milliseconds patience) {
  const auto count = (patience.count() + 999) / 1000;
  return std::to_string(count) + (count == 1 ? " second" : " seconds");
}

}  // namespace

HistoryError HistoryFailure::damaged(HistoryUse use) {
  return sentence("is damaged", use, "Move that file away to start a new one, or restore it from a backup.");
}

HistoryError HistoryFailure::foreign(HistoryUse use) {
  return sentence("is not a version history but another program's database", use,
                  "Move that file away to start a new one.");
}

HistoryError HistoryFailure::later(HistoryUse use) {
  return sentence("was written by a newer version of this program", use, "Update the program.");
}

HistoryError HistoryFailure::noFolder(HistoryUse use) {
  return sentence("belongs in a folder whose name, .kelvane, a file or a link has taken", use,
                  "Move that file or link away.");
}

HistoryError HistoryFailure::noFile(HistoryUse use) {
  return sentence("is not a file but a link or a folder", use, "Move that link or folder away.");
}

HistoryError HistoryFailure::noJournal(HistoryUse use) {
  return sentence("has something beside it that is not a file but has the name of its journal (" + journal + ")", use,
                  "Move that away.");
}

HistoryError HistoryFailure::linkedJournal(HistoryUse use) {
  return sentence("has a file beside it that has the name of its journal (" + journal + ") and another name elsewhere",
                  use, "Move that file away.");
}

HistoryError HistoryFailure::strangeJournal(HistoryUse use) {
  return sentence("has a journal beside it (" + journal + ") that another program left and that leads to other files",
                  use, "Move that journal away, and see with \"kelvane doctor\" whether the history is whole.");
}

HistoryError HistoryFailure::writeAheadLog(HistoryUse use) {
  return sentence(
      "was made to use a write-ahead log by another program", use,
      "In the library's folder, the command sqlite3 " + file + " \"PRAGMA journal_mode=DELETE\" undoes that.");
}

HistoryError HistoryFailure::moved() {
  return sentence("was moved away or replaced by another while it was to be written", HistoryUse::writing,
                  "Look which library folder is the right one, put it in its place and try again.");
}

HistoryError HistoryFailure::movedAtTheEnd() {
  return HistoryError(
      subject +
      " was moved away or replaced by another just after it was written. What was written is in the one "
      "that was moved away. Look which library folder is the right one, put it in its place and try "
      "again.");
}

HistoryError HistoryFailure::uncertain(int error) {
  return HistoryError(subject + " could not be written to the end, because " +
                      reason({error, std::generic_category()}) +
                      ". No script was changed, but it is not certain whether the history was. Check the disk.");
}

HistoryError HistoryFailure::refused(int error, HistoryUse use) {
  const std::string_view what =
      use == HistoryUse::reading ? "could not be read, because " : "could not be written, because ";
  std::string text = subject;
  const SystemReason why = SystemReason::of(systemError(error));
  text.append(" ").append(what).append(why.reason);
  if (use == HistoryUse::writing) text.append(", so nothing was changed");
  text.append(".");
  const bool isAboutRights = error == EACCES || error == EPERM;
  text.append(" ").append(isAboutRights        ? "Check who may read and write in the folder .kelvane."
                          : why.advice.empty() ? "Look at what is in the folder .kelvane and try again."
                                               : why.advice);
  return HistoryError(text);
}

HistoryError HistoryFailure::of(const sqlite::Error& error, HistoryUse use, std::chrono::milliseconds patience) {
  if (error.code() == SQLITE_READONLY_ROLLBACK) {
    return sentence(
        "was left in the middle of a change by a program that ended early, and this user is not permitted to repair it",
        use, "Use it once as a user who is permitted to write in the folder .kelvane.");
  }
  if (use == HistoryUse::writing && leavesOutcomeOpen(error)) return uncertain(error.systemError());
  if (error.code() == sqlite::ConfinedVFS::otherFile) return strangeJournal(use);
  if (error.code() == sqlite::ConfinedVFS::writeAheadLog) return writeAheadLog(use);
  if (error.code() == sqlite::ConfinedVFS::databaseIsNoFile) return noFile(use);
  if (error.code() == sqlite::ConfinedVFS::journalIsNoFile) return noJournal(use);
  if (error.code() == sqlite::ConfinedVFS::journalHasOtherName) return linkedJournal(use);
  if (error.code() == SQLITE_READONLY_DBMOVED) return moved();
  switch (error.primaryCode()) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return sentence("has been in use by another program for " + seconds(patience), use, "Try again in a moment.");
    case SQLITE_READONLY:
    case SQLITE_PERM:
      return refused(EACCES, use);
    case SQLITE_FULL:
      return refused(ENOSPC, use);
    case SQLITE_TOOBIG:
      return sentence("takes no text of more than about 1,000,000,000 bytes", use,
                      "Split the text into several scripts.");
    case SQLITE_NOTADB:
    case SQLITE_CORRUPT:
    case SQLITE_ERROR:  // a table or a column is missing
    case SQLITE_CONSTRAINT:
    case SQLITE_MISMATCH:
    case SQLITE_SCHEMA:
      return damaged(use);
    default:
      return failedByTheSystem(error, use);
  }
}

}  // namespace quorvel
