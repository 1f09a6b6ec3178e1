#include <algorithm>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "platform/FileSystem.h"
#include "program/Nearest.h"
#include "program/OpenedLibrary.h"
#include "program/OwnSettings.h"
#include "program/Process.h"
#include "program/Wording.h"
#include "program/commands/Commands.h"
#include "quorvel/files/SystemReason.h"

namespace kelvane::commands {
namespace {

constexpr Word words[] = {
    {"show", "Print the settings and the file that stores them. This is the default."},
    {"enable", "Switch the server on."},
    {"disable", "Switch the server off: AI clients that start kelvane are refused."},
    {"allow-writes", "Offer the tools that change scripts too. What they replace is saved in the history."},
    {"read-only", "Offer only the tools that read."},
    {"library DIR", "Serve the scripts in this folder."},
};

std::string shown(const OwnSettings& settings) {
  const Preferences preferences = settings.preferences();
  const auto folder = settings.namedLibraryFolder();
  // The second switch as it is set, whatever the first says.
  const bool allowsWrites = settings.store().boolForKey(Preferences::allowsWritesKey);
  std::string text;
  text.append("server    ").append(preferences.isEnabled() ? "on\n" : "off\n");
  text.append("writing   ").append(allowsWrites ? "allowed" : "not allowed");
  text.append(allowsWrites && !preferences.isEnabled() ? ", once the server is on\n" : "\n");
  text.append("library   ").append(folder ? onOneLine(folder->native()) : "none").append("\n");
  text.append("file      ").append(onOneLine(settings.store().file().native())).append("\n");
  return text;
}

std::string encoded(const OwnSettings& settings) {
  const Preferences preferences = settings.preferences();
  const auto folder = settings.namedLibraryFolder();
  JSON::Object object{{"server", preferences.isEnabled()},
                      {"writing", settings.store().boolForKey(Preferences::allowsWritesKey)},
                      {"library", folder ? JSON(folder->native()) : JSON()},
                      {"file", settings.store().file().native()}};
  return JSON(object).encoded() + '\n';
}

int showAll(const OwnSettings& settings, bool asJSON) {
  const auto problem = settings.problem();
  print(asJSON ? encoded(settings) : shown(settings));
  if (problem) complain(*problem);
  return problem ? failed : done;
}

// Says how all stands now.
template <class Value>
int change(const OwnSettings& settings, std::string_view key, const Value& value) {
  settings.change(key, value);
  print(shown(OwnSettings()));
  return done;
}

int changeLibrary(const OwnSettings& settings, const std::string& folder) {
  std::error_code error;
  if (std::filesystem::path(folder).is_relative() && std::filesystem::current_path(error).empty()) {
    throw std::runtime_error("The current folder no longer exists. Give the folder's absolute path.");
  }
  const std::filesystem::path root = filesystem::standardized(folder);
  openLibrary(root, "kelvane settings library DIR");
  return change(settings, OwnSettings::libraryFolderKey, std::string_view(root.native()));
}

[[noreturn]] void refuse(const std::string& action) {
  std::vector<std::string> names;
  for (const Word& word : words) names.emplace_back(word.name.substr(0, word.name.find(' ')));
  const std::string meant = suggestion(action, names);
  throw UsageError("There is no \"kelvane settings " + action + "\"." +
                   (meant.empty() ? " Run: kelvane settings --help" : meant));
}

int run(const Arguments& arguments) {
  const std::string action = arguments.words.empty() ? "show" : arguments.word(0);
  const auto isAction = [&](const Word& word) { return word.name.substr(0, word.name.find(' ')) == action; };
  if (std::none_of(std::begin(words), std::end(words), isAction)) refuse(action);
  const std::size_t wanted = action == "library" ? 2 : 1;
  if (arguments.words.size() > wanted) {
    throw UsageError("\"kelvane settings " + action + "\" does not take " + quorvel::inQuotes(arguments.word(wanted)) +
                     ". Run: kelvane settings --help");
  }
  if (action == "library" && arguments.word(1).empty()) {
    throw UsageError("Say which folder holds the scripts: kelvane settings library DIR.");
  }
  if (arguments.has(jsonOption) && action != "show") {
    throw UsageError("Only \"kelvane settings show\" takes --json. Leave it out.");
  }
  const OwnSettings settings;
  if (action == "enable") return change(settings, Preferences::enabledKey, true);
  if (action == "disable") return change(settings, Preferences::enabledKey, false);
  if (action == "allow-writes") return change(settings, Preferences::allowsWritesKey, true);
  if (action == "read-only") return change(settings, Preferences::allowsWritesKey, false);
  if (action == "library") return changeLibrary(settings, arguments.word(1));
  return showAll(settings, arguments.has(jsonOption));
}

constexpr Option options[] = {jsonOption};

}  // namespace

constinit const Command settingsCommand = {
    .name = "settings",
    .summary = "Set the folder of scripts, switch the server on or off, let AI clients write.",
    .about = "Shows or changes what AI clients get when they start kelvane.",
    .usage = "[show | enable | disable | allow-writes | read-only | library DIR]",
    .mostWords = Command::anyNumber,
    .words = words,
    .options = options,
    .notes = "A change applies to servers that start after it. Restart an AI client that is running.",
    .run = run,
};

}  // namespace kelvane::commands
