#include "program/Process.h"
#include "program/Registration.h"
#include "program/commands/Commands.h"

namespace kelvane::commands {
namespace {

int run(const Arguments& arguments) {
  return changeRegistration(false, arguments) ? done : failed;
}

constexpr Word words[] = {
    {"claude", "Claude. For the files, run: kelvane connect --help"},
    {"codex", "Codex."},
};

}  // namespace

constinit const Command disconnectCommand = {
    .name = "disconnect",
    .summary = "Remove it from an AI client's configuration.",
    .about = "Removes this program from an AI client's configuration.",
    .usage = "claude|codex",
    .mostWords = 1,
    .words = words,
    .options = registrationOptions,
    .notes =
        "Only our entry is removed: in a TOML file everything from its header to the next header, comments too. What "
        "is "
        "removed is shown. The old text is saved beside the file, as by \"kelvane connect\", and no copy is deleted.",
    .run = run,
};

}  // namespace kelvane::commands
