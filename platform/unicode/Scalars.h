#pragma once

#include <cstdint>

/// Properties of single scalars, by the Unicode Character Database, version 15.
///
/// Pure functions that take constant time and never fail. Any scalar may be passed, assigned or not.
namespace kelvane::unicode {

/// The property White_Space, and how such a scalar takes part in a character (Unicode Standard Annex #29).
enum class WhiteSpace : std::uint8_t {
  none,     ///< Not white space.
  space,    ///< A space separator (Zs). Marks after it join it, and it joins a Prepend before it.
  control,  ///< A tab or a line break. Always a character of its own; CR LF is one character together.
};

constexpr WhiteSpace whiteSpace(char32_t scalar) noexcept {
  if (scalar <= 0x20) {
    return scalar == 0x20                     ? WhiteSpace::space
           : scalar >= 0x09 && scalar <= 0x0D ? WhiteSpace::control
                                              : WhiteSpace::none;
  }
  switch (scalar) {
    case 0x0085:
    case 0x2028:
    case 0x2029:
      return WhiteSpace::control;
    case 0x00A0:
    case 0x1680:
    case 0x202F:
    case 0x205F:
    case 0x3000:
      return WhiteSpace::space;
    default:
      return scalar >= 0x2000 && scalar <= 0x200A ? WhiteSpace::space : WhiteSpace::none;
  }
}

/// How a scalar takes part in a grapheme cluster: its Grapheme_Cluster_Break. Scalars that are Extended_Pictographic
/// have a class of their own, `pictographic`, because rule GB11 needs it. Unassigned scalars have the class that
/// Unicode gives to their range.
enum class BreakClass : std::uint8_t {
  other,
  cr,
  lf,
  control,
  extend,
  zeroWidthJoiner,
  spacingMark,
  prepend,
  regionalIndicator,
  pictographic,
  hangulL,
  hangulV,
  hangulT,
  hangulLV,
  hangulLVT,
};

BreakClass breakClass(char32_t scalar) noexcept;

/// Whether a scalar joins the character before it (rules GB9 and GB9a), unless that is a control.
bool isExtender(char32_t scalar) noexcept;

/// Whether a scalar draws the scalar after it into its character (rule GB9b), unless that is a control.
bool isPrepender(char32_t scalar) noexcept;

/// Whether canonical composition can start at this scalar without knowing what is before it. Such a scalar is its own
/// canonical composition, is never reordered, and never combines with a scalar before it; it may combine with one that
/// follows. False for some scalars for which that would be true too: false is always safe, and only slower.
bool startsCompositionByProperties(char32_t scalar) noexcept;

/// The same, inline for Latin, Cyrillic, Vietnamese, Kana, Han and Hangul syllables.
inline bool startsComposition(char32_t scalar) noexcept {
  const auto within = [&](char32_t first, char32_t last) { return scalar >= first && scalar <= last; };
  return scalar < 0x300 || within(0x0388, 0x0482) || within(0x1E00, 0x1EFF) || within(0x3000, 0x3029) ||
         within(0x3041, 0x3096) || within(0x30A1, 0x30FF) || within(0x4E00, 0x9FFF) || within(0xAC00, 0xD7A3) ||
         startsCompositionByProperties(scalar);
}

}  // namespace kelvane::unicode
