#include "tests/platform/unicode/UnicodeFiles.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <iterator>

namespace kelvane::tests {

namespace {

constexpr const char* folder = "/usr/share/unicode/";

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(" \t\r");
  return begin == std::string_view::npos ? "" : text.substr(begin, text.find_last_not_of(" \t\r") + 1 - begin);
}

std::string unpacked(const std::string& path) {
  std::string text;
  std::FILE* pipe = ::popen(("bzip2 -dc '" + path + "' 2>/dev/null").c_str(), "r");
  if (pipe == nullptr) return text;
  std::array<char, 65536> buffer{};
  while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe)) text.append(buffer.data(), count);
  return ::pclose(pipe) == 0 ? text : "";
}

std::string contents(const std::string& path) {
  if (path.ends_with(".bz2")) return unpacked(path);
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

char32_t number(std::string_view digits) {
  unsigned value = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
  return value;
}

}  // namespace

std::optional<std::vector<std::string>> unicodeFile(const std::string& name) {
  const std::string text = contents(folder + name);
  if (text.empty()) return std::nullopt;
  std::vector<std::string> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string_view line = std::string_view(text).substr(begin, end - begin);
    const std::string_view content = trimmed(line.substr(0, line.find('#')));
    if (!content.empty()) lines.emplace_back(content);
    begin = end + 1;
  }
  return lines;
}

std::vector<std::string> fields(std::string_view line) {
  std::vector<std::string> result;
  for (;;) {
    const std::size_t end = line.find(';');
    result.emplace_back(trimmed(line.substr(0, end)));
    if (end == std::string_view::npos) return result;
    line.remove_prefix(end + 1);
  }
}

std::u32string scalars(std::string_view field) {
  std::u32string result;
  while (!(field = trimmed(field)).empty()) {
    const std::size_t end = std::min(field.find(' '), field.size());
    result.push_back(number(field.substr(0, end)));
    field.remove_prefix(end);
  }
  return result;
}

void forEachScalar(std::string_view field, const std::function<void(char32_t)>& take) {
  const std::size_t dots = field.find("..");
  const char32_t last = number(dots == std::string_view::npos ? field : field.substr(dots + 2));
  for (char32_t scalar = number(field.substr(0, dots)); scalar <= last; ++scalar) take(scalar);
}

std::optional<std::vector<bool>> scalarsWith(std::string_view value, const std::string& name) {
  const auto lines = unicodeFile(name);
  if (!lines) return std::nullopt;
  std::vector<bool> result(lastScalar + 1);
  for (const std::string& line : *lines) {
    const std::vector<std::string> parts = fields(line);
    if (parts.size() < 2 || parts[1] != value) continue;
    forEachScalar(parts[0], [&](char32_t scalar) { result[scalar] = true; });
  }
  return result;
}

std::string utf8(char32_t scalar) {
  const auto byte = [&](unsigned shift, unsigned mark, unsigned mask) {
    return static_cast<char>(mark | (scalar >> shift & mask));
  };
  if (scalar < 0x80) return {byte(0, 0, 0x7F)};
  if (scalar < 0x800) return {byte(6, 0xC0, 0x1F), byte(0, 0x80, 0x3F)};
  if (scalar < 0x10000) return {byte(12, 0xE0, 0x0F), byte(6, 0x80, 0x3F), byte(0, 0x80, 0x3F)};
  return {byte(18, 0xF0, 0x07), byte(12, 0x80, 0x3F), byte(6, 0x80, 0x3F), byte(0, 0x80, 0x3F)};
}

std::string utf8(std::u32string_view scalars) {
  std::string result;
  for (const char32_t scalar : scalars) result += utf8(scalar);
  return result;
}

std::string spelled(std::u32string_view scalars) {
  std::string result;
  for (const char32_t scalar : scalars) {
    std::array<char, 16> digits{};
    std::snprintf(digits.data(), digits.size(), "%sU+%04X", result.empty() ? "" : " ", static_cast<unsigned>(scalar));
    result += digits.data();
  }
  return result;
}

}  // namespace kelvane::tests
