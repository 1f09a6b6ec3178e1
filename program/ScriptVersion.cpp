#include "program/ScriptVersion.h"

#include <exception>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "platform/FileSystem.h"
#include "program/Process.h"
#include "protocol/RPCError.h"
#include "quorvel/files/SystemReason.h"
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

FoundScript findScript(const std::string& typed, const OpenedLibrary& opened) {
  const auto& [library, history] = opened;
  std::exception_ptr notThere;
  const std::vector<std::string> identifiers = identifiersFor(typed, '.' + library->fileExtension());
  for (const std::string& identifier : identifiers) {
    try {
      quorvel::ScriptItem item = scriptAt(identifier, *library);
      return {item.identifier, item};
    } catch (const RPCError&) {  // and not a disk that fails: a script that is taken for gone would be put back
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
    throw std::runtime_error(what + " To list what was saved, run: kelvane history");
  }
}

bool isFileAt(const std::string& identifier, const OpenedLibrary& opened) try {
  return filesystem::entry(pathOf(identifier, *opened.library)) == filesystem::EntryKind::file;
} catch (const std::system_error& error) {
  throw std::runtime_error(quorvel::because(quorvel::inQuotes(identifier) + " could not be looked up", error.code()));
}

quorvel::VersionNumber versionIn(const Arguments& arguments) {
  const std::string version = arguments.word(1);
  if (arguments.word(0).empty()) throw UsageError("Say which script and which version, such as \"Talks/Opening\" 3.");
  if (version.empty()) throw UsageError("Say which version. To list them, run: kelvane history SCRIPT");
  if (const auto number = quorvel::VersionNumber::parse(version)) return *number;
  throw UsageError(quorvel::inQuotes(version) +
                   " is not a version's number. To list them, run: kelvane history SCRIPT");
}

std::string textOf(quorvel::VersionNumber version, const FoundScript& script, const OpenedLibrary& opened) {
  if (auto text = opened.history->text(script.identifier, version)) return *std::move(text);
  throw std::runtime_error(quorvel::inQuotes(script.identifier) + " has no version " + version.text() +
                           ". To list its versions, run: kelvane history SCRIPT");
}

}  // namespace kelvane
