#pragma once

#include <string_view>
#include <vector>

namespace kelvane {

/// A line of the Codex client's configuration, without its line break.
struct CodexLine {
  std::string_view text;
  bool isOwned;  ///< Whether it belongs to one of our tables and is removed with it: a header or any line below it.

  bool operator==(const CodexLine&) const = default;
};

/// The lines in order: n + 1 lines for n line breaks. Linear in the content; the lines are parts of it.
///
/// The content is read as characters, that is, as grapheme clusters:
///
/// - A line break is an LF that is a character by itself. CR LF is one character and does not end a line.
/// - A header is a line that starts with "[", after tabs and Unicode's space separators. Those are also ignored at its
///   end; a CR is not.
/// - Our headers are "[mcp_servers.kelvane]" and all that start with "[mcp_servers.kelvane.", byte for byte. A
/// combining
///   mark after one of these strings makes its last character another one, so that header is not ours.
/// - From each of our headers on, all lines are ours up to the next header that is not.
std::vector<CodexLine> codexLines(std::string_view text);

/// The content without the line breaks at its end. A CR LF is not a line break here and is kept.
std::string_view withoutTrailingLineBreaks(std::string_view text) noexcept;

}  // namespace kelvane
