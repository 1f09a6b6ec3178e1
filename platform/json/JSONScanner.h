#pragma once

#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

#include "platform/json/JSONRuns.h"
#include "platform/unicode/Processor.h"
#include "platform/unicode/UTF8.h"

/// The lowest level of reading JSON text: where white space, strings and numbers end, and what they say. The grammar
/// (JSONGrammar.h) decides what may stand where, and calls these.
///
/// Every function reads [at, end) and no byte outside it, in time linear in what it passes over. None allocates or
/// throws. They are inline because the decoder spends most of its time in them.
///
/// Reading goes in two steps, scan and convert. A scan finds where a string or number ends and notes what the second
/// step needs: most strings have no escapes and most numbers are short integers, so for them the second step is
/// nothing.
namespace kelvane::jsonscanner {

/// The same as `skippingSpace`, where there is some.
inline const char* skippingSomeSpace(const char* at, const char* end) noexcept {
  const auto isSpace = [](char byte) { return byte == ' ' || byte == '\n' || byte == '\r' || byte == '\t'; };
#if defined(KELVANE_SSE2)
  // Most of it is one byte, or a line break and spaces.
  if (!isSpace(*at)) return at;
  for (++at; end - at >= 16;) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    const __m128i isBlank = _mm_cmpeq_epi8(bytes, _mm_set1_epi8(' '));
    const unsigned other = static_cast<unsigned>(_mm_movemask_epi8(isBlank)) ^ 0xFFFFU;
    if (other == 0) {
      at += 16;
      continue;
    }
    at += std::countr_zero(other);
    if (!isSpace(*at)) return at;
    ++at;
  }
#endif
  while (at != end && isSpace(*at)) ++at;
  return at;
}

/// The end of the white space (RFC 8259, section 2) at `at`.
inline const char* skippingSpace(const char* at, const char* end) noexcept {
  const bool isNone = at == end || static_cast<unsigned char>(*at) > ' ';
  return isNone ? at : skippingSomeSpace(at, end);
}

/// Where the string at `at`, after its opening quote, ceases to be well-formed: at a control character, at a byte that
/// is not UTF-8, or at `end` if it is not closed. nullptr if only its escapes can be wrong.
inline const char* faultInString(const char* at, const char* end) noexcept {
  while (true) {
    at = skippingPlain(at, end);
    if (at == end) return at;
    if (*at == '"') return nullptr;
    if (*at == '\\') {
      if (end - at < 2) return at;
      at += 2;
    } else {
      const auto decoded = unicode::decodedAt({at, static_cast<std::size_t>(end - at)}, 0);
      if (!decoded.wellFormed || decoded.size == 1) return at;
      at += decoded.size;
    }
  }
}

/// The number in the escape \uXXXX at `at`; std::nullopt if there is no such escape.
inline std::optional<unsigned> escapedUnit(const char* at, const char* end) noexcept {
  if (end - at < 6 || at[0] != '\\' || at[1] != 'u') return std::nullopt;
  unsigned value = 0;
  const auto [stop, error] = std::from_chars(at + 2, at + 6, value, 16);
  return stop == at + 6 ? std::optional(value) : std::nullopt;
}

/// A string without its escapes.
struct Unescaped {
  char* end;     ///< Of what was written; nullptr if the string is not well-formed.
  bool isASCII;  ///< Of what was written.
};

/// What a backslash and one more byte stand for; 0 if that is another escape, or none.
inline constexpr auto shortEscapes = [] {
  std::array<char, 256> meanings{};
  for (const char same : {'"', '\\', '/'}) meanings[static_cast<unsigned char>(same)] = same;
  meanings['b'] = '\b';
  meanings['f'] = '\f';
  meanings['n'] = '\n';
  meanings['r'] = '\r';
  meanings['t'] = '\t';
  return meanings;
}();

/// Copies the string [at, close) to `out`, replaces its escapes, and judges it: UTF-8, no control characters, no other
/// escapes than those of JSON. `end` is the end of the whole text. `out` has room for as many bytes, since no escape
/// becomes longer, and for `copySlack`. All of that room may be written to.
///
/// For half of a surrogate pair, `allowsLone` is called with a pointer to its escape. If it returns true, U+FFFD is
/// written; if false, the escape is refused.
template <class AllowsLone>
Unescaped unescaped(const char* at, const char* close, const char* end, char* out, AllowsLone allowsLone) {
  constexpr Unescaped refused{nullptr, false};
  bool isASCII = true;
  while (true) {
    const Copied copied = copyToEscape(at, end, out);
    if (!copied.isWellFormed) return refused;
    isASCII = isASCII && copied.isASCII;
    out += copied.end - at;
    if (copied.end == close) return {out, isASCII};
    const char* const escape = copied.end;
    at = escape + 2;
    if (const char meant = shortEscapes[static_cast<unsigned char>(escape[1])]) {
      *out++ = meant;
      continue;
    }
    const auto unit = escapedUnit(escape, close);
    if (!unit) return refused;
    at = escape + 6;
    unsigned scalar = *unit;
    if (scalar >= 0xD800 && scalar < 0xE000) {
      const auto low = scalar < 0xDC00 ? escapedUnit(at, close) : std::nullopt;
      if (low && *low >= 0xDC00 && *low < 0xE000) {
        scalar = 0x10000 + ((scalar - 0xD800) << 10) + (*low - 0xDC00);
        at += 6;
      } else if (allowsLone(escape)) {
        scalar = unicode::replacementCharacter;
      } else {
        return refused;
      }
    }
    isASCII = isASCII && scalar < 0x80;
    out = unicode::encode(scalar, out);
  }
}

/// What a scan finds of a number: ± digits × 10^exponent.
struct Number {
  static constexpr std::size_t mostDigits = 19;  ///< As many digits fit in 64 bits whatever they are.

  const char* end;    ///< Its end. If the number is not well-formed: where reading failed.
  bool isWellFormed;  ///< Up to `end`; whether the next byte is permitted there is the caller's question.
  bool isNegative;
  bool isInteger;          ///< Written without a fraction and without an exponent.
  std::size_t digitCount;  ///< Without leading zeros if there are more than `mostDigits`.
  std::uint64_t digits;    ///< All digits as one integer. Valid only if `digitCount` is at most `mostDigits`.
  std::int64_t exponent;   ///< The power of ten for that integer; limited to about ± 2^44.
};

/// Appends the decimal digits at `at` to `value`, up to eight in one step. What does not fit in 64 bits is lost.
/// Returns their end.
inline const char* takeDigits(const char* at, const char* end, std::uint64_t& value) noexcept {
  if constexpr (hasLittleEndianWords) {
    constexpr std::uint64_t powersOf10[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};
    while (end - at >= 8) {
      std::uint64_t word;
      std::memcpy(&word, at, 8);
      // The high half of a digit is 3, and stays so when 6 is added to the low one. What a larger byte carries over
      // only reaches those behind it.
      constexpr std::uint64_t highHalves = 0xF0F0F0F0F0F0F0F0;
      constexpr std::uint64_t threes = 0x3030303030303030;
      const std::uint64_t others =
          ((word & highHalves) ^ threes) | (((word + 0x0606060606060606) & highHalves) ^ threes);
      const auto count = static_cast<unsigned>(std::countr_zero(others)) / 8;
      if (count == 0) return at;
      // The first byte is the lowest one: moved up, the digits have zeros in front.
      word = (word & 0x0F0F0F0F0F0F0F0F) << (64 - 8 * count);
      // Neighbouring digits become pairs, pairs fours, fours eight.
      word = word * 2561 >> 8;
      word = (word & 0x00FF00FF00FF00FF) * 6553601 >> 16;
      word = (word & 0x0000FFFF0000FFFF) * 42949672960001 >> 32;
      value = value * powersOf10[count] + word;
      at += count;
      if (count < 8) return at;
    }
  }
  for (; at != end && *at >= '0' && *at <= '9'; ++at) value = value * 10 + static_cast<std::uint64_t>(*at - '0');
  return at;
}

/// Scans a number (RFC 8259, section 6).
inline Number scanNumber(const char* at, const char* end) noexcept {
  constexpr std::int64_t exponentBound = std::int64_t{1} << 40;
  Number number{at, false, false, true, 0, 0, 0};
  const auto isDigit = [&](const char* byte) { return byte != end && *byte >= '0' && *byte <= '9'; };
  const char*& p = number.end;
  if (p != end && *p == '-') {
    number.isNegative = true;
    ++p;
  }
  if (!isDigit(p)) return number;
  const char* const whole = p;
  p = *p == '0' ? p + 1 : takeDigits(p, end, number.digits);
  number.digitCount = static_cast<std::size_t>(p - whole);
  const char* fraction = p;
  if (p != end && *p == '.') {
    number.isInteger = false;
    fraction = ++p;
    if (!isDigit(p)) return number;
    p = takeDigits(p, end, number.digits);
    number.digitCount += static_cast<std::size_t>(p - fraction);
    number.exponent = fraction - p;
  }
  const char* const digitsEnd = p;
  if (p != end && (*p == 'e' || *p == 'E')) {
    number.isInteger = false;
    ++p;
    const bool down = p != end && *p == '-';
    if (p != end && (*p == '-' || *p == '+')) ++p;
    if (!isDigit(p)) return number;
    std::int64_t exponent = 0;
    for (; isDigit(p); ++p) {
      if (exponent < exponentBound) exponent = exponent * 10 + (*p - '0');
    }
    number.exponent += down ? -exponent : exponent;
  }
  if (number.digitCount > Number::mostDigits) {
    // The digits do not fit, but their number without leading zeros still says how large the value is.
    for (const char* digit = whole; digit != digitsEnd && (*digit == '0' || *digit == '.'); ++digit) {
      if (*digit == '0') --number.digitCount;
    }
  }
  number.isWellFormed = true;
  return number;
}

/// The double nearest to a number that was scanned from `begin`; of two that are equally near, the even one (IEEE 754).
/// Zero if the number is too small for a double, std::nullopt if it is too large.
std::optional<double> doubleValue(const Number& number, const char* begin) noexcept;

}  // namespace kelvane::jsonscanner
