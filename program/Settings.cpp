#include "program/Settings.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "platform/FileSystem.h"
#include "program/LibraryOptions.h"
#include "program/Nearest.h"
#include "program/OwnSettings.h"
#include "program/Process.h"
#include "program/Wording.h"

namespace kelvane {
namespace {

constexpr std::string_view help =
    R"(Shows or changes what an AI client gets that starts kelvane.

Usage: kelvane settings [show | enable | disable | allow-writes | read-only | library DIR]

  show           Print the settings and where they are kept; the same without a word.
  enable         Switch the server on.
  disable        Switch it off: an AI client that starts kelvane is refused.
  allow-writes   Offer the tools that change scripts too. What they replace is kept in the history.
  read-only      Offer only the tools that read.
  library DIR    Serve the scripts in this folder.
  -h, --help     Print this.

A change counts for servers that are started from then on: restart the AI client that runs one.
)";

using Words = std::vector<std::string>;

const Words actions = {"show", "enable", "disable", "allow-writes", "read-only", "library"};

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
  text.append("kept in   ").append(onOneLine(settings.store().file().native())).append("\n");
  return text;
}

int show(const OwnSettings& settings) {
  const auto problem = settings.problem();
  print(shown(settings));
  if (problem) complain(*problem);
  return problem ? failed : done;
}

// Says what was changed, where a damaged file went, and how all stands now.
template <class Value>
int change(const OwnSettings& settings, std::string_view key, const Value& value) {
  const auto copy = quorvel::FileDefaults(settings.store().file()).set(key, value);
  if (copy) print("The settings were damaged. What the file held is in " + inQuotes(copy->native()) + " now.\n");
  print(shown(OwnSettings()));
  return done;
}

int changeLibrary(const OwnSettings& settings, const std::string& folder) {
  std::error_code error;
  if (std::filesystem::path(folder).is_relative() && std::filesystem::current_path(error).empty()) {
    throw std::runtime_error("The current folder is not there any more: give the folder's whole path.");
  }
  const std::filesystem::path root = filesystem::standardized(folder);
  openLibrary(root, "with \"kelvane settings library DIR\"");
  return change(settings, OwnSettings::libraryFolderKey, std::string_view(root.native()));
}

[[noreturn]] void refuse(const std::string& action) {
  const std::string meant = suggestion(action, actions);
  throw UsageError("There is no \"kelvane settings " + action + "\"." +
                   (meant.empty() ? " \"kelvane settings --help\" says what there is." : meant));
}

int settings(const Words& words) {
  const std::string action = words.empty() ? "show" : words.front();
  if (std::find(actions.begin(), actions.end(), action) == actions.end()) refuse(action);
  const std::size_t wanted = action == "library" ? 2 : 1;
  if (words.size() > wanted) {
    throw UsageError("\"kelvane settings " + action + "\" has no use for \"" + words[wanted] + "\".");
  }
  if (action == "library" && (words.size() < wanted || words.back().empty())) {
    throw UsageError("Say which folder holds the scripts: kelvane settings library DIR.");
  }
  const OwnSettings settings;
  if (action == "enable") return change(settings, Preferences::enabledKey, true);
  if (action == "disable") return change(settings, Preferences::enabledKey, false);
  if (action == "allow-writes") return change(settings, Preferences::allowsWritesKey, true);
  if (action == "read-only") return change(settings, Preferences::allowsWritesKey, false);
  if (action == "library") return changeLibrary(settings, words.back());
  return show(settings);
}

}  // namespace

void addSettings(CLI::App& program, Action& chosen) {
  // As two options, each of which waits for its first word: so what stands behind "--" is a word, whatever its first
  // character is.
  const auto action = std::make_shared<Words>(), more = std::make_shared<Words>();
  CLI::App& command = addCommand(program, "settings", help, chosen, [action, more] {
    Words words = *action;
    words.insert(words.end(), more->begin(), more->end());
    return settings(words);
  });
  command.add_option("ACTION", *action)->expected(1)->allow_extra_args(false);
  command.add_option("DIR", *more);
}

}  // namespace kelvane
