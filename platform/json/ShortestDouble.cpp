// How the digits are found: by the algorithm of Raffaello Giulietti, "The Schubfach way to render doubles" (2021). All
// numbers that read back to a double form an interval around it. For the right power of ten, the interval contains at
// most one multiple of it, or else two neighbouring multiples of the next smaller one: the pigeonholes ("Schubfach") of
// the title. So it takes three multiplications by a power of ten, rounded to 128 bits, and no loop. The products are
// only as exact as necessary: they are "rounded to odd", that is, the lowest bit says whether anything was cut off.
#include "platform/json/ShortestDouble.h"

#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/json/PowersOf10.h"
#include "platform/unicode/Processor.h"

namespace kelvane {

// Without integers of 128 bits, the standard library writes all numbers.
#if defined(KELVANE_INT128)

namespace {

/// log10(2^e) and log10(3/4 * 2^e), rounded down, for each e that a double needs.
constexpr int floorLog10OfPower2(int e) noexcept {
  return (e * 1262611) >> 22;
}
constexpr int floorLog10OfThreeQuarters(int e) noexcept {
  return (e * 1262611 - 524031) >> 22;
}

/// The integer part of number * power / 2^128. Its lowest bit is set if the fraction is more than the error of the
/// power can cause.
std::uint64_t roundedToOdd(Power10 power, std::uint64_t number) noexcept {
  const UInt128 product = upperProduct(power, number);
  const auto behindPoint = static_cast<std::uint64_t>(product);
  return static_cast<std::uint64_t>(product >> 64) | (behindPoint > 1 ? 1U : 0U);
}

/// digits * 10^exponent
struct Decimal {
  std::uint64_t digits;
  int exponent;
};

/// The shortest decimal number in the interval around significand * 2^exponent. If there are two, the nearer one.
Decimal shortest(std::uint64_t significand, int exponent, bool isLowerBoundaryCloser) noexcept {
  const bool isEven = significand % 2 == 0;  // then the ends of the interval belong to it
  const int k = isLowerBoundaryCloser ? floorLog10OfThreeQuarters(exponent) : floorLog10OfPower2(exponent);
  const int shift = exponent + floorLog2OfPower10(-k) + 1;
  const Power10 power = power10(-k);

  // The value and the ends of its interval, each multiplied by four.
  const std::uint64_t middle = roundedToOdd(power, 4 * significand << shift);
  const std::uint64_t lowest =
      roundedToOdd(power, (4 * significand - (isLowerBoundaryCloser ? 1 : 2)) << shift) + (isEven ? 0 : 1);
  const std::uint64_t highest = roundedToOdd(power, (4 * significand + 2) << shift) - (isEven ? 0 : 1);

  const std::uint64_t below = middle / 4;
  const std::uint64_t tenthBelow = below / 10;
  if (tenthBelow > 0) {
    const bool isBelowInside = lowest <= 40 * tenthBelow;
    const bool isAboveInside = 40 * tenthBelow + 40 <= highest;
    if (isBelowInside != isAboveInside) return {tenthBelow + (isAboveInside ? 1 : 0), k + 1};
  }
  const bool isBelowInside = lowest <= 4 * below;
  const bool isAboveInside = 4 * below + 4 <= highest;
  if (isBelowInside != isAboveInside) return {below + (isAboveInside ? 1 : 0), k};
  const std::uint64_t half = 4 * below + 2;
  const bool isNearerAbove = middle > half || (middle == half && below % 2 == 1);
  return {below + (isNearerAbove ? 1 : 0), k};
}

constexpr auto pairsOfDigits = [] {
  std::array<char, 200> pairs{};
  for (std::size_t i = 0; i < 100; ++i) {
    pairs[2 * i] = static_cast<char>('0' + i / 10);
    pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}();

char* writePair(std::uint64_t number, char* to) noexcept {
  std::memcpy(to, pairsOfDigits.data() + 2 * number, 2);
  return to + 2;
}

/// Writes a number's digits so that they end at `end`, and returns their beginning.
char* writeDigitsBefore(char* end, std::uint64_t number) noexcept {
  // Division of 32-bit integers is faster.
  while (number >> 32 != 0) {
    auto lower = static_cast<std::uint32_t>(number % 100000000);
    number /= 100000000;
    for (int pair = 0; pair < 4; ++pair, lower /= 100) writePair(lower % 100, end -= 2);
  }
  auto rest = static_cast<std::uint32_t>(number);
  for (; rest >= 100; rest /= 100) writePair(rest % 100, end -= 2);
  if (rest >= 10) {
    writePair(rest, end -= 2);
  } else {
    *--end = static_cast<char>('0' + rest);
  }
  return end;
}

/// With this many digits every double differs from all others.
constexpr std::size_t mostDigits = 17;

/// Digits are always copied in this many bytes, because a copy of a fixed size is one step. The next output overwrites
/// those that are too many.
constexpr std::size_t copied = 24;

char* writeExponent(int exponent, char* to) noexcept {
  *to++ = 'e';
  *to++ = exponent < 0 ? '-' : '+';
  auto size = static_cast<unsigned>(exponent < 0 ? -exponent : exponent);
  if (size >= 100) {
    *to++ = static_cast<char>('0' + size / 100);
    size %= 100;
  }
  return writePair(size, to);
}

}  // namespace

char* writeShortest(double value, char* to) noexcept {
  constexpr int significandBits = 52;
  constexpr int bias = 1023 + significandBits;
  const auto bits = std::bit_cast<std::uint64_t>(value);
  const std::uint64_t fraction = bits & ((std::uint64_t{1} << significandBits) - 1);
  const auto biased = static_cast<int>(bits >> significandBits & 0x7FF);
  // Large integers are written with all their digits, not only with those that distinguish them. 0 has no digits.
  const bool isLarge = biased >= bias;
  if (isLarge || (biased == 0 && fraction == 0)) return std::to_chars(to, to + roomForDouble, value).ptr;

  const bool isNormal = biased != 0;
  Decimal decimal = shortest(isNormal ? fraction | std::uint64_t{1} << significandBits : fraction,
                             (isNormal ? biased : 1) - bias, isNormal && fraction == 0 && biased > 1);
  while (decimal.digits % 10 == 0) decimal.digits /= 10, ++decimal.exponent;

  char digits[mostDigits + copied] = {};
  char* const end = digits + mostDigits;
  const char* const begin = writeDigitsBefore(end, decimal.digits);
  const auto count = static_cast<int>(end - begin);
  const int pointAt = count + decimal.exponent;  // how many digits stand before the point

  *to = '-';
  if (value < 0) ++to;
  const int lengthWithExponent = count + (count > 1 ? 1 : 0) + (pointAt > -99 ? 4 : 5);
  if (pointAt > 0 && pointAt < count) {
    std::memcpy(to, begin, copied);
    to[pointAt] = '.';
    std::memcpy(to + pointAt + 1, begin + pointAt, copied);
    return to + count + 1;
  }
  if (pointAt >= count && pointAt <= lengthWithExponent) {
    std::memset(to, '0', copied);
    std::memcpy(to, begin, static_cast<std::size_t>(count));
    return to + pointAt;
  }
  if (pointAt <= 0 && 2 - decimal.exponent <= lengthWithExponent) {
    std::memset(to, '0', copied);
    to[1] = '.';
    std::memcpy(to + 2 - pointAt, begin, copied);
    return to + 2 - decimal.exponent;
  }
  std::memcpy(to + 1, begin, copied);
  to[0] = to[1];
  to[1] = '.';
  return writeExponent(pointAt - 1, to + (count > 1 ? count + 1 : 1));
}

#else

char* writeShortest(double value, char* to) noexcept {
  return std::to_chars(to, to + roomForDouble, value).ptr;
}

#endif

}  // namespace kelvane
