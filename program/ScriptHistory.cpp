#include "program/ScriptHistory.h"

#include <ctime>
#include <exception>
#include <stdexcept>
#include <vector>

#include "platform/FileSystem.h"
#include "platform/UTF8.h"
#include "platform/Unicode.h"
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

// Control characters, line and paragraph separators, and what changes the direction of what follows.
bool steersTerminals(char32_t scalar) {
  return scalar < 0x20 || (scalar >= 0x7F && scalar < 0xA0) || scalar == 0x061C || scalar == 0x200E ||
         scalar == 0x200F || (scalar >= 0x2028 && scalar <= 0x202E) || (scalar >= 0x2066 && scalar <= 0x2069);
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

std::string shown(std::chrono::system_clock::time_point moment) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(moment));
  std::tm local{};
  char text[64];
  if (::localtime_r(&seconds, &local) == nullptr) return "?";
  return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local)};
}

std::string onOneLine(std::string_view text) {
  const std::string valid = unicode::replacingInvalidUTF8(text);
  std::string line;
  for (std::size_t at = 0; at < valid.size();) {
    const unicode::Decoded decoded = unicode::decodedAt(valid, at);
    unicode::append(steersTerminals(decoded.scalar) ? unicode::replacementCharacter : decoded.scalar, line);
    at += decoded.size;
  }
  return line;
}

std::string counted(std::int64_t count, std::string_view noun) {
  return std::to_string(count).append(" ").append(noun).append(count == 1 ? "" : "s");
}

}  // namespace kelvane
