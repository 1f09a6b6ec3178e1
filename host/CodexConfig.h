#pragma once

#include <string>
#include <string_view>

namespace kelvane {

/// Our tables in the configuration of the Codex client, a TOML file that lists MCP servers:
///
///     [mcp_servers.kelvane]
///     args = []
///     command = "/path/to/the/program"
///
/// Pure functions: they take the file's content and return a new one, and read and write no file. They may be called
/// from several threads at once, are linear in the content, and throw nothing but std::bad_alloc.
///
/// The content is handled as lines (host/CodexLines.h). TOML is neither parsed nor checked. Every line that is not ours
/// stays byte for byte, including bytes that are not UTF-8.
///
/// What is not recognised as ours:
///
/// - a header in any other form, such as one with a comment after it, spaces inside the brackets, or the name in
/// quotes;
/// - anything in a file whose line breaks are all CR LF, because such a file is a single line here. But if that line
///   begins with the header of a table below ours, the whole file is ours.
///
/// `program/configuration/CodexConfigFile.h` builds on these functions and copes with such files.
struct CodexConfig {
  CodexConfig() = delete;

  /// The name of the table that lists the servers.
  static constexpr std::string_view serversKey = "mcp_servers";

  /// The name of our table in it.
  static constexpr std::string_view serverName = "kelvane";

  /// The header of our table: "[mcp_servers.kelvane]".
  static std::string header();

  /// The content without our tables, then an empty line and our table for this command. Only the table if nothing else
  /// is left. The result ends with one line break. The command is not escaped: TOML reads one with quotes or
  /// backslashes as something else.
  static std::string adding(std::string_view command, std::string_view to);

  /// The content without our tables: from each header of ours to the next header that is not ours, including comments
  /// and empty lines. Line breaks at the end are removed, too, even if there was no table of ours.
  static std::string removing(std::string_view from);

  /// Whether the content has a table of ours and, anywhere, exactly the bytes `command = "<command>"`. So the answer is
  /// wrong if that line stands in another server's table (true), or if other spaces surround the equals sign (false).
  static bool names(std::string_view command, std::string_view in);
};

}  // namespace kelvane
