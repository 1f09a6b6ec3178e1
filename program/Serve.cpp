#include "program/Serve.h"

#include <memory>

#include "program/LibraryOptions.h"
#include "program/Process.h"
#include "protocol/Server.h"
#include "protocol/Transport.h"

namespace kelvane {
namespace {

constexpr std::string_view help =
    R"(Serves a folder of scripts to an AI client over the Model Context Protocol: one JSON-RPC message a line on standard
input, one reply a line on standard output, until the input ends.

Usage: kelvane serve --library DIR [--allow-writes]

  --library DIR     The folder that holds the scripts.
  --allow-writes    Offer the tools that change scripts too. Without it nothing in the folder is changed.
  -h, --help        Print this.

The status is 0 when the input has ended, and 1 when the folder cannot be read or the client went away.
)";

}  // namespace

void addServe(CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<LibraryOptions>();
  CLI::App& command = addCommand(program, "serve", help, chosen, [options] {
    Transport::run(Server("kelvane", options->open().tools(options->allowsWrites)));
    return done;
  });
  options->addTo(command);
}

}  // namespace kelvane
