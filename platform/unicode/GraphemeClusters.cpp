#include "platform/Unicode.h"
#include "platform/unicode/Scalars.h"
#include "platform/unicode/UTF8.h"

namespace kelvane::unicode {

namespace {

using enum BreakClass;

bool isControl(BreakClass kind) noexcept {
  return kind == control || kind == cr || kind == lf;
}

// The rules that look at two neighbours only; GB11, GB12 and GB13 need to know more of what went before.
bool joins(BreakClass before, BreakClass after) noexcept {
  if (before == cr && after == lf) return true;                  // GB3
  if (isControl(before) || isControl(after)) return false;       // GB4, GB5
  if (after == extend || after == zeroWidthJoiner) return true;  // GB9
  if (after == spacingMark || before == prepend) return true;    // GB9a, GB9b
  switch (before) {                                              // GB6, GB7, GB8
    case hangulL:
      return after == hangulL || after == hangulV || after == hangulLV || after == hangulLVT;
    case hangulV:
    case hangulLV:
      return after == hangulV || after == hangulT;
    case hangulT:
    case hangulLVT:
      return after == hangulT;
    default:
      return false;
  }
}

bool isASCIIAt(std::string_view text, std::size_t offset) noexcept {
  return static_cast<unsigned char>(text[offset]) < 0x80;
}

}  // namespace

std::size_t characterEnd(std::string_view text, std::size_t offset) noexcept {
  if (isASCIIAt(text, offset) && (offset + 1 == text.size() || isASCIIAt(text, offset + 1))) {
    return offset + (text.substr(offset, 2) == "\r\n" ? 2 : 1);
  }
  Decoded scalar = decodedAt(text, offset);
  BreakClass before = breakClass(scalar.scalar);
  bool afterPictograph = before == pictographic;  // a pictograph, and nothing but Extend behind it
  bool afterJoiner = false;                       // such a pictograph and a joiner
  bool afterPair = false;                         // two regional indicators: a flag is complete
  for (offset += scalar.size; offset < text.size(); offset += scalar.size) {
    scalar = decodedAt(text, offset);
    const BreakClass after = breakClass(scalar.scalar);
    const bool joinsPictograph = afterJoiner && after == pictographic;
    const bool completesPair = before == regionalIndicator && after == regionalIndicator && !afterPair;
    if (!joins(before, after) && !joinsPictograph && !completesPair) break;
    afterJoiner = afterPictograph && after == zeroWidthJoiner;
    afterPictograph = after == pictographic || (afterPictograph && after == extend);
    afterPair = completesPair;
    before = after;
  }
  return offset;
}

std::size_t characterCount(std::string_view text) noexcept {
  std::size_t count = 0;
  for (std::size_t offset = 0; offset < text.size(); offset = characterEnd(text, offset)) ++count;
  return count;
}

}  // namespace kelvane::unicode
