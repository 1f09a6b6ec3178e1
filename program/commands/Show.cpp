#include "program/Process.h"
#include "program/ScriptVersion.h"
#include "program/commands/Commands.h"

namespace kelvane::commands {
namespace {

int run(const Arguments& arguments) {
  const quorvel::VersionNumber version = versionIn(arguments);
  const OpenedLibrary opened = openLibraryOf(arguments);
  print(textOf(version, findScript(arguments.word(0), opened), opened));
  return done;
}

}  // namespace

constinit const Command showCommand = {
    .name = "show",
    .summary = "Print one version of a script.",
    .about = "Prints one version of a script, byte for byte. The script itself may be gone.",
    .usage = "SCRIPT VERSION",
    .mostWords = 2,
    .words = scriptAndVersion,
    .options = onlyLibraryOption,
    .run = run,
};

}  // namespace kelvane::commands
