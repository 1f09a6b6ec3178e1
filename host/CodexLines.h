#pragma once

#include <string_view>
#include <vector>

namespace kelvane {

/// A line of the Codex client's configuration, without its line break.
struct CodexLine {
  std::string_view text;
  bool isOwned;  ///< It belongs to our tables, header, blank lines and comments included: removing them removes it.

  bool operator==(const CodexLine&) const = default;
};

/// The text's lines in order, n + 1 for n line breaks. The text is taken as characters, that is grapheme clusters, so a
/// line break is an LF that stands alone: CR LF is one character and breaks no line.
///
/// A header is a line whose first character, blanks aside, is "[". Ours are "[mcp_servers.kelvane]" and those that
/// begin with "[mcp_servers.kelvane.", to the letter; from each, all lines are ours up to the next header that is not.
/// Blanks are tabs and Unicode's space separators; a CR is none. A mark that joins the last character of one of these
/// texts makes it another character.
std::vector<CodexLine> codexLines(std::string_view text);

/// The text without the line breaks at its end: a CR LF there is none, and ends it.
std::string_view withoutTrailingLineBreaks(std::string_view text) noexcept;

}  // namespace kelvane
