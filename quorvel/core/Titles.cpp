#include "quorvel/core/Titles.h"

#include <array>
#include <cstddef>

#include "platform/Unicode.h"
#include "quorvel/core/Lines.h"

namespace quorvel {
namespace {

/// The mandatory breaks of Unicode Standard Annex #14. CR LF stands before CR, because the first match counts.
constexpr std::array<std::string_view, 8> lineBreaks = {
    "\r\n",          // carriage return and line feed
    "\n",            // line feed
    "\r",            // carriage return
    "\v",            // line tabulation
    "\f",            // form feed
    "\xC2\x85",      // next line, U+0085
    "\xE2\x80\xA8",  // line separator, U+2028
    "\xE2\x80\xA9",  // paragraph separator, U+2029
};

/// The size of the line break at the start of the string; 0 if there is none.
std::size_t leadingBreakSize(std::string_view string) noexcept {
  for (const std::string_view lineBreak : lineBreaks) {
    if (string.starts_with(lineBreak)) return lineBreak.size();
  }
  return 0;
}

std::string withoutLineBreaks(std::string_view title) {
  std::string line;
  line.reserve(title.size());
  while (!title.empty()) {
    const std::size_t breakSize = leadingBreakSize(title);
    line.push_back(breakSize == 0 ? title.front() : ' ');
    title.remove_prefix(breakSize == 0 ? 1 : breakSize);
  }
  return line;
}

}  // namespace

TextRange headingContent(std::string_view text, const ScriptHeading& heading) noexcept {
  const TextRange& line = heading.range;
  const std::size_t breakSize = finalBreakSize(text.substr(line.begin, line.end - line.begin));
  return {line.begin + ScriptHeadings::marker.size(), line.end - breakSize};
}

TextRange titleRange(std::string_view text, const ScriptHeading& heading) noexcept {
  const TextRange content = headingContent(text, heading);
  const auto title = kelvane::unicode::trimmingWhiteSpace(text.substr(content.begin, content.end - content.begin));
  if (title.empty()) return {content.begin, content.begin};
  const auto begin = static_cast<std::size_t>(title.data() - text.data());
  return {begin, begin + title.size()};
}

std::string titleOnOneLine(std::string_view title) {
  return std::string(trimmingWhitespace(withoutLineBreaks(title)));
}

std::string writableTitle(std::string_view title) {
  // Markers go one at a time, because white space between two of them goes too: "# \t# New" becomes "New". White space
  // goes by whole characters, as `trimmingWhitespace` removes it, so the heading that is written reads back the same.
  const std::string line = withoutLineBreaks(title);
  std::string_view written = line;
  while (true) {
    if (kelvane::unicode::startsWithWhiteSpace(written)) {
      written.remove_prefix(kelvane::unicode::characterEnd(written, 0));
    } else if (written.starts_with(ScriptHeadings::marker)) {
      written.remove_prefix(ScriptHeadings::marker.size());
    } else {
      return std::string(trimmingWhitespace(written));
    }
  }
}

}  // namespace quorvel
