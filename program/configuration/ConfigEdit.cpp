#include "program/configuration/ConfigEdit.h"

#include <algorithm>

#include "platform/Unicode.h"

namespace kelvane {

std::string positionIn(std::string_view text, std::size_t offset) {
  std::string_view before = text.substr(0, offset);
  if (before.starts_with(byteOrderMark)) before.remove_prefix(byteOrderMark.size());
  const auto line = 1 + std::count(before.begin(), before.end(), '\n');
  const std::size_t column = 1 + unicode::characterCount(before.substr(before.rfind('\n') + 1));
  return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

void requireUTF8(std::string_view command, std::string_view format) {
  if (unicode::isValidUTF8(command)) return;
  throw ConfigRefused("The path of this program is not UTF-8, so no " + std::string(format) +
                      " file can hold it. Move the program to another folder.");
}

void requireProof(bool isProven) {
  if (isProven) return;
  throw ConfigRefused(
      "Changing our entry would change other parts of the file too. The file is unchanged. Edit it by hand.");
}

bool differsOnlyWithin(std::size_t begin, std::size_t end, std::string_view before, std::string_view after) noexcept {
  const auto [same, ignored] = std::mismatch(before.begin(), before.end(), after.begin(), after.end());
  const auto front = static_cast<std::size_t>(same - before.begin());
  std::size_t back = 0;
  while (back < std::min(before.size(), after.size()) - front &&
         before[before.size() - 1 - back] == after[after.size() - 1 - back]) {
    ++back;
  }
  const std::size_t behind = before.size() - back;
  return front == behind || (front >= begin && behind <= end);
}

}  // namespace kelvane
