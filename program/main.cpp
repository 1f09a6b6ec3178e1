#include <unistd.h>

#include <CLI/App.hpp>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>

#include "program/Call.h"
#include "program/CommandLine.h"
#include "program/Connect.h"
#include "program/Doctor.h"
#include "program/History.h"
#include "program/Process.h"
#include "program/Restore.h"
#include "program/Serve.h"
#include "program/Settings.h"
#include "program/Show.h"

namespace kelvane {
namespace {

constexpr std::string_view version = "kelvane 1.0.0";

constexpr std::string_view help =
    R"(Kelvane lets an AI client on this machine work on a folder of scripts, over the Model Context Protocol.

Usage: kelvane COMMAND [OPTIONS]

  settings     Say where the scripts are, switch the server on, let AI clients write.
  connect      Register this program with an AI client, which then starts it by itself.
  disconnect   Take it out of an AI client's configuration.
  doctor       Look whether all is right, and say what to do where it is not.

  history      List what was kept of a script.
  show         Print one version of a script.
  restore      Put a version of a script back.

  serve        Serve a folder of scripts to an AI client.
  call         Run one tool and print its text.

  -h, --help   Print this. "kelvane COMMAND --help" says more about a command.
  --version    Print the version.

To begin:

  kelvane settings library ~/Scripts
  kelvane settings enable
  kelvane connect claude
)";

// AI clients start it so; a person sees how it is used.
int withoutCommand() {
  if (!::isatty(STDIN_FILENO)) return serveBySettings();
  print(help);
  return done;
}

int run(int argc, const char* const* argv) {
  CLI::App program;
  program.formatter_fn([](const CLI::App*, const std::string&, CLI::AppFormatMode) { return std::string(help); });
  program.set_version_flag("--version", std::string(version));
  program.require_subcommand(0, 1);
  Action chosen = withoutCommand;
  addSettings(program, chosen);
  addConnect(program, chosen);
  addDisconnect(program, chosen);
  addDoctor(program, chosen);
  addHistory(program, chosen);
  addShow(program, chosen);
  addRestore(program, chosen);
  addServe(program, chosen);
  addCall(program, chosen);
  return parse(program, argc, argv) ? done : chosen();
}

}  // namespace
}  // namespace kelvane

int main(int argc, char** argv) {
  using namespace kelvane;
  prepareProcess();
  try {
    return run(argc, argv);
  } catch (const UsageError& error) {
    complain(error.what());
    return wrongUsage;
  } catch (const std::system_error& error) {
    const bool readerIsGone = error.code() == std::errc::broken_pipe;
    if (!readerIsGone) complain(std::string(error.what()) + '.');
  } catch (const std::bad_alloc&) {
    complain("There is not enough memory.");
  } catch (const std::exception& error) {
    complain(error.what());
  }
  return failed;
}
