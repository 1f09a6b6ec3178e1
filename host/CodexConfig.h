#pragma once

#include <string>
#include <string_view>

namespace kelvane {

/// Our tables in the configuration text of the Codex client, which keeps its MCP servers as
///
///     [mcp_servers.kelvane]
///     args = []
///     command = "/path/to/the/program"
///
/// Pure functions of the text as a sequence of lines; nothing fails. TOML is neither parsed nor checked, and every line
/// that is not ours passes through byte for byte, bytes that are not UTF-8 included. host/CodexLines.h says what a line
/// is and which are ours.
///
/// Only headers in the very form above are ours: one with a comment behind it, blanks inside the brackets or the name
/// in quotes is another's. A text whose line breaks are CR LF throughout is a single line; so ours are not found in it,
/// unless that line begins with the header of a table below ours, when all of it is ours.
struct CodexConfig {
  CodexConfig() = delete;

  /// The table that holds the servers.
  static constexpr std::string_view serversKey = "mcp_servers";

  /// The table below "mcp_servers" that is ours.
  static constexpr std::string_view serverName = "kelvane";

  /// Our table's header: "[mcp_servers.kelvane]".
  static std::string header();

  /// The text without our tables, wherever they stood, and a blank line and our table for this command at its end; that
  /// table alone when nothing else is left. The command is written as it is: one with quotes or backslashes is not read
  /// back as the same by TOML's rules. The result ends with one line break.
  static std::string adding(std::string_view command, std::string_view to);

  /// The text without our tables: from each header of ours to the next that is not, comments and blank lines included.
  /// The result ends without a line break, also when nothing else was removed.
  static std::string removing(std::string_view from);

  /// Whether the text has a table of ours and, anywhere, `command = "<command>"` in these very bytes. So a text with
  /// our table and that line in another server's is taken to name the command, and one with other blanks around the
  /// equals sign is not.
  static bool names(std::string_view command, std::string_view in);
};

}  // namespace kelvane
