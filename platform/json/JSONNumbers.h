#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/unicode/Processor.h"

/// The numbers of a JSON document: where one ends, and which double it is.
///
///     Number number;
///     scanNumber(at, end, number);
///     if (number.isWellFormed) … doubleValue(number, at) …
///
/// Every function reads [at, end) and no byte outside it, in time linear in the number. None allocates or throws, and
/// all may be called from several threads at once.
namespace kelvane::jsonscanner {

/// What a scan finds of a number: ± digits × 10^exponent. If the number is not well-formed, only `end` and
/// `isWellFormed` mean anything.
struct Number {
  static constexpr std::size_t mostDigits = 19;  ///< As many digits fit in 64 bits whatever they are.

  const char* end;    ///< The end of the number. If it is not well-formed: where reading failed.
  bool isWellFormed;  ///< Up to `end`; whether the next byte is permitted there is the caller's question.
  bool isNegative;
  std::size_t digitCount;  ///< Without leading zeros if there are more than `mostDigits`.
  std::uint64_t digits;    ///< All digits as one integer. Valid only if `digitCount` is at most `mostDigits`.
  std::int64_t exponent;   ///< The power of ten for that integer; limited to about ± 2^44.
};

/// Whether there is a decimal digit at `at`, which may be `end`.
inline bool isDigitAt(const char* at, const char* end) noexcept {
  return at != end && *at >= '0' && *at <= '9';
}

/// A word that is 0 if the eight bytes of `word`, which was loaded from a document, are decimal digits. If not, its
/// lowest byte that is not 0 is where the first other byte is.
inline std::uint64_t otherThanDigits(std::uint64_t word) noexcept {
  // The high half of a digit is 3, and stays so when 6 is added to the low one. What a larger byte carries over only
  // reaches those behind it.
  constexpr std::uint64_t highHalves = 0xF0F0F0F0F0F0F0F0;
  constexpr std::uint64_t threes = 0x3030303030303030;
  return ((word & highHalves) ^ threes) | (((word + 0x0606060606060606) & highHalves) ^ threes);
}

/// The number that eight digits form, the first of which is the lowest byte of the word.
inline std::uint64_t eightDigits(std::uint64_t word) noexcept {
  // Neighbouring digits become pairs, pairs fours, fours eight.
  word = (word & 0x0F0F0F0F0F0F0F0F) * 2561 >> 8;
  word = (word & 0x00FF00FF00FF00FF) * 6553601 >> 16;
  return (word & 0x0000FFFF0000FFFF) * 42949672960001 >> 32;
}

/// Completes a number that `scanNumber` read up to its point, its exponent, or its end: what is left of it, and the
/// count of its digits where they are many. The digits before the point start at `whole`.
void scanRestOfNumber(Number& number, const char* whole, const char* end) noexcept;

/// Scans a number (RFC 8259, section 6). Most are integers of about as many digits as the number before. So eight
/// digits are read in one step, and then one after another: how many steps there are is foreseen by the processor,
/// while a count of the digits in a word would have to be waited for.
///
/// The result is written where the caller has it. A result that is returned would be stored in pieces and loaded as a
/// whole at once, for which processors wait: canada.json takes nearly twice as long then.
inline void scanNumber(const char* at, const char* end, Number& number) noexcept {
  number.isNegative = at != end && *at == '-';
  if (number.isNegative) ++at;
  number.end = at;
  number.isWellFormed = isDigitAt(at, end);
  if (!number.isWellFormed) return;
  std::uint64_t digits = 0;
  const char* wholeEnd = at + 1;
  if (*at != '0') {
    wholeEnd = at;
    if constexpr (hasLittleEndianWords) {
      for (std::uint64_t word; end - wholeEnd >= 8; wholeEnd += 8) {
        std::memcpy(&word, wholeEnd, 8);
        if (otherThanDigits(word) != 0) break;
        digits = digits * 100000000 + eightDigits(word);
      }
    }
    for (; isDigitAt(wholeEnd, end); ++wholeEnd) digits = digits * 10 + static_cast<std::uint64_t>(*wholeEnd - '0');
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

/// The same as `doubleValue`, for any number. Takes time linear in the digits.
double roundedDouble(const Number& number, const char* begin) noexcept;

/// The double nearest to a well-formed number that was scanned from `begin`; of two that are equally near, the even one
/// (IEEE 754), whatever the number of digits. Zero if the number is too small for a double, an infinity if it is too
/// large; both have its sign.
inline double doubleValue(const Number& number, const char* begin) noexcept {
  if (number.exponent != 0 || number.digitCount > Number::mostDigits) return roundedDouble(number, begin);
  const auto value = static_cast<double>(number.digits);
  return number.isNegative ? -value : value;
}

}  // namespace kelvane::jsonscanner
