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

// A number becomes a "0", which puts it where digits stand among the other characters, then how many digits it has
// without its leading zeros, then these: of two numbers the longer is the greater. `lower` turns a byte that is no
// digit into what it is in the key.
template <class Lower>
void appendKey(std::string_view text, std::string& key, Lower lower) {
  for (std::size_t at = 0; at < text.size();) {
    if (!isDigit(text[at])) {
      key.push_back(lower(text[at++]));
      continue;
    }
    std::size_t end = at;
    while (end < text.size() && isDigit(text[end])) ++end;
    while (at < end && text[at] == '0') ++at;
    key.push_back('0');
    appendCount(end - at, key);
    key.append(text, at, end - at);
    at = end;
  }
}

}  // namespace

void appendNaturalKey(std::string_view name, std::string& keys) {
  if (unicode::isASCII(name)) {  // what folding makes of it is known without asking
    appendKey(name, keys, [](char byte) { return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte | 0x20) : byte; });
  } else {
    appendKey(unicode::folded(name), keys, [](char byte) { return byte; });
  }
}

std::string naturalKey(std::string_view name) {
  std::string key;
  appendNaturalKey(name, key);
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
