#pragma once

#include <cstdint>

/// Properties of single Unicode scalars, by Unicode 15.
namespace kelvane::unicode {

/// The property White_Space, and how a white scalar behaves as part of a character (Unicode Standard Annex #29).
enum class WhiteSpace : std::uint8_t {
  none,
  blank,    ///< A space separator (Zs): marks that follow it join it, and it joins a Prepend before it.
  control,  ///< A tab or a line break: always a character of its own (CR LF is one together).
};

constexpr WhiteSpace whiteSpace(char32_t scalar) noexcept {
  if (scalar <= 0x20) {
    return scalar == 0x20                     ? WhiteSpace::blank
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
      return WhiteSpace::blank;
    default:
      return scalar >= 0x2000 && scalar <= 0x200A ? WhiteSpace::blank : WhiteSpace::none;
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

}  // namespace kelvane::unicode
