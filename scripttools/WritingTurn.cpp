#include "scripttools/WritingTurn.h"

#include <string>
#include <utility>

#include "scripttools/Resolution.h"

/// The order of a writing call, which keeps two promises:
///
///     resolve -> lock -> resolve again -> read -> save a version -> write -> unlock
///
/// - No word is lost. Every call that replaces a text reads it, saves it and writes the new one under one lock, so no
///   other call writes in between, and a failed read or snapshot ends the call before the write. Readers take no lock.
/// - A bad call waits for no one and leaves no trace. The lock is a file in the library, so it is acquired only after a
///   first resolution. The second one is needed because others may rename items until the lock is held.
namespace kelvane {

using quorvel::ScriptItem;
using quorvel::ScriptLibrary;
using quorvel::ScriptVersion;
using quorvel::VersionStore;

WritingTurns::WritingTurns(std::shared_ptr<ScriptLibrary> library, std::shared_ptr<VersionStore> versions)
    : library_(std::move(library)), versions_(std::move(versions)) {
}

WritingTurn::WritingTurn(const WritingTurns& turns)
    : library_(*turns.library_), versions_(*turns.versions_), lock_(library_.lock()) {
}

std::optional<ScriptVersion> WritingTurn::keep(const ScriptItem& script, std::string_view label) {
  return versions_.snapshot(library_.readToReplace(script), pathOf(script.identifier, library_), label);
}

void WritingTurn::keepPrevious(const ScriptItem& script, std::string_view note) {
  keep(script, std::string("Before — ").append(note));
}

}  // namespace kelvane
