#include "quorvel/core/Lines.h"

#include <algorithm>

#include "platform/Unicode.h"

namespace quorvel {
namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t longestScalar = 4;

bool continuesScalar(char byte) noexcept {
  return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

/// The text without white space at its end, removed scalar by scalar, so a space with a combining mark stays. Bytes
/// that are not UTF-8 are not white space.
std::string_view withoutWhiteSpaceAtEnd(std::string_view text) noexcept {
  while (!text.empty()) {
    std::size_t size = 1;
    while (size < longestScalar && size < text.size() && continuesScalar(text[text.size() - size])) ++size;
    const std::string_view last = text.substr(text.size() - size);
    if (!kelvane::unicode::startsWithWhiteSpace(last) || !kelvane::unicode::isValidUTF8(last)) break;
    text.remove_suffix(size);
  }
  return text;
}

bool isWhiteSpace(std::string_view text) noexcept {
  return withoutWhiteSpaceAtEnd(text).empty();
}

/// The last line without its line break, if it has one.
std::string_view lastLine(std::string_view text) noexcept {
  text.remove_suffix(finalBreakSize(text));
  return text.substr(text.rfind('\n') + 1);  // npos + 1 is 0
}

}  // namespace

std::size_t byteOrderMarkSize(std::string_view text) noexcept {
  return text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;
}

std::size_t lineEnd(std::string_view text, std::size_t begin) noexcept {
  const std::size_t lineFeed = text.find('\n', begin);
  return lineFeed == std::string_view::npos ? text.size() : lineFeed + 1;
}

std::size_t finalBreakSize(std::string_view text) noexcept {
  if (text.ends_with("\r\n")) return 2;
  return text.ends_with('\n') ? 1 : 0;
}

std::string_view ownLineBreak(std::string_view text) noexcept {
  std::size_t all = 0;
  std::size_t withCarriageReturn = 0;
  for (std::size_t at = text.find('\n'); at != std::string_view::npos; at = text.find('\n', at + 1)) {
    ++all;
    if (at > 0 && text[at - 1] == '\r') ++withCarriageReturn;
  }
  return withCarriageReturn > all - withCarriageReturn ? "\r\n" : "\n";
}

std::string inLineBreaks(std::string_view given, std::string_view lineBreak) {
  // Most texts have the script's line breaks already and are copied as a whole.
  if (lineBreak == "\n" || given.find("\r\n") != std::string_view::npos) return std::string(given);
  const auto lineFeeds = static_cast<std::size_t>(std::count(given.begin(), given.end(), '\n'));
  std::string text;
  text.reserve(given.size() + lineFeeds * (lineBreak.size() - 1));
  while (!given.empty()) {
    const std::size_t end = lineEnd(given, 0);
    const std::size_t breakSize = finalBreakSize(given.substr(0, end));
    text.append(given.substr(0, end - breakSize));
    if (breakSize > 0) text.append(lineBreak);
    given.remove_prefix(end);
  }
  return text;
}

std::size_t missingBreaks(std::string_view text) noexcept {
  text.remove_prefix(byteOrderMarkSize(text));
  if (text.empty()) return 0;
  // One break to end the last line, and one more for an empty line, unless the last line is empty itself.
  return (finalBreakSize(text) == 0 ? 1U : 0U) + (isWhiteSpace(lastLine(text)) ? 0U : 1U);
}

std::string_view withoutEmptyLinesAtEnd(std::string_view text) noexcept {
  const std::size_t inLastLine = withoutWhiteSpaceAtEnd(text).size();
  if (inLastLine == 0) return {};
  text = text.substr(0, text.find('\n', inLastLine));
  // A CR at the end of a line without LF is not a line break, but would become one if a LF followed it.
  while (text.ends_with('\r')) text.remove_suffix(1);
  return text;
}

std::string_view passage(std::string_view text) noexcept {
  text = withoutEmptyLinesAtEnd(text);
  while (!text.empty()) {
    const std::size_t end = lineEnd(text, 0);
    if (!isWhiteSpace(text.substr(0, end))) break;
    text.remove_prefix(end);
  }
  return text;
}

}  // namespace quorvel
