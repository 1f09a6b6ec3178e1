#include "program/configuration/TOMLScan.h"

#include <algorithm>
#include <string>

namespace kelvane {
namespace {

/// Where the string that begins at `begin` ends, be it of one line or of several. Several quotes may end the latter:
/// those before the last three belong to it.
std::size_t stringEnd(std::string_view text, std::size_t begin) {
  constexpr std::size_t mostQuotes = 5;
  const char quote = text[begin];
  const auto quotes = [&](std::size_t at) {
    const std::string_view run = text.substr(at, mostQuotes);
    return std::min(run.find_first_not_of(quote), run.size());
  };
  const std::size_t opening = quotes(begin);
  if (opening == 2) return begin + 2;
  const bool hasLines = opening > 2;
  for (std::size_t at = begin + (hasLines ? 3 : 1); at < text.size();) {
    if (text[at] == quote) {
      const std::size_t count = hasLines ? quotes(at) : 1;
      at += count;
      if (!hasLines || count > 2) return at;
    } else if (text[at] == '\n' && !hasLines) {
      return at;
    } else {
      at += text[at] == '\\' && quote == '"' ? 2 : 1;
    }
  }
  return text.size();
}

bool isHexadecimalFraction(std::string_view value) noexcept {
  if (value.starts_with('+') || value.starts_with('-')) value.remove_prefix(1);
  return (value.starts_with("0x") || value.starts_with("0X")) && value.find_first_of(".pP") != std::string_view::npos;
}

}  // namespace

TOMLScan scanTOML(std::string_view text) {
  TOMLScan scan;
  std::string open;   // the brackets that close the arrays and inline tables around
  bool isKey = true;  // or the header of a table; else a value
  for (std::size_t at = 0; at < text.size();) {
    const char byte = text[at];
    if (byte == '#') {
      at = std::min(text.find('\n', at), text.size());
      continue;
    }
    if (byte == '"' || byte == '\'') {
      at = stringEnd(text, at);
      continue;
    }
    std::size_t end = at + 1;
    if (byte == '\n') {
      isKey = isKey || open.empty();
    } else if (byte == ',') {
      isKey = open.ends_with('}');
    } else if (byte == '}' && open.ends_with('}')) {
      open.pop_back();
      isKey = false;
    } else if (isKey) {
      scan.dotsInKeys += byte == '.' ? 1 : 0;
      isKey = byte != '=';
    } else if (byte == '{' || byte == '[') {
      open += byte == '{' ? '}' : ']';
      isKey = byte == '{';
    } else if (byte == ']' && open.ends_with(']')) {
      open.pop_back();
    } else if (byte != ' ' && byte != '\t' && byte != '\r') {
      end = std::min(text.find_first_of(" \t\r\n,]}#'\"", at), text.size());
      end = std::max(end, at + 1);
      if (!scan.hexadecimalFraction && isHexadecimalFraction(text.substr(at, end - at))) {
        scan.hexadecimalFraction = at;
      }
    }
    at = end;
  }
  return scan;
}

}  // namespace kelvane
