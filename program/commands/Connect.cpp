#include <optional>
#include <string>

#include "program/OwnSettings.h"
#include "program/Process.h"
#include "program/Registration.h"
#include "program/commands/Commands.h"

namespace kelvane::commands {
namespace {

// What is still to be done before a connected client gets anything.
void sayWhatIsMissing() {
  const OwnSettings settings;
  if (const auto problem = settings.problem()) say(*problem);
  if (!settings.namedLibraryFolder()) say("No script folder is set. Run: kelvane settings library DIR");
  if (!settings.preferences().isEnabled()) say(OwnSettings::serverIsOff);
}

int run(const Arguments& arguments) {
  const bool isDone = changeRegistration(true, arguments);
  if (isDone && !arguments.has(dryRunOption)) sayWhatIsMissing();
  return isDone ? done : failed;
}

constexpr Word words[] = {
    {"claude",
     "Claude: ~/.claude.json, or .claude.json in CLAUDE_CONFIG_DIR, for the command line, and the desktop app's "
     "claude_desktop_config.json. All of them that exist are changed. Where ~/.claude/.config.json exists, or "
     ".config.json in CLAUDE_CONFIG_DIR, the command line reads that file instead, so it is changed."},
    {"codex", "Codex: ~/.codex/config.toml, or config.toml in CODEX_HOME."},
};

}  // namespace

constinit const Command connectCommand = {
    .name = "connect",
    .summary = "Register this program with an AI client, which then starts it by itself.",
    .about = "Registers this program with an AI client, which then starts it by itself.",
    .usage = "claude|codex",
    .mostWords = 1,
    .words = words,
    .options = registrationOptions,
    .notes =
        "Only our entry is changed; everything else in the file keeps its layout. In a TOML file the entry is "
        "everything from its header to the next header, comments too, and moves to the end of the file. What is "
        "removed is shown. \"kelvane settings\" shows what the client then gets.\n\n"
        "The old text is saved beside the file in FILE.before-kelvane, then in FILE.before-kelvane-2 and so on. A "
        "text that is already in a copy gets no second one, and no copy is overwritten. The copies may hold "
        "secrets, so only you can read them. Delete those that you no longer need.",
    .run = run,
};

}  // namespace kelvane::commands
