#include "platform/json/JSONNumbers.h"

#include <bit>
#include <charconv>
#include <cstring>
#include <iterator>
#include <limits>
#include <system_error>

#include "platform/json/PowersOf10.h"
#include "platform/unicode/Processor.h"

// How digits × 10^exponent becomes the nearest double. There are three ways, from the quickest to the slowest:
//
// 1. Up to 2^53, digits are a double, and so is a power of ten up to 10^22. Multiplying or dividing them rounds once.
// 2. The digits are multiplied by the upper 128 bits of the power of ten. What was rounded off the power changes the
//    product so little that nearly always its upper 64 bits are known, and that something follows them. Rounding those
//    to 53 bits rounds the whole. The idea is Michael Eisel's and Daniel Lemire's ("Number parsing at a gigabyte per
//    second", 2021).
// 3. The standard library reads the number, and the way does not matter.
namespace kelvane::jsonscanner {
namespace {

/// Appends the decimal digits at `at` to `value`, up to eight in one step, and returns their end. What does not fit in
/// 64 bits is lost. How many digits there are is counted: fractions have so many and so various numbers of them that
/// the processor foresees it badly.
const char* takeDigits(const char* at, const char* end, std::uint64_t& value) noexcept {
  if constexpr (hasLittleEndianWords) {
    while (end - at >= 8) {
      std::uint64_t word;
      std::memcpy(&word, at, 8);
      const auto count = static_cast<unsigned>(std::countr_zero(otherThanDigits(word))) / 8;
      if (count == 0) return at;
      if (count < 8) {
        constexpr static std::uint64_t powers[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000};
        // The first byte is the lowest one: moved up, the digits have zeros in front.
        value = value * powers[count] + eightDigits(word << (64 - 8 * count));
        return at + count;
      }
      value = value * 100000000 + eightDigits(word);
      at += 8;
    }
  }
  for (; isDigitAt(at, end); ++at) value = value * 10 + static_cast<std::uint64_t>(*at - '0');
  return at;
}

}  // namespace
void scanRestOfNumber(Number& number, const char* whole, const char* end) noexcept {
  constexpr std::int64_t exponentBound = std::int64_t{1} << 40;
  number.isWellFormed = false;
  const char*& at = number.end;
  if (at != end && *at == '.') {
    const char* const fraction = ++at;
    if (!isDigitAt(at, end)) return;
    at = takeDigits(at, end, number.digits);
    number.digitCount += static_cast<std::size_t>(at - fraction);
    number.exponent = fraction - at;
  }
  const char* const digitsEnd = at;
  if (at != end && (*at == 'e' || *at == 'E')) {
    ++at;
    const bool down = at != end && *at == '-';
    if (at != end && (*at == '-' || *at == '+')) ++at;
    if (!isDigitAt(at, end)) return;
    std::int64_t exponent = 0;
    for (; isDigitAt(at, end); ++at) {
      if (exponent < exponentBound) exponent = exponent * 10 + (*at - '0');
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
}

namespace {

constexpr std::int64_t greatestExactPower = 22;
constexpr double exactPowersOf10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                      1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
static_assert(std::size(exactPowersOf10) == greatestExactPower + 1);

#if defined(KELVANE_INT128)

/// The second way, for digits above 0. The result is 0 where it is not known in this way.
double multiplied(std::uint64_t digits, std::int64_t exponent) noexcept {
  if (exponent < leastPower10 || exponent > greatestPower10) return 0;
  const auto power = static_cast<int>(exponent);
  const int shift = std::countl_zero(digits);
  const UInt128 product = upperProduct(power10(power), digits << shift);
  // A power that was rounded up is too large by less than one in its lowest bit, so the product is too large by less
  // than one in its lowest bit, too. Only where its lower half is 0 does that reach the upper half. Elsewhere something
  // follows the upper half, which counts as its lowest bit: far below the 53 that are kept, it only says that the rest
  // is not 0.
  const auto upper = static_cast<std::uint64_t>(product >> 64);
  const auto lower = static_cast<std::uint64_t>(product);
  const bool isExact = power >= 0 && power <= 27;
  if (!isExact && lower == 0) return 0;
  // Of 63 bits, since the processor converts no more at once.
  const std::uint64_t down = upper >> 63;
  const std::uint64_t rest = (upper & down) | (lower != 0 ? 1 : 0);
  const auto significand = static_cast<double>(static_cast<std::int64_t>(upper >> down | rest));

  // The scaling adds to the exponent in the double's bits, where the result is a normal number.
  const auto bits = std::bit_cast<std::uint64_t>(significand);
  const int scale = floorLog2OfPower10(power) + 1 - shift + static_cast<int>(down);
  const int scaled = static_cast<int>(bits >> 52) + scale;
  if (scaled < 1 || scaled > 2046) return 0;
  return std::bit_cast<double>((bits & ((std::uint64_t{1} << 52) - 1)) | static_cast<std::uint64_t>(scaled) << 52);
}

#else

double multiplied(std::uint64_t, std::int64_t) noexcept {
  return 0;
}

#endif

}  // namespace

double roundedDouble(const Number& number, const char* begin) noexcept {
  const auto signedValue = [&number](double value) { return number.isNegative ? -value : value; };
  if (number.digitCount <= Number::mostDigits) {
    constexpr std::uint64_t greatestExactDigits = std::uint64_t{1} << 53;
    if (number.digits == 0) return signedValue(0);
    if (number.digits <= greatestExactDigits) {
      const auto digits = static_cast<double>(number.digits);
      if (number.exponent < 0 && number.exponent >= -greatestExactPower) {
        return signedValue(digits / exactPowersOf10[-number.exponent]);
      }
      if (number.exponent >= 0 && number.exponent <= greatestExactPower) {
        return signedValue(digits * exactPowersOf10[number.exponent]);
      }
    }
    if (const double value = multiplied(number.digits, number.exponent); value != 0) return signedValue(value);
  }
  double value = 0;
  if (std::from_chars(begin, number.end, value).ec == std::errc()) return value;
  // Out of range at one end or the other, which from_chars does not tell.
  const bool isLarge = number.exponent + static_cast<std::int64_t>(number.digitCount) > 0;
  return signedValue(isLarge ? std::numeric_limits<double>::infinity() : 0);
}

}  // namespace kelvane::jsonscanner
