#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// How things are shown to a person at a terminal. Pure functions that accept any bytes and throw only std::bad_alloc.
namespace kelvane {

/// A string on one line of a terminal: each character that would steer the terminal (control characters, line
/// separators, direction marks), and whatever is not UTF-8, becomes U+FFFD. Takes time linear in the string.
std::string onOneLine(std::string_view text);

/// Lines of JSON or TOML: characters that would steer the terminal are written as an escape that both formats have,
/// except for tabs and line breaks. Outside comments they occur only in strings, so the lines mean the same.
std::string escaped(std::string_view lines);

/// "1 version", "2 versions".
std::string counted(std::int64_t count, std::string_view noun);

}  // namespace kelvane
