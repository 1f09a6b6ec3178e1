#include "scripttools/WritingTurn.h"

#include "scripttools/Resolution.h"

/// The order of a writing call, which keeps two promises:
///
///     resolve -> lock -> resolve again -> read -> save a version -> write -> unlock
///
/// - No word is lost. Every call that replaces a text reads it, saves it and writes the new one under one lock, so no
///   other call writes in between, and a failed read or snapshot ends the call before the write. Readers take no lock.
/// - A bad call waits for no one and leaves no trace. The lock is a file in the library, so it is acquired only after a
///   first resolution. The second one is needed because others may rename items until the lock is held.
///
/// If the lock is not available, its exception is stored and thrown by the first operation that needs the lock. A call
/// that turns out to change nothing, such as an edit that leaves the text as it is, succeeds without it, for example in
/// a library that may only be read.
namespace kelvane {

using quorvel::ScriptItem;
using quorvel::ScriptLibrary;
using quorvel::ScriptVersion;
using quorvel::VersionStore;

WritingTurn::WritingTurn(ScriptLibrary& library, VersionStore& versions) : library_(library), versions_(versions) {
  try {
    lock_ = library_.lock();
  } catch (...) {
    lockFailure_ = std::current_exception();
  }
}

void WritingTurn::requireLock() const {
  if (lockFailure_) std::rethrow_exception(lockFailure_);
}

std::string WritingTurn::read(const ScriptItem& script) const {
  return library_.readToReplace(script);
}

std::optional<ScriptVersion> WritingTurn::snapshot(std::string_view text, const ScriptItem& script,
                                                   std::string_view label) {
  if (lockFailure_ && text.empty()) return std::nullopt;
  requireLock();
  return versions_.snapshot(text, pathOf(script.identifier, library_), label);
}

void WritingTurn::keepPrevious(const ScriptItem& script, std::string_view note) {
  snapshot(read(script), script, std::string("Before — ").append(note));
}

void WritingTurn::write(std::string_view text, const ScriptItem& script) {
  requireLock();
  library_.write(text, script);
}

ScriptItem WritingTurn::create(std::string_view name, const std::optional<std::string>& folder) {
  requireLock();
  return library_.create(name, folder);
}

ScriptItem WritingTurn::createFolder(std::string_view name, const std::optional<std::string>& folder) {
  requireLock();
  return library_.createFolder(name, folder);
}

ScriptItem WritingTurn::rename(const ScriptItem& item, std::string_view name) {
  requireLock();
  return library_.rename(item, name);
}

WritingTurns::WritingTurns(std::shared_ptr<ScriptLibrary> library, std::shared_ptr<VersionStore> versions)
    : library_(std::move(library)), versions_(std::move(versions)) {
}

}  // namespace kelvane
