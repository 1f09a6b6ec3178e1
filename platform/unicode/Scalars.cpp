#include "platform/unicode/Scalars.h"

#include <utf8proc.h>

namespace kelvane::unicode {

namespace {

// Unicode gives these properties to ranges of unassigned scalars too, so that future emoji already form one character.
// utf8proc has them for assigned scalars only.
BreakClass unassignedBreakClass(char32_t scalar) noexcept {
  const auto within = [&](char32_t first, char32_t last) { return scalar >= first && scalar <= last; };
  if (within(0x1F000, 0x1FAFF) || within(0x1FC00, 0x1FFFD)) return BreakClass::pictographic;
  if (scalar == 0x2065 || within(0xFFF0, 0xFFF8) || within(0xE0000, 0xE0FFF)) return BreakClass::control;
  return BreakClass::other;
}

}  // namespace

BreakClass breakClass(char32_t scalar) noexcept {
  const utf8proc_property_t& property = *utf8proc_get_property(static_cast<utf8proc_int32_t>(scalar));
  switch (property.boundclass) {
    case UTF8PROC_BOUNDCLASS_CR:
      return BreakClass::cr;
    case UTF8PROC_BOUNDCLASS_LF:
      return BreakClass::lf;
    case UTF8PROC_BOUNDCLASS_CONTROL:
      return BreakClass::control;
    case UTF8PROC_BOUNDCLASS_EXTEND:
      return BreakClass::extend;
    case UTF8PROC_BOUNDCLASS_ZWJ:
      return BreakClass::zeroWidthJoiner;
    case UTF8PROC_BOUNDCLASS_SPACINGMARK:
      return BreakClass::spacingMark;
    case UTF8PROC_BOUNDCLASS_PREPEND:
      return BreakClass::prepend;
    case UTF8PROC_BOUNDCLASS_REGIONAL_INDICATOR:
      return BreakClass::regionalIndicator;
    case UTF8PROC_BOUNDCLASS_EXTENDED_PICTOGRAPHIC:
      return BreakClass::pictographic;
    case UTF8PROC_BOUNDCLASS_L:
      return BreakClass::hangulL;
    case UTF8PROC_BOUNDCLASS_V:
      return BreakClass::hangulV;
    case UTF8PROC_BOUNDCLASS_T:
      return BreakClass::hangulT;
    case UTF8PROC_BOUNDCLASS_LV:
      return BreakClass::hangulLV;
    case UTF8PROC_BOUNDCLASS_LVT:
      return BreakClass::hangulLVT;
    default:
      return property.category == UTF8PROC_CATEGORY_CN ? unassignedBreakClass(scalar) : BreakClass::other;
  }
}

bool isExtender(char32_t scalar) noexcept {
  if (scalar < 0x300) return false;
  const BreakClass found = breakClass(scalar);
  return found == BreakClass::extend || found == BreakClass::zeroWidthJoiner || found == BreakClass::spacingMark;
}

bool isPrepender(char32_t scalar) noexcept {
  return scalar >= 0x600 && breakClass(scalar) == BreakClass::prepend;
}

bool startsCompositionByProperties(char32_t scalar) noexcept {
  // Only marks and these conjoining Jamo combine with a scalar before them. A precomposed scalar may be excluded from
  // composition, and then is not its own canonical composition.
  const bool isVowel = scalar >= 0x1161 && scalar <= 0x1175;
  const bool isTrailing = scalar >= 0x11A8 && scalar <= 0x11C2;
  const utf8proc_property_t& property = *utf8proc_get_property(static_cast<utf8proc_int32_t>(scalar));
  const bool isMark = property.category == UTF8PROC_CATEGORY_MN || property.category == UTF8PROC_CATEGORY_MC ||
                      property.category == UTF8PROC_CATEGORY_ME;
  const bool isDecomposed = property.decomp_seqindex == static_cast<utf8proc_uint16_t>(-1);
  const bool isCompatibility = property.decomp_type != 0;
  return !isVowel && !isTrailing && !isMark && (isDecomposed || isCompatibility);
}

}  // namespace kelvane::unicode
