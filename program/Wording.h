#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

/// How things are shown to a person at a terminal.
namespace kelvane {

/// A moment in the person's time zone: "2026-11-21 20:13:05".
std::string shown(std::chrono::system_clock::time_point moment);

/// A text on one line of a terminal: each character that would steer it (control characters, separators of lines, marks
/// of direction), and what is no UTF-8, as U+FFFD.
std::string onOneLine(std::string_view text);

/// Lines of JSON or TOML: what would steer the terminal is written as the escape that both have, but for tabs and line
/// breaks. Apart from comments such characters stand only in strings, so the lines mean the same.
std::string escaped(std::string_view lines);

/// A name or a path between double quotes, on one line.
std::string inQuotes(std::string_view name);

/// "1 version", "2 versions".
std::string counted(std::int64_t count, std::string_view noun);

}  // namespace kelvane
