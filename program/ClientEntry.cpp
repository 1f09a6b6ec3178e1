#include "program/ClientEntry.h"

#include <algorithm>
#include <exception>
#include <system_error>
#include <utility>

#include "platform/HomeFolder.h"
#include "program/OpenedLibrary.h"
#include "quorvel/files/SystemReason.h"
#include "quorvel/settings/FileReading.h"

namespace kelvane {
namespace {

ClientEntry entryIn(std::filesystem::path file, const AIClient& client, const std::string& executable) {
  ClientEntry entry{&client, std::move(file)};
  std::string text;
  try {
    text = quorvel::readFile(entry.file).value_or("");
    entry.command = client.command(text);
    entry.arguments = client.arguments(text);
    entry.home = client.home(text);
    entry.isSwitchedOff = client.isSwitchedOff(text);
  } catch (const ConfigRefused& error) {
    entry.problem = quorvel::inQuotes(entry.file.native()) + ": " + error.what();
    entry.isInLines = client.names(executable, text);
    if (entry.isInLines) entry.problem += " It contains an entry for this program.";
  } catch (const std::exception& error) {
    entry.problem = error.what();
  }
  return entry;
}

}  // namespace

std::vector<ClientEntry> entriesOfAllClients(const std::string& executable) {
  std::vector<ClientEntry> entries;
  for (const AIClient& client : aiClients()) {
    for (std::filesystem::path& file : client.files()) entries.push_back(entryIn(std::move(file), client, executable));
  }
  return entries;
}

bool anyRegistered(const std::vector<ClientEntry>& entries) noexcept {
  return std::any_of(entries.begin(), entries.end(),
                     [](const ClientEntry& entry) { return entry.command || entry.isInLines; });
}

bool dependOnSettings(const std::vector<ClientEntry>& entries) {
  const auto isBare = [](const ClientEntry& entry) {
    if (!entry.command || !entry.arguments) return entry.isInLines;
    return entry.isInLines || std::all_of(entry.arguments->begin(), entry.arguments->end(),
                                          [](const std::string& word) { return word == "--"; });
  };
  return !anyRegistered(entries) || std::any_of(entries.begin(), entries.end(), isBare);
}

std::string faultOf(const std::string& command, const std::string& executable) {
  // A relative path means another file in each folder that a client starts in.
  if (!std::filesystem::path(command).is_absolute()) return "is not an absolute path";
  std::error_code error;
  if (std::filesystem::equivalent(command, executable, error)) return {};
  return std::filesystem::exists(command, error) ? "is not this program" : "does not exist";
}

bool readsOtherSettings(const ClientEntry& entry) {
  const auto namesLibrary = [](const std::string& word) {
    return word.substr(0, word.find('=')) == libraryOption.name;
  };
  if (!entry.home) return false;
  if (entry.arguments && std::any_of(entry.arguments->begin(), entry.arguments->end(), namesLibrary)) return false;
  const auto ours = homeFolder();
  std::error_code error;
  return !ours || (*entry.home != *ours && !std::filesystem::equivalent(*entry.home, *ours, error));
}

}  // namespace kelvane
