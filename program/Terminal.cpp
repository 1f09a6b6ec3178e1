#include "program/Terminal.h"

#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "program/Environment.h"
#include "program/Process.h"

namespace kelvane {
namespace {

// A terminal that can do more than print lines. The system says "dumb" of others, or nothing.
bool isCapable() {
  return outputIsTerminal() && variable("TERM").value_or("dumb") != "dumb";
}

// The command that shows long texts; empty if there is none.
std::optional<std::string> pagerCommand() {
  if (!isCapable()) return std::nullopt;
  if (auto chosen = variable("PAGER")) return chosen;
  if (!isOnPath("less")) return std::nullopt;  // else the shell would say that there is none
  return "less -FRX";
}

// False if there is no such command.
bool showInPager(const std::string& command, const std::string& text) {
  // The pager gets a signal's usual effect: this process ignores the end of a pipe.
  const auto ignored = std::signal(SIGPIPE, SIG_DFL);
  std::FILE* pager = ::popen(command.c_str(), "we");
  std::signal(SIGPIPE, ignored);
  if (pager == nullptr) return false;
  std::fwrite(text.data(), 1, text.size(), pager);  // who leaves the pager early wants no more of it
  const int status = ::pclose(pager);
  constexpr int noSuchCommand = 127;  // as the shell says
  return !WIFEXITED(status) || WEXITSTATUS(status) != noSuchCommand;
}

}  // namespace

bool outputIsTerminal() {
  return ::isatty(STDOUT_FILENO) == 1;
}

bool mayColour() {
  return isCapable() && !variable("NO_COLOR");
}

std::size_t terminalWidth() {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 79;
  return size.ws_col;
}

void printPages(const std::string& text) {
  const auto command = pagerCommand();
  if (!command || !showInPager(*command, text)) print(text);
}

}  // namespace kelvane
