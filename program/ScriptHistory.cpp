#include "program/ScriptHistory.h"

#include <exception>
#include <stdexcept>
#include <vector>

#include "platform/FileSystem.h"
#include "program/Process.h"
#include "scripttools/Resolution.h"

namespace kelvane {
namespace {

// As it was typed first: a script may be called "Talk.md.md".
std::vector<std::string> identifiersFor(const std::string& typed, const std::string& suffix) {
  std::vector<std::string> identifiers;
  if (typed.ends_with(suffix)) identifiers.push_back(typed);
  identifiers.push_back(typed + suffix);
  return identifiers;
}

}  // namespace

NamedScript scriptNamed(const std::string& typed, const OpenedLibrary& opened) {
  const auto& [library, history] = opened;
  std::exception_ptr notThere;
  const std::vector<std::string> identifiers = identifiersFor(typed, '.' + library->fileExtension());
  for (const std::string& identifier : identifiers) {
    try {
      quorvel::ScriptItem item = scriptAt(identifier, *library);
      return {item.identifier, item};
    } catch (const std::exception&) {
      if (!notThere) notThere = std::current_exception();
    }
  }
  for (const std::string& identifier : identifiers) {
    if (!history->scripts(identifier).empty()) return {identifier, std::nullopt};
  }
  try {
    std::rethrow_exception(notThere);
  } catch (const std::exception& error) {
    std::string what = error.what();
    if (!what.ends_with('.')) what += '.';
    throw std::runtime_error(what + " \"kelvane history\" lists the scripts of which something was kept.");
  }
}

bool isThere(const std::string& identifier, const OpenedLibrary& opened) {
  return filesystem::entry(pathOf(identifier, *opened.library)) == filesystem::EntryKind::file;
}

void VersionOptions::addTo(CLI::App& command) {
  command.add_option("SCRIPT", script);
  command.add_option("VERSION", version);
  library.addLibraryTo(command);
}

quorvel::VersionNumber VersionOptions::number() const {
  if (script.empty()) throw UsageError("Say which script and which version, such as \"Talks/Opening\" 3.");
  if (version.empty()) throw UsageError("Say which version: \"kelvane history SCRIPT\" lists their numbers.");
  if (const auto number = quorvel::VersionNumber::parse(version)) return *number;
  throw UsageError("\"" + version + "\" is no version's number: \"kelvane history SCRIPT\" lists them.");
}

std::string textOf(quorvel::VersionNumber version, const NamedScript& script, const OpenedLibrary& opened) {
  if (auto text = opened.history->text(script.identifier, version)) return *std::move(text);
  throw std::runtime_error("\"" + script.identifier + "\" has no version " + version.text() +
                           ": \"kelvane history SCRIPT\" lists those that it has.");
}

}  // namespace kelvane
