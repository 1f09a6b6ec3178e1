#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/Tool.h"

namespace kelvane {

/// Answers the messages of a client of the Model Context Protocol: JSON-RPC 2.0 requests for "initialize", "ping",
/// "tools/list" and "tools/call". It keeps no state between requests: any of them is answered at any time, in any
/// order. `Transport` connects it to a client.
class Server {
 public:
  /// The MCP protocol version announced to a client that names none.
  static constexpr std::string_view version = "2025-06-18";

  /// The version of this software, which a client is told with the server's name.
  static constexpr std::string_view ownVersion = "1.0.0";

  /// `tools` are listed and searched in this order. If two have the same name, the first one is run.
  Server(std::string name, std::vector<Tool> tools) : tools_(std::move(tools)), name_(std::move(name)) {}

  /// As given to the constructor. The references live as long as the server.
  const std::vector<Tool>& tools() const noexcept { return tools_; }
  const std::string& name() const noexcept { return name_; }

  /// The reply to one message, without a line end. Empty if no reply is due: for an unknown method without an id.
  ///
  ///     Server("name", {}).handle(R"({"jsonrpc":"2.0","id":1,"method":"ping"})")
  ///         // {"id":1,"jsonrpc":"2.0","result":{}}
  ///
  /// If the message is not a request, the reply is a JSON-RPC error. If a tool throws, the reply is a result whose
  /// "isError" is true and whose text is the exception's message.
  ///
  /// Throws only std::bad_alloc. Takes time linear in the message, besides what the tool does. Several threads may call
  /// it at once if the tools permit that.
  std::optional<std::string> handle(std::string_view line) const;

  /// The same into a string of the caller's, whose content is replaced and whose memory is used again. False, with an
  /// empty `reply`, if no reply is due.
  bool handle(std::string_view line, std::string& reply) const;

 private:
  std::vector<Tool> tools_;
  std::string name_;
};

}  // namespace kelvane
