#include "program/configuration/ConfigEdit.h"

#include <algorithm>

#include "platform/Unicode.h"

namespace kelvane {

std::string placeIn(std::string_view text, std::size_t offset) {
  std::string_view before = text.substr(0, offset);
  if (before.starts_with("\xEF\xBB\xBF")) before.remove_prefix(3);
  const auto line = 1 + std::count(before.begin(), before.end(), '\n');
  const std::size_t column = 1 + unicode::characterCount(before.substr(before.rfind('\n') + 1));
  return "line " + std::to_string(line) + ", column " + std::to_string(column);
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
