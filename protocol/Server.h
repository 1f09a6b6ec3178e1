#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/Tool.h"

namespace kelvane {

/// Answers the messages of an MCP client: JSON-RPC 2.0 requests for "initialize", "ping", "tools/list" and
/// "tools/call". A value without state between requests: any of them is served at any time, in any order.
class Server {
 public:
  /// The MCP protocol version announced to a client that names none.
  static constexpr std::string_view version = "2025-06-18";

  /// The version of this software, which a client is told with the server's name.
  static constexpr std::string_view ownVersion = "1.0.0";

  /// `tools` are listed and searched in this order; of two with one name the first is run.
  Server(std::string name, std::vector<Tool> tools) : tools_(std::move(tools)), name_(std::move(name)) {}

  const std::vector<Tool>& tools() const noexcept { return tools_; }
  const std::string& name() const noexcept { return name_; }

  /// The reply to one message, without a line end; nothing where none is due (an unknown method without an id).
  ///
  /// A message that is no request gets a JSON-RPC error. A tool that throws gets a result whose "isError" is true and
  /// whose text is the error's message. Throws nothing but std::bad_alloc, and may be called from several threads at
  /// once where the tools may.
  std::optional<std::string> handle(std::string_view line) const;

 private:
  std::vector<Tool> tools_;
  std::string name_;
};

}  // namespace kelvane
