#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <utility>

namespace kelvane {

/// A failure that the protocol can report: one of four kinds, each with its error code (JSON-RPC 2.0, section 5.1) and
/// its message.
///
///     throw RPCError::invalidParams("There is no chapter 9.");
///
/// Tools throw `invalidParams` with a sentence for the client's model; `Server` turns it into a failed result. The
/// other three are replies of `Server` itself. Making or copying one may throw std::bad_alloc. Immutable.
class RPCError : public std::exception {
 public:
  /// -32700, "Could not parse JSON": the message is not JSON.
  static RPCError parse();

  /// -32600, "Not a JSON-RPC request": the message is JSON without a method.
  static RPCError invalidRequest();

  /// -32601, "No such method: " and the method's name as received.
  static RPCError methodNotFound(std::string_view method);

  /// -32602, with this message.
  static RPCError invalidParams(std::string message);

  int code() const noexcept { return code_; }

  /// The whole message. The reference lives as long as the error.
  const std::string& message() const noexcept { return message_; }

  /// The message up to its first NUL, if it contains one: a name that a client sent may.
  const char* what() const noexcept override { return message_.c_str(); }

 private:
  RPCError(int code, std::string message) : code_(code), message_(std::move(message)) {}

  int code_;
  std::string message_;
};

}  // namespace kelvane
