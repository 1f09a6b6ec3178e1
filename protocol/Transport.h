#pragma once

#include "protocol/Server.h"

namespace kelvane {

/// Connects a server to a client by lines. Each line of the input is one message, and its reply is written as one line
/// before the next line is read. Empty lines, and lines of spaces and tabs only, are skipped.
///
///     Transport::run(Server("name", tools));
///
/// Uses memory proportional to the longest recent line. Everything happens in the caller's thread.
struct Transport {
  Transport() = delete;

  /// Serves standard input and standard output until the input ends. Each reply and its line feed leave in one write.
  /// Nothing else is written anywhere.
  ///
  /// Throws std::system_error if the input cannot be read or a reply cannot be written, and std::bad_alloc. If the
  /// reader has gone away, the system sends SIGPIPE first: ignore that signal to get the exception instead.
  static void run(const Server& server);

  /// The same over two file descriptors. The caller keeps them and closes them.
  static void run(const Server& server, int input, int output);
};

}  // namespace kelvane
