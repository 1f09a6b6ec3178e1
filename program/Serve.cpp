#include "program/Serve.h"

#include <memory>
#include <stdexcept>
#include <string>

#include "program/LibraryOptions.h"
#include "program/OwnSettings.h"
#include "program/Process.h"
#include "protocol/Server.h"
#include "protocol/Transport.h"

namespace kelvane {
namespace {

constexpr std::string_view help =
    R"(Serves a folder of scripts to an AI client over the Model Context Protocol: one JSON-RPC message a line on standard
input, one reply a line on standard output, until the input ends.

Usage: kelvane serve [--library DIR] [--allow-writes]

  --library DIR     The folder that holds the scripts; without it, the one of the settings.
  --allow-writes    Offer the tools that change scripts too. Without it nothing in the folder is changed.
  -h, --help        Print this.

The switches of the settings do not matter here. They do for "kelvane" alone, which is what AI clients start.

The status is 0 when the input has ended, and 1 when the folder cannot be read or the client went away.
)";

int serve(const OpenedLibrary& opened, bool allowingWrites) {
  Transport::run(Server("kelvane", opened.tools().tools(allowingWrites)));
  return done;
}

}  // namespace

int serveBySettings() {
  const OwnSettings settings;
  const Preferences preferences = settings.preferences();
  if (!preferences.isEnabled()) {
    const std::string why = settings.problem() ? *settings.problem() + ' ' : std::string();
    throw std::runtime_error(why + "The server is switched off: \"kelvane settings enable\" switches it on.");
  }
  return serve(openLibraryOf(settings), preferences.allowsWrites());
}

void addServe(CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<LibraryOptions>();
  CLI::App& command =
      addCommand(program, "serve", help, chosen, [options] { return serve(options->open(), options->allowsWrites); });
  options->addTo(command);
}

}  // namespace kelvane
