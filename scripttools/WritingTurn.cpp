#include "scripttools/WritingTurn.h"

#include <utility>

#include "scripttools/Resolution.h"

namespace kelvane {

using quorvel::ScriptItem;
using quorvel::ScriptLibrary;
using quorvel::ScriptVersion;
using quorvel::VersionStore;

ScriptItem WritingTurn::itemAt(std::string_view identifier) {
  return judged([this, identifier] { return kelvane::itemAt(identifier, library_); });
}

ScriptItem WritingTurn::scriptAt(std::string_view identifier) {
  return judged([this, identifier] { return kelvane::scriptAt(identifier, library_); });
}

std::optional<std::string> WritingTurn::folderAt(const std::optional<std::string_view>& identifier) {
  return judged([this, identifier] { return kelvane::folderAt(identifier, library_); });
}

void WritingTurn::takeLock() {
  if (std::exchange(wasLockTried_, true)) return;
  try {
    lock_ = library_.lock();
  } catch (...) {
    lockFailure_ = std::current_exception();
  }
  if (!lockFailure_ && judgeAgain_) judgeAgain_();
}

void WritingTurn::requireLock() {
  takeLock();
  if (lockFailure_) std::rethrow_exception(lockFailure_);
}

std::string WritingTurn::read(const ScriptItem& script) {
  takeLock();
  return library_.readToReplace(script);
}

std::optional<ScriptVersion> WritingTurn::snapshot(std::string_view text, const ScriptItem& script,
                                                   std::string_view label) {
  takeLock();
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

Tool::Run WritingTurns::running(Run run) const {
  return [library = library_, versions = versions_, run = std::move(run)](const JSON::Object& arguments) {
    WritingTurn turn(*library, *versions);
    return run(arguments, turn);
  };
}

}  // namespace kelvane
