#include <unistd.h>

#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include "program/CommandLine.h"
#include "program/Environment.h"
#include "program/HelpPages.h"
#include "program/Process.h"
#include "program/commands/Commands.h"
#include "quorvel/files/SystemReason.h"

namespace kelvane {
namespace {

// AI clients start it so. A person sees how it is used.
int withoutCommand() {
  if (!::isatty(STDIN_FILENO)) return commands::serveBySettings();
  print(helpOn(commands::all()));
  return done;
}

std::string helpFor(const Request& request) {
  if (request.command == nullptr) return helpOn(commands::all());
  const bool isOnTopic = request.command->helpOnTopic != nullptr && !request.topic.empty();
  return isOnTopic ? request.command->helpOnTopic(request.topic) : helpOn(*request.command);
}

int run(std::span<const char* const> typed) {
  Request request = understand(typed, commands::all());
  if (request.wantsVersion) {
    print(versionLine());
  } else if (request.wantsHelp) {
    print(helpFor(request));
  } else {
    if (request.command == nullptr) return withoutCommand();
    addVariables(*request.command, request.arguments);
    return request.command->run(request.arguments);
  }
  return done;
}

// "The output cannot be written: No space left on device", with the reason in our words and what to do.
std::string sentencesFor(const std::system_error& error) {
  const std::string_view what = error.what();
  return quorvel::because(what.substr(0, what.rfind(": " + error.code().message())), error.code());
}

}  // namespace
}  // namespace kelvane

int main(int argc, char** argv) {
  using namespace kelvane;
  prepareProcess();
  try {
    return run(std::span(argv, static_cast<std::size_t>(argc)).subspan(argc > 0 ? 1 : 0));
  } catch (const UsageError& error) {
    complain(error.what());
    return wrongUsage;
  } catch (const std::system_error& error) {
    const bool readerIsGone = error.code() == std::errc::broken_pipe;
    if (!readerIsGone) complain(sentencesFor(error));
  } catch (const std::bad_alloc&) {
    complain("There is not enough memory for this. Close some programs and try again.");
  } catch (const std::exception& error) {
    complain(error.what());
  }
  return failed;
}
