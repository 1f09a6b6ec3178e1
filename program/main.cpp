#include <unistd.h>

#include <CLI/App.hpp>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>

#include "program/Call.h"
#include "program/CommandLine.h"
#include "program/Process.h"
#include "program/Serve.h"

namespace kelvane {
namespace {

constexpr std::string_view version = "kelvane 1.0.0";

constexpr std::string_view help =
    R"(Kelvane lets an AI client on this machine work on a folder of scripts, over the Model Context Protocol.

Usage: kelvane COMMAND [OPTIONS]

  serve        Serve a folder of scripts to an AI client.
  call         Run one tool and print its text.

  -h, --help   Print this. "kelvane COMMAND --help" says more about a command.
  --version    Print the version.
)";

int withoutCommand() {
  if (!::isatty(STDIN_FILENO)) throw std::runtime_error("Say which scripts to serve: kelvane serve --library DIR.");
  print(help);
  return done;
}

int run(int argc, const char* const* argv) {
  CLI::App program;
  program.formatter_fn([](const CLI::App*, const std::string&, CLI::AppFormatMode) { return std::string(help); });
  program.set_version_flag("--version", std::string(version));
  program.require_subcommand(0, 1);
  Action chosen = withoutCommand;
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
