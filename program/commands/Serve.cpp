#include <stdexcept>
#include <string>

#include "program/Environment.h"
#include "program/OpenedLibrary.h"
#include "program/OwnSettings.h"
#include "program/Process.h"
#include "program/commands/Commands.h"
#include "protocol/Server.h"
#include "protocol/Transport.h"

namespace kelvane::commands {
namespace {

constexpr Option allowWrites = {"--allow-writes",
                                "Offer the tools that change scripts too. Without it, nothing in the folder is "
                                "changed. KELVANE_ALLOW_WRITES=1 does "
                                "the same.",
                                {},
                                {},
                                allowWritesVariable};
constexpr Option options[] = {libraryOption, allowWrites};

int serveLibrary(const OpenedLibrary& opened, bool allowsWrites) {
  Transport::run(Server("kelvane", opened.tools().tools(allowsWrites)));
  return done;
}

int run(const Arguments& arguments) {
  return serveLibrary(openLibraryOf(arguments), arguments.has(allowWrites));
}

}  // namespace

int serveBySettings() {
  const OwnSettings settings;
  const Preferences preferences = settings.preferences();
  if (!preferences.isEnabled()) {
    const std::string why = settings.problem() ? *settings.problem() + ' ' : std::string();
    throw std::runtime_error(why + OwnSettings::serverIsOff);
  }
  const auto folder = variable(libraryOption.variable);
  const auto allowsWrites = switchVariable(allowWritesVariable);
  return serveLibrary(folder ? openLibrary(*folder, "KELVANE_LIBRARY=DIR") : openLibraryOf(settings),
                      allowsWrites.value_or(preferences.allowsWrites()));
}

constinit const Command serveCommand = {
    .name = "serve",
    .summary = "Serve a folder of scripts to an AI client.",
    .about =
        "Serves a folder of scripts to an AI client over the Model Context Protocol: one JSON-RPC message per line "
        "on standard input, one reply per line on standard output, until the input ends.",
    .options = options,
    .notes =
        "This command ignores the switches in the settings. They apply to \"kelvane\" without a command, which is "
        "what AI clients start. There, KELVANE_LIBRARY and KELVANE_ALLOW_WRITES (1 or 0) go before the settings.\n\n"
        "The exit status is 0 when the input ends, and 1 if the folder cannot be read or the client goes away.",
    .run = run,
};

}  // namespace kelvane::commands
