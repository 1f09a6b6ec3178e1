#include <string>

#include "program/ChangeLabel.h"
#include "program/Process.h"
#include "program/Restoring.h"
#include "program/commands/Commands.h"
#include "quorvel/files/SystemReason.h"

namespace kelvane::commands {
namespace {

int run(const Arguments& arguments) {
  const quorvel::VersionNumber version = versionIn(arguments);
  const OpenedLibrary opened = openLibraryOf(arguments);
  textOf(version, findScript(arguments.word(0), opened), opened);  // what is not there takes no lock
  const auto lock = opened.library->lock();
  const FoundScript script = findScript(arguments.word(0), opened);
  const std::string name = quorvel::inQuotes(script.identifier);
  const std::string number = version.text();
  const Restored restored = restore(script, version, restoringLabel(version), opened, *lock);
  switch (restored.how) {
    case Restored::How::recreated:
      say(name + " was gone. It is restored to version " + number + ".");
      break;
    case Restored::How::unchanged:
      say(name + " is the same as version " + number + ". No change is needed.");
      break;
    case Restored::How::replaced:
      say(name + " is restored to version " + number + ".");
      if (restored.saved) say("The replaced text is version " + restored.saved->text() + ".");
  }
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
