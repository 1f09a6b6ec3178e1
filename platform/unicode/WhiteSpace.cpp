#include "platform/Unicode.h"
#include "platform/unicode/Scalars.h"
#include "platform/unicode/UTF8.h"

namespace kelvane::unicode {

namespace {

bool isSpaceOrTab(char32_t scalar) noexcept {
  return scalar == '\t' || whiteSpace(scalar) == WhiteSpace::space;
}

// Where the last character starts if it is white space, otherwise the text's size. Characters can only be found from
// the start of a text, which would not be linear here, so this reads backwards: over marks to a scalar that is not one.
// A space there is the start of the character unless a Prepend before it draws it in. The text must start a character.
std::size_t lastWhiteSpace(std::string_view text) noexcept {
  std::size_t marks = text.size();  // where the marks at the end start
  while (marks > 0) {
    const Decoded before = decodedBefore(text, marks);
    const std::size_t start = marks - before.size;
    switch (whiteSpace(before.scalar)) {
      case WhiteSpace::control:
        // Marks after a control are a character of their own, which is not white space.
        return marks == text.size() ? start : text.size();
      case WhiteSpace::space:
        return start > 0 && isPrepender(decodedBefore(text, start).scalar) ? text.size() : start;
      case WhiteSpace::none:
        if (!isExtender(before.scalar)) return text.size();
        marks = start;
    }
  }
  return text.size();
}

}  // namespace

bool startsWithWhiteSpace(std::string_view text) noexcept {
  return !text.empty() && whiteSpace(decodedAt(text, 0).scalar) != WhiteSpace::none;
}

std::string_view trimmingWhiteSpace(std::string_view text) noexcept {
  while (startsWithWhiteSpace(text)) text.remove_prefix(characterEnd(text, 0));
  for (std::size_t end; (end = lastWhiteSpace(text)) < text.size();) text = text.substr(0, end);
  return text;
}

std::string_view trimmingSpacesAndTabs(std::string_view text) noexcept {
  while (!text.empty()) {
    const Decoded first = decodedAt(text, 0);
    if (!isSpaceOrTab(first.scalar)) break;
    text.remove_prefix(first.size);
  }
  while (!text.empty()) {
    const Decoded last = decodedBefore(text, text.size());
    if (!isSpaceOrTab(last.scalar)) break;
    text.remove_suffix(last.size);
  }
  return text;
}

}  // namespace kelvane::unicode
