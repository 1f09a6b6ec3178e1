#include "platform/Unicode.h"
#include "platform/unicode/Scalars.h"
#include "platform/unicode/UTF8.h"

/// How the end of a character is found: the rules GB3 to GB13 of Unicode Standard Annex #29, applied from the start of
/// the character to the right. Most rules look at two neighbours only. Two look further back, and for each of them the
/// loop keeps what it needs to know: GB11 (emoji joined by a zero-width joiner) whether a pictograph with nothing but
/// marks after it came last, GB12 and GB13 (flags) whether a pair of regional indicators is complete.
///
/// Two ASCII bytes in a row always end a character between them, except CR LF. This makes ASCII fast.
namespace kelvane::unicode {

namespace {

using enum BreakClass;

bool isControl(BreakClass kind) noexcept {
  return kind == control || kind == cr || kind == lf;
}

// Whether one of the rules that look at two neighbours only joins them.
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
  bool afterPictograph = before == pictographic;  // a pictograph and nothing but Extend came last
  bool afterJoiner = false;                       // the same, and then a joiner
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
