#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <utility>

namespace kelvane {

/// A failure that the protocol layer knows how to report: one of four kinds, each with its JSON-RPC 2.0 error code and
/// its message. Tools throw `invalidParams` with a complete sentence.
class RPCError : public std::exception {
 public:
  /// -32700, "Could not parse JSON".
  static RPCError parse();
  /// -32600, "Not a JSON-RPC request".
  static RPCError invalidRequest();
  /// -32601, "No such method: " and the method's name as received.
  static RPCError methodNotFound(std::string_view method);
  /// -32602, the message as it stands.
  static RPCError invalidParams(std::string message);

  int code() const noexcept { return code_; }
  const std::string& message() const noexcept { return message_; }
  /// The message; where it holds a NUL, up to there. `message()` has all of it.
  const char* what() const noexcept override { return message_.c_str(); }

 private:
  RPCError(int code, std::string message) : code_(code), message_(std::move(message)) {}

  int code_;
  std::string message_;
};

}  // namespace kelvane
