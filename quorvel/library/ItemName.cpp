#include "quorvel/library/ItemName.h"

#include <algorithm>

#include "platform/Unicode.h"
#include "quorvel/library/Listing.h"

namespace quorvel {
namespace {

namespace unicode = kelvane::unicode;

constexpr std::size_t longestName = longestFileName - scriptSuffix.size() - roomForNumber;

// Control characters are U+0000 to U+001F and U+007F to U+009F.
std::string withoutSlashesAndControls(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte == '/' || byte < 0x20 || byte == 0x7F) {
      result.push_back('-');
    } else if (byte == 0xC2 && static_cast<unsigned char>(text[at + 1]) < 0xA0) {
      result.push_back('-');
      ++at;
    } else {
      result.push_back(text[at]);
    }
  }
  return result;
}

std::string_view withoutBlanksAtEndsAndDotsAtStart(std::string_view text) {
  while (true) {
    text = unicode::trimmingWhiteSpace(text);
    if (!text.starts_with('.')) return text;
    text.remove_prefix(std::min(text.find_first_not_of('.'), text.size()));
  }
}

std::string_view cutBetweenCharacters(std::string_view text) {
  std::size_t end = 0;
  while (end < text.size()) {
    const std::size_t next = unicode::characterEnd(text, end);
    if (next > longestName) break;
    end = next;
  }
  return unicode::trimmingWhiteSpace(text.substr(0, end));
}

std::string uncutName(std::string_view asked, ScriptItem::Kind kind) {
  const std::string text = unicode::replacingInvalidUTF8(asked);
  std::string_view name = text;
  if (kind == ScriptItem::Kind::script && name.ends_with(scriptSuffix)) name.remove_suffix(scriptSuffix.size());
  const std::string safe = withoutSlashesAndControls(name);
  return std::string(withoutBlanksAtEndsAndDotsAtStart(safe));
}

}  // namespace

std::string cleanedName(std::string_view asked, ScriptItem::Kind kind) {
  return std::string(cutBetweenCharacters(uncutName(asked, kind)));
}

bool isTooLongToCut(std::string_view asked, ScriptItem::Kind kind) {
  const std::string name = uncutName(asked, kind);
  return !name.empty() && cutBetweenCharacters(name).empty();
}

std::string numberedName(std::string_view name, std::size_t number) {
  std::string numbered(name);
  if (number > 1) numbered.append(" ").append(std::to_string(number));
  return numbered;
}

std::string fileName(std::string_view name, ScriptItem::Kind kind) {
  std::string file(name);
  if (kind == ScriptItem::Kind::script) file.append(scriptSuffix);
  return file;
}

}  // namespace quorvel
