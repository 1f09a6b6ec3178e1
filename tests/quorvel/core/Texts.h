#pragma once

#include <cstdio>
#include <string>
#include <string_view>

/// Texts as the tests write and show them.
namespace quorvel::tests {

inline constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

/// The text with CR LF for each LF.
inline std::string withCRLF(std::string_view text) {
  std::string result;
  for (const char byte : text) {
    if (byte == '\n') result += '\r';
    result += byte;
  }
  return result;
}

/// The text as a C++ literal, so that a failure shows every byte.
inline std::string shown(std::string_view text) {
  std::string result = "\"";
  for (const char byte : text) {
    if (byte == '\n') {
      result += "\\n";
    } else if (byte == '\r') {
      result += "\\r";
    } else if (byte == '\t') {
      result += "\\t";
    } else if (byte >= ' ' && byte <= '~') {
      result += byte;
    } else {
      char escaped[5];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned>(static_cast<unsigned char>(byte)));
      result += escaped;
    }
  }
  return result + "\"";
}

inline std::string repeated(std::string_view text, std::size_t times) {
  std::string result;
  for (std::size_t written = 0; written < times; ++written) result += text;
  return result;
}

}  // namespace quorvel::tests
