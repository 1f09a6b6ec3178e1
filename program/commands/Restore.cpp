#include <stdexcept>
#include <vector>

#include "program/Process.h"
#include "program/ScriptVersion.h"
#include "program/commands/Commands.h"
#include "quorvel/files/SystemReason.h"
#include "quorvel/files/WholeFile.h"
#include "scripttools/Resolution.h"

namespace kelvane::commands {
namespace {

int run(const Arguments& arguments) {
  const quorvel::VersionNumber version = versionIn(arguments);
  const OpenedLibrary opened = openLibraryOf(arguments);
  const auto lock = opened.library->lock();
  const FoundScript script = findScript(arguments.word(0), opened);
  const std::string text = textOf(version, script, opened);
  const std::string name = quorvel::inQuotes(script.identifier);
  if (text.size() > quorvel::largestText) {
    throw std::runtime_error("Version " + version.text() + " of " + name +
                             " could not be put back, because it is larger than " + quorvel::largestTextInWords +
                             ", the largest size of a script. To print it into a file, run: kelvane show SCRIPT " +
                             version.text() + " > FILE");
  }
  if (!script.item) {
    opened.library->recreate(script.identifier, text);
    say(name + " was gone. It is restored to version " + version.text() + ".");
    return done;
  }
  const std::string present = opened.library->readToReplace(*script.item);
  if (present == text) {
    say(name + " is the same as version " + version.text() + ". No change is needed.");
    return done;
  }
  const auto saved = opened.history->snapshot(present, pathOf(script.identifier, *opened.library),
                                              "Before — restoring version " + version.text());
  const auto entries = saved ? opened.history->entries(script.identifier) : std::vector<quorvel::HistoryEntry>();
  opened.library->write(text, *script.item);
  say(name + " is restored to version " + version.text() + ".");
  if (saved) say("The replaced text is version " + entries.front().version.text() + ".");
  return done;
}

}  // namespace

constinit const Command restoreCommand = {
    .name = "restore",
    .summary = "Put a version of a script back.",
    .about =
        "Puts a version of a script back. The text that it replaces is saved first, so another restore undoes it. A "
        "script that is gone is created again.",
    .usage = "SCRIPT VERSION",
    .mostWords = 2,
    .words = scriptAndVersion,
    .options = onlyLibraryOption,
    .run = run,
};

}  // namespace kelvane::commands
