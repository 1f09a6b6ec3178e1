#include "protocol/RPCError.h"

#include <utility>

namespace kelvane {

RPCError RPCError::parse() {
  return {-32700, "Could not parse JSON"};
}

RPCError RPCError::invalidRequest() {
  return {-32600, "Not a JSON-RPC request"};
}

RPCError RPCError::methodNotFound(std::string_view method) {
  std::string message = "No such method: ";
  return {-32601, std::move(message.append(method))};
}

RPCError RPCError::invalidParams(std::string message) {
  return {-32602, std::move(message)};
}

}  // namespace kelvane
