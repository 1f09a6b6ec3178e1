#pragma once

#include <algorithm>
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

/// The same as `skippingSpace`, where there is some. Most of it is one space, or a line break and an indentation.
inline const char* skippingSomeSpace(const char* at, const char* end) noexcept {
  const auto isSpace = [](char byte) { return byte == ' ' || byte == '\n' || byte == '\r' || byte == '\t'; };
  if (!isSpace(*at)) return at;
  ++at;
#if defined(KELVANE_SSE2)
  while (end - at >= 16) {
    if (static_cast<unsigned char>(*at) > ' ') return at;
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

/// An escape \uXXXX, or two that form a pair of surrogates.
struct UnicodeEscape {
  std::size_t length;  ///< Of the escape; 0 if JSON has no such escape, or if it was not allowed.
  char32_t scalar;
};

/// The escape at the backslash `at`, other than those in `shortEscapes`.
template <class AllowsLone>
UnicodeEscape unicodeEscape(const char* at, const char* end, AllowsLone allowsLone) {
  const auto unit = escapedUnit(at, end);
  if (!unit) return {0, 0};
  if (*unit < 0xD800 || *unit >= 0xE000) return {6, *unit};
  const auto low = *unit < 0xDC00 ? escapedUnit(at + 6, end) : std::nullopt;
  if (low && *low >= 0xDC00 && *low < 0xE000) return {12, 0x10000 + ((*unit - 0xD800) << 10) + (*low - 0xDC00)};
  return allowsLone(at) ? UnicodeEscape{6, unicode::replacementCharacter} : UnicodeEscape{0, 0};
}

/// How much room `unescaped` needs beyond as many bytes as the string has: no escape becomes longer.
inline constexpr std::size_t unescapedSlack = 16;

/// Copies the string [at, close), whose quotes are around it, to `out`, replaces its escapes, and judges it: UTF-8, no
/// control characters, no other escapes than those of JSON. `end` is the end of the whole text. All of the room at
/// `out` may be written to.
///
/// For half of a surrogate pair, `allowsLone` is called with a pointer to its escape. If it returns true, U+FFFD is
/// written; if false, the escape is refused.
template <class AllowsLone>
Unescaped unescaped(const char* at, const char* close, const char* end, char* out, AllowsLone allowsLone) {
  constexpr Unescaped refused{nullptr, false};
  bool isASCII = true;
  const auto replace = [&](const char* escape) -> std::ptrdiff_t {
    if (const char meant = shortEscapes[static_cast<unsigned char>(escape[1])]) {
      *out++ = meant;
      return 2;
    }
    const UnicodeEscape found = unicodeEscape(escape, close, allowsLone);
    if (found.length == 0) return 0;
    isASCII = isASCII && found.scalar < 0x80;
    out = unicode::encode(found.scalar, out);
    return static_cast<std::ptrdiff_t>(found.length);
  };
#if defined(KELVANE_SSE2)
  // The string is read 16 bytes after 16, wherever its escapes are. So the processor can look for the next ones while
  // it still copies what is before them. Beginning again behind each escape takes a fifth longer.
  Escaping escaping;
  UTF8Judge judge;
  char padded[1 + 3 * 16];
  std::ptrdiff_t begin = 0;  // of what is to be copied, from `at`
  for (; at <= close; at += 16) {
    const char* from = at;
    if (end - at < 32) [[unlikely]] {
      // What is copied may reach 16 bytes beyond those that are looked at.
      std::memset(padded, 0, sizeof padded);
      std::memcpy(padded, at - 1, static_cast<std::size_t>(end - at + 1));
      from = padded + 1;
    }
    const auto copyTo = [&](std::ptrdiff_t stop) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                       _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + begin)));
      out += stop - begin;
    };
    const std::ptrdiff_t size = std::min<std::ptrdiff_t>(close - at, 16);
    const unsigned inside = (1U << size) - 1;
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    const unsigned controls = bits(_mm_cmpeq_epi8(_mm_min_epu8(bytes, all(0x1F)), bytes));
    const unsigned slashes = bits(_mm_cmpeq_epi8(bytes, all('\\')));
    if ((controls & inside) != 0 || !judge.accepts(from, inside)) return refused;
    unsigned escapes = slashes & ~escaping.escaped(slashes) & inside;
    for (; escapes != 0; escapes &= escapes - 1) {
      const std::ptrdiff_t escape = std::countr_zero(escapes);
      if (escape < begin) continue;  // the second of a pair
      copyTo(escape);
      const std::ptrdiff_t length = replace(at + escape);
      if (length == 0) return refused;
      begin = escape + length;
    }
    if (begin < size) {
      copyTo(size);
      begin = size;
    }
    begin -= 16;
    if (begin < 0) begin = 0;
  }
  return {out, isASCII && judge.isASCII()};
#else
  const char* copied = at;
  const auto copyTo = [&](const char* stop) {
    std::memcpy(out, copied, static_cast<std::size_t>(stop - copied));
    out += stop - copied;
  };
  while (true) {
    at = skippingPlain(at, close);
    if (at != close && static_cast<signed char>(*at) < 0) {
      const auto decoded = unicode::decodedAt({at, static_cast<std::size_t>(close - at)}, 0);
      if (!decoded.wellFormed) return refused;
      isASCII = false;
      at += decoded.size;
      continue;
    }
    copyTo(at);
    if (at == close) return {out, isASCII};
    const std::ptrdiff_t length = *at == '\\' ? replace(at) : 0;
    if (length == 0) return refused;
    copied = at += length;
  }
#endif
}

/// What a scan finds of a number: ± digits × 10^exponent.
struct Number {
  static constexpr std::size_t mostDigits = 19;  ///< As many digits fit in 64 bits whatever they are.

  const char* end;    ///< Its end. If the number is not well-formed: where reading failed.
  bool isWellFormed;  ///< Up to `end`; whether the next byte is permitted there is the caller's question.
  bool isNegative;
  std::size_t digitCount;  ///< Without leading zeros if there are more than `mostDigits`.
  std::uint64_t digits;    ///< All digits as one integer. Valid only if `digitCount` is at most `mostDigits`.
  std::int64_t exponent;   ///< The power of ten for that integer; limited to about ± 2^44.
};

/// Appends the decimal digits at `at` to `value`, up to eight in one step. What does not fit in 64 bits is lost.
/// Returns their end.
inline const char* takeDigits(const char* at, const char* end, std::uint64_t& value) noexcept {
  if constexpr (hasLittleEndianWords) {
    while (end - at >= 8) {
      std::uint64_t word;
      std::memcpy(&word, at, 8);
      // The high half of a digit is 3, and stays so when 6 is added to the low one. What a larger byte carries over
      // only reaches those behind it.
      constexpr std::uint64_t highHalves = 0xF0F0F0F0F0F0F0F0;
      constexpr std::uint64_t threes = 0x3030303030303030;
      const std::uint64_t others =
          ((word & highHalves) ^ threes) | (((word + 0x0606060606060606) & highHalves) ^ threes);
      // The first byte is the lowest one: moved up, the digits have zeros in front.
      const auto count = static_cast<unsigned>(std::countr_zero(others)) / 8;
      if (count < 8) {
        if (count == 0) return at;
        word <<= 64 - 8 * count;
      }
      word &= 0x0F0F0F0F0F0F0F0F;
      // Neighbouring digits become pairs, pairs fours, fours eight.
      word = word * 2561 >> 8;
      word = (word & 0x00FF00FF00FF00FF) * 6553601 >> 16;
      word = (word & 0x0000FFFF0000FFFF) * 42949672960001 >> 32;
      if (count < 8) {
        static constexpr std::uint64_t powers[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000};
        value = value * powers[count] + word;
        return at + count;
      }
      value = value * 100000000 + word;
      at += 8;
    }
  }
  for (; at != end && *at >= '0' && *at <= '9'; ++at) value = value * 10 + static_cast<std::uint64_t>(*at - '0');
  return at;
}

inline bool isDigitAt(const char* at, const char* end) noexcept {
  return at != end && *at >= '0' && *at <= '9';
}

/// Completes a number whose digits before the point start at `whole`: the fraction and the exponent.
void scanRestOfNumber(Number& number, const char* whole, const char* end) noexcept;

/// Scans a number (RFC 8259, section 6). Most are short integers.
inline void scanNumber(const char* at, const char* end, Number& number) noexcept {
  number.isNegative = at != end && *at == '-';
  if (number.isNegative) ++at;
  number.end = at;
  number.isWellFormed = isDigitAt(at, end);
  if (!number.isWellFormed) return;
  auto digits = static_cast<std::uint64_t>(*at - '0');
  const char* wholeEnd = at + 1;
  if (digits != 0) {
    for (; isDigitAt(wholeEnd, end); ++wholeEnd) {
      digits = digits * 10 + static_cast<std::uint64_t>(*wholeEnd - '0');
    }
  }
  number.end = wholeEnd;
  number.digitCount = static_cast<std::size_t>(wholeEnd - at);
  number.digits = digits;
  number.exponent = 0;
  const char next = wholeEnd == end ? ' ' : *wholeEnd;
  if (next == '.' || next == 'e' || next == 'E' || number.digitCount > Number::mostDigits) {
    scanRestOfNumber(number, at, end);
  }
}

/// The same as `doubleValue`, for any number.
double roundedDouble(const Number& number, const char* begin) noexcept;

/// The double nearest to a number that was scanned from `begin`; of two that are equally near, the even one (IEEE 754).
/// Zero if the number is too small for a double, an infinity if it is too large.
inline double doubleValue(const Number& number, const char* begin) noexcept {
  if (number.exponent != 0 || number.digitCount > Number::mostDigits) return roundedDouble(number, begin);
  const auto value = static_cast<double>(number.digits);
  return number.isNegative ? -value : value;
}

}  // namespace kelvane::jsonscanner
