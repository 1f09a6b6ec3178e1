#include "program/Restore.h"

#include <memory>
#include <stdexcept>
#include <vector>

#include "program/Process.h"
#include "program/ScriptHistory.h"
#include "program/Wording.h"
#include "quorvel/files/WholeFile.h"
#include "scripttools/Resolution.h"

namespace kelvane {
namespace {

constexpr std::string_view help =
    R"(Puts a version of a script back. The text that it replaces is kept first, so that another restore undoes it. A script
that is gone is made again.

Usage: kelvane restore SCRIPT VERSION [--library DIR]

  SCRIPT            The script, such as "Talks/Opening"; its ".md" may be left out.
  VERSION           The version's number, from "kelvane history SCRIPT".
  --library DIR     The folder that holds the scripts; without it, the one of the settings.
  -h, --help        Print this.
)";

// False as well when it cannot be read.
bool isEmpty(const quorvel::ScriptItem& script, const quorvel::FolderLibrary& library) {
  try {
    return library.read(script).empty();
  } catch (const std::exception&) {
    return false;
  }
}

// Made empty first; when that is all that could be done, the error says so.
void putBackWhatIsGone(const NamedScript& script, std::string_view text, const OpenedLibrary& opened) {
  const quorvel::ScriptItem item = opened.library->recreate(script.identifier);
  try {
    opened.library->write(text, item);
  } catch (const std::exception& error) {
    if (!isEmpty(item, *opened.library)) throw;
    throw std::runtime_error(std::string(error.what()) + " An empty script is there now; its history is as it was.");
  }
}

int restore(const VersionOptions& options) {
  const quorvel::VersionNumber version = options.number();
  const OpenedLibrary opened = options.library.open();
  const auto lock = opened.library->lock();
  const NamedScript script = scriptNamed(options.script, opened);
  const std::string text = textOf(version, script, opened);
  const std::string name = inQuotes(script.identifier);
  if (text.size() > quorvel::largestText)
    throw std::runtime_error("Version " + version.text() + " of " + name +
                             " could not be put back, because it is larger than " + quorvel::largestTextInWords +
                             ", the largest size of a script. Print it into a file: kelvane show SCRIPT " +
                             version.text() + " > FILE");
  if (!script.item) {
    putBackWhatIsGone(script, text, opened);
    print(name + " was gone and is there again, as it was in version " + version.text() + ".\n");
    return done;
  }
  const std::string present = opened.library->readToReplace(*script.item);
  if (present == text) {
    print(name + " is what it was in version " + version.text() + ": nothing to change.\n");
    return done;
  }
  const auto kept = opened.history->snapshot(present, pathOf(script.identifier, *opened.library),
                                             "Before — restoring version " + version.text());
  const auto entries = kept ? opened.history->entries(script.identifier) : std::vector<quorvel::HistoryEntry>();
  opened.library->write(text, *script.item);
  std::string said = name + " is as it was in version " + version.text() + " again.\n";
  if (kept) said += "The text that it replaced is version " + entries.front().version.text() + ".\n";
  print(said);
  return done;
}

}  // namespace

void addRestore(CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<VersionOptions>();
  CLI::App& command = addCommand(program, "restore", help, chosen, [options] { return restore(*options); });
  options->addTo(command);
}

}  // namespace kelvane
