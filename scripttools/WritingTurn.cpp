#include "scripttools/WritingTurn.h"

#include "scripttools/Resolution.h"

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
