#include "examples/demo/ServerProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

extern char** environ;

namespace kelvane::demo {
namespace {

void check(int error, const char* what) {
  if (error != 0) throw std::system_error(error, std::generic_category(), what);
}

/// A pipe: first the end to read from, then the end to write to. No child inherits them by default.
std::array<int, 2> pipe() {
  std::array<int, 2> ends{};
  check(::pipe(ends.data()) == 0 ? 0 : errno, "No pipe could be made");
  for (int end : ends) fcntl(end, F_SETFD, FD_CLOEXEC);
  return ends;
}

void close(int& descriptor) {
  if (descriptor >= 0) ::close(std::exchange(descriptor, -1));
}

}  // namespace

ServerProcess::ServerProcess(const std::vector<std::string>& command) : replies_(-1) {
  std::array<int, 2> in = pipe();
  std::array<int, 2> out = pipe();
  posix_spawn_file_actions_t actions;
  check(posix_spawn_file_actions_init(&actions), "The server could not be started");
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  const int error = posix_spawn(&process_, command.front().c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(in[0]);
  close(out[1]);
  input_ = in[1];
  output_ = out[0];
  replies_ = LineReader(output_);
  if (error != 0) {
    close(input_);
    close(output_);
    check(error, "The server could not be started");
  }
}

ServerProcess::~ServerProcess() {
  if (process_ > 0) hangUp();
}

void ServerProcess::tell(std::string_view line) {
  writeAll(input_, std::string(line) + "\n");
}

std::string ServerProcess::ask(std::string_view line) {
  tell(line);
  const auto reply = replies_.next();
  if (!reply) throw std::runtime_error("The server ended without an answer.");
  return std::string(*reply);
}

int ServerProcess::hangUp() {
  close(input_);
  int status = 0;
  while (waitpid(process_, &status, 0) < 0 && errno == EINTR) continue;
  process_ = -1;
  close(output_);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace kelvane::demo
