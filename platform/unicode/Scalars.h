#pragma once

#include <cstdint>

/// Properties of single Unicode scalars, by Unicode 15.
namespace kelvane::unicode {

/// The property White_Space, and how a white scalar behaves as part of a character (Unicode Standard Annex #29).
enum class WhiteSpace : std::uint8_t {
  none,
  space,    ///< A space separator (Zs): marks that follow it join it, and it joins a Prepend before it.
  control,  ///< A tab or a line break: always a character of its own (CR LF is one together).
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

/// How a scalar takes part in grapheme clusters: Grapheme_Cluster_Break, with Extended_Pictographic as a class.
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

/// Whether a scalar joins the character before it, unless that is a control.
bool isExtender(char32_t scalar) noexcept;

/// Whether a scalar draws the scalar behind it into its character, unless that is a control.
bool isPrepender(char32_t scalar) noexcept;

/// Whether composing a text canonically can start anew at this scalar: it is its own canonical composition, stays in
/// its place, and never combines with what stands before it (it may with what follows). Where that takes long to tell
/// the answer is no, which is always safe.
bool startsCompositionByProperties(char32_t scalar) noexcept;

/// The same, quicker for most of what prose is made of: Latin, Cyrillic, Vietnamese, Kana, Han and Hangul syllables.
inline bool startsComposition(char32_t scalar) noexcept {
  const auto within = [&](char32_t first, char32_t last) { return scalar >= first && scalar <= last; };
  return scalar < 0x300 || within(0x0388, 0x0482) || within(0x1E00, 0x1EFF) || within(0x3000, 0x3029) ||
         within(0x3041, 0x3096) || within(0x30A1, 0x30FF) || within(0x4E00, 0x9FFF) || within(0xAC00, 0xD7A3) ||
         startsCompositionByProperties(scalar);
}

}  // namespace kelvane::unicode
