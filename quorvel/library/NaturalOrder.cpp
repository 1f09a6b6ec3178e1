#include "quorvel/library/NaturalOrder.h"

#include "platform/Unicode.h"

namespace quorvel {
namespace {

namespace unicode = kelvane::unicode;

bool isDigit(char byte) noexcept {
  return byte >= '0' && byte <= '9';
}

// Bytes that compare as the count does: one 0xFF for every 255 in it, then what is left.
void appendCount(std::size_t count, std::string& key) {
  key.append(count / 255, '\xFF');
  key.push_back(static_cast<char>(count % 255));
}

}  // namespace

// A number becomes a "0", which puts it where digits stand among the other characters, then how many digits it has
// without its leading zeros, then these: of two numbers the longer is the greater.
std::string naturalKey(std::string_view name) {
  const std::string folded = unicode::folded(name);
  std::string key;
  key.reserve(folded.size() + 8);
  for (std::size_t at = 0; at < folded.size();) {
    if (!isDigit(folded[at])) {
      key.push_back(folded[at++]);
      continue;
    }
    std::size_t end = at;
    while (end < folded.size() && isDigit(folded[end])) ++end;
    while (at < end && folded[at] == '0') ++at;
    key.push_back('0');
    appendCount(end - at, key);
    key.append(folded, at, end - at);
    at = end;
  }
  return key;
}

std::strong_ordering tieOrder(std::string_view left, std::string_view right) {
  if (const auto order = unicode::order(unicode::lowercased(left), unicode::lowercased(right)); order != 0)
    return order;
  return left <=> right;
}

std::strong_ordering naturalOrder(std::string_view left, std::string_view right) {
  const auto order = naturalKey(left) <=> naturalKey(right);
  return order != 0 ? order : tieOrder(left, right);
}

}  // namespace quorvel
