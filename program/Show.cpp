#include "program/Show.h"

#include <memory>

#include "program/Process.h"
#include "program/ScriptHistory.h"

namespace kelvane {
namespace {

constexpr std::string_view help =
    R"(Prints one version of a script, byte for byte.

Usage: kelvane show SCRIPT VERSION [--library DIR]

  SCRIPT            The script, such as "Talks/Opening"; its ".md" may be left out. It may be gone.
  VERSION           The version's number, from "kelvane history SCRIPT".
  --library DIR     The folder that holds the scripts; without it, the one of the settings.
  -h, --help        Print this.
)";

}  // namespace

void addShow(CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<VersionOptions>();
  CLI::App& command = addCommand(program, "show", help, chosen, [options] {
    const quorvel::VersionNumber version = options->number();
    const OpenedLibrary opened = options->library.open();
    print(textOf(version, scriptNamed(options->script, opened), opened));
    return done;
  });
  options->addTo(command);
}

}  // namespace kelvane
