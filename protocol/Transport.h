#pragma once

#include "protocol/Server.h"

namespace kelvane {

/// Connects a server to a client by lines: each line that comes in is one message, each reply goes out as one line
/// before the next is read. Lines of blanks and tabs only are skipped.
struct Transport {
  Transport() = delete;

  /// Serves standard input and standard output until the input ends. Each reply and its line feed leave in one write.
  /// Throws std::system_error when the input cannot be read or a reply cannot be written; a caller that wants that for
  /// a reader that went away, rather than a signal, ignores SIGPIPE. Writes nothing else anywhere.
  static void run(const Server& server);

  /// The same over two file descriptors, which stay the caller's.
  static void run(const Server& server, int input, int output);
};

}  // namespace kelvane
