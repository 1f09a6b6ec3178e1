#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

#include "platform/StandardIO.h"

namespace kelvane::demo {

/// A server started the way AI clients start one: a child process, with a pipe into its standard input and one out of
/// its standard output. The process that has one should ignore SIGPIPE.
class ServerProcess {
 public:
  /// `command` is the program's path and its arguments. Throws std::system_error when it cannot be started.
  explicit ServerProcess(const std::vector<std::string>& command);
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;
  ~ServerProcess();

  /// Sends one line and waits for no reply. Throws std::system_error when the server does not take it.
  void tell(std::string_view line);

  /// Sends one line and returns the next line that comes back. Throws std::runtime_error when none comes any more.
  std::string ask(std::string_view line);

  /// Closes the server's input, which ends it, and waits; its exit status, -1 when a signal ended it. Only once.
  int hangUp();

 private:
  pid_t process_ = -1;
  int input_ = -1;   // the server's, where we write
  int output_ = -1;  // the server's, where we read
  LineReader replies_;
};

}  // namespace kelvane::demo
