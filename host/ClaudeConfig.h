#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "protocol/JSON.h"

namespace kelvane {

/// Our entry in the configuration of the Claude client, a JSON document that lists MCP servers:
///
///     {"mcpServers": {"kelvane": {"args": [], "command": "/path/to/the/program"}}}
///
/// Pure functions: they take a document and return a new one, and read and write no file. They may be called from
/// several threads at once, are linear in the document, and throw nothing but std::bad_alloc. std::nullopt stands for a
/// file that is missing, empty or not JSON, and is treated like a document that is not an object.
///
/// Every other member, at the top level and among the servers, keeps its value. The layout of the file is not known
/// here; `program/configuration` keeps it.
struct ClaudeConfig {
  ClaudeConfig() = delete;

  /// The key of the object that lists the servers.
  static constexpr std::string_view serversKey = "mcpServers";

  /// The key of our entry in that object.
  static constexpr std::string_view serverName = "kelvane";

  /// The document with our entry, which names this command as it is given. Replaces the whole previous entry, including
  /// members that are not ours. A document or an "mcpServers" that is not an object is replaced by an object.
  static JSON adding(std::string_view command, const std::optional<JSON>& to);

  /// The document without our entry, or an empty object if it is not an object. "mcpServers" stays even if it is empty
  /// now. A document without our entry is returned as it is.
  static JSON removing(const std::optional<JSON>& from);

  /// The command of our entry. std::nullopt if there is no entry, or if its command is not a string.
  static std::optional<std::string> command(const std::optional<JSON>& in);
};

}  // namespace kelvane
