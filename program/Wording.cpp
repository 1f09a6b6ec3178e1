#include "program/Wording.h"

#include <cstdio>

#include "platform/Unicode.h"
#include "platform/unicode/UTF8.h"

namespace kelvane {
namespace {

// Control characters, line and paragraph separators, and what changes the direction of what follows.
bool steersTerminals(char32_t scalar) {
  return scalar < 0x20 || (scalar >= 0x7F && scalar < 0xA0) || scalar == 0x061C || scalar == 0x200E ||
         scalar == 0x200F || (scalar >= 0x2028 && scalar <= 0x202E) || (scalar >= 0x2066 && scalar <= 0x2069);
}

}  // namespace

std::string onOneLine(std::string_view text) {
  const std::string valid = unicode::replacingInvalidUTF8(text);
  std::string line;
  for (std::size_t at = 0; at < valid.size();) {
    const unicode::Decoded decoded = unicode::decodedAt(valid, at);
    unicode::append(steersTerminals(decoded.scalar) ? unicode::replacementCharacter : decoded.scalar, line);
    at += decoded.size;
  }
  return line;
}

std::string escaped(std::string_view lines) {
  const std::string valid = unicode::replacingInvalidUTF8(lines);
  std::string text;
  for (std::size_t at = 0; at < valid.size();) {
    const unicode::Decoded decoded = unicode::decodedAt(valid, at);
    const bool isLayout = valid[at] == '\n' || valid[at] == '\t' || valid.compare(at, 2, "\r\n") == 0;
    if (!isLayout && steersTerminals(decoded.scalar)) {
      char escape[16];
      text.append(escape, static_cast<std::size_t>(
                              std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(decoded.scalar))));
    } else {
      text.append(valid, at, decoded.size);
    }
    at += decoded.size;
  }
  return text;
}

std::string counted(std::int64_t count, std::string_view noun) {
  return std::to_string(count).append(" ").append(noun).append(count == 1 ? "" : "s");
}

}  // namespace kelvane
