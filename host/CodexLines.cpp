#include "host/CodexLines.h"

#include <algorithm>
#include <string>

#include "host/CodexConfig.h"
#include "platform/Unicode.h"

namespace kelvane {
namespace {

/// The end of the line that starts at `begin`: its line break or the end of the content.
std::size_t lineEnd(std::string_view text, std::size_t begin) noexcept {
  std::size_t end = text.find('\n', begin);
  while (end != std::string_view::npos && end > begin && text[end - 1] == '\r') end = text.find('\n', end + 1);
  return std::min(end, text.size());
}

/// Whether the first characters are those of an ASCII prefix.
bool beginsWith(std::string_view text, std::string_view prefix) noexcept {
  return text.starts_with(prefix) && unicode::characterEnd(text, prefix.size() - 1) == prefix.size();
}

}  // namespace

std::vector<CodexLine> codexLines(std::string_view text) {
  const std::string header = CodexConfig::header();
  const std::string headerBelow = header.substr(0, header.size() - 1) + '.';
  std::vector<CodexLine> lines;
  bool isOwned = false;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = lineEnd(text, begin);
    const std::string_view line = text.substr(begin, end - begin);
    const std::string_view trimmed = unicode::trimmingSpacesAndTabs(line);
    if (beginsWith(trimmed, "[")) isOwned = trimmed == header || beginsWith(trimmed, headerBelow);
    lines.push_back({line, isOwned});
    begin = end + 1;
  }
  return lines;
}

std::string_view withoutTrailingLineBreaks(std::string_view text) noexcept {
  while (text.ends_with('\n') && !text.ends_with("\r\n")) text.remove_suffix(1);
  return text;
}

}  // namespace kelvane
