#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "protocol/JSON.h"

namespace kelvane {

/// Our entry in the configuration document of the Claude client, which keeps its MCP servers as
///
///     {"mcpServers": {"kelvane": {"args": [], "command": "/path/to/the/program"}}}
///
/// Pure functions of documents that were read already; nothing fails. No document (a file that is missing, empty or no
/// JSON) is treated like one that is no object. Every other member, at the top and among the servers, stays as it is.
struct ClaudeConfig {
  ClaudeConfig() = delete;

  /// The member of the document that holds the servers.
  static constexpr std::string_view serversKey = "mcpServers";

  /// The member of "mcpServers" that is ours.
  static constexpr std::string_view serverName = "kelvane";

  /// The document with our entry for this command, which is stored as it is. An entry that was there is replaced whole,
  /// its other members with it; a document or an "mcpServers" that is no object is discarded.
  static JSON adding(std::string_view command, const std::optional<JSON>& to);

  /// The document without our entry; an empty object for one that is no object. "mcpServers" stays, also when it is
  /// left empty.
  static JSON removing(const std::optional<JSON>& from);

  /// The command of our entry; nothing when there is no entry, or its command is no text.
  static std::optional<std::string> command(const std::optional<JSON>& in);
};

}  // namespace kelvane
