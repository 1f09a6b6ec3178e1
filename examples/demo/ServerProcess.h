#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

#include "platform/StandardIO.h"

namespace kelvane::demo {

/// A server started the way AI clients start one: a child process, with a pipe into its standard input and one out of
/// its standard output. The process that uses it should ignore SIGPIPE.
class ServerProcess {
 public:
  /// `command` is the program's path and its arguments. Throws std::system_error if it cannot be started.
  explicit ServerProcess(const std::vector<std::string>& command);
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;
  ~ServerProcess();

  /// Sends one line and waits for no reply. Throws std::system_error if the server does not read it.
  void tell(std::string_view line);

  /// Sends one line and returns the next line of output. Throws std::runtime_error if the output ends instead.
  std::string ask(std::string_view line);

  /// Closes the server's input, which ends the server, and waits for it. Returns its exit status, or -1 if a signal
  /// ended it. Call it once.
  int hangUp();

 private:
  pid_t process_ = -1;
  int input_ = -1;   // the server's standard input
  int output_ = -1;  // the server's standard output
  LineReader replies_;
};

}  // namespace kelvane::demo
