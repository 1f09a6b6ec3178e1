#include "platform/json/JSONScanner.h"

#include <array>
#include <bit>
#include <charconv>
#include <system_error>

namespace kelvane::jsonscanner {

// Where there are no integers of 128 bits, the standard library reads all numbers.
#if defined(__SIZEOF_INT128__) && !defined(KELVANE_PORTABLE)

namespace {

__extension__ using UInt128 = unsigned __int128;

/// The powers of five that fit in 63 bits.
constexpr auto powersOfFive = [] {
  std::array<std::uint64_t, 28> powers{};
  powers[0] = 1;
  for (std::size_t i = 1; i < powers.size(); ++i) powers[i] = powers[i - 1] * 5;
  return powers;
}();

constexpr auto largestExactPower = static_cast<std::int64_t>(powersOfFive.size()) - 1;

/// value × 2^exponent where neither the power nor the result is beyond a normal double.
double scaled(double value, int exponent) noexcept {
  return value * std::bit_cast<double>(static_cast<std::uint64_t>(1023 + exponent) << 52);
}

/// digits × 10^exponent rounded once, for digits above 0 and an exponent within ± `largestExactPower`, but not 0.
/// Integers carry the value exactly: 64 bits of the quotient or product, the lowest of them set where anything was left
/// over, round to 53 like the value itself; the scaling by a power of two is exact, since no such value is near a
/// double's limits.
double roundedOnce(std::uint64_t digits, std::int64_t exponent) noexcept {
  const int shift = std::countl_zero(digits);
  const std::uint64_t normalized = digits << shift;
  if (exponent < 0) {
    const std::uint64_t power = powersOfFive[static_cast<std::size_t>(-exponent)];
    const int powerShift = std::countl_zero(power);
    const std::uint64_t divisor = power << powerShift;
    const UInt128 dividend = static_cast<UInt128>(normalized) << 63;
    const auto quotient = static_cast<std::uint64_t>(dividend / divisor);
    const std::uint64_t isInexact = static_cast<UInt128>(quotient) * divisor != dividend ? 1 : 0;
    return scaled(static_cast<double>(quotient | isInexact), static_cast<int>(exponent) + powerShift - shift - 63);
  }
  const UInt128 product = static_cast<UInt128>(normalized) * powersOfFive[static_cast<std::size_t>(exponent)];
  const int up = std::countl_zero(static_cast<std::uint64_t>(product >> 64));
  const UInt128 shifted = product << up;
  const std::uint64_t isInexact = static_cast<std::uint64_t>(shifted) != 0 ? 1 : 0;
  return scaled(static_cast<double>(static_cast<std::uint64_t>(shifted >> 64) | isInexact),
                static_cast<int>(exponent) - shift - up + 64);
}

/// For digits above 0 and an exponent that is not 0.
std::optional<double> quickly(const Number& number) noexcept {
  if (number.exponent < -largestExactPower || number.exponent > largestExactPower) return std::nullopt;
  return roundedOnce(number.digits, number.exponent);
}

}  // namespace

#else

namespace {

std::optional<double> quickly(const Number&) noexcept {
  return std::nullopt;
}

}  // namespace

#endif

std::optional<double> doubleValue(const Number& number, const char* begin) noexcept {
  const auto signedValue = [&number](double value) { return number.isNegative ? -value : value; };
  if (number.digitCount <= Number::mostDigits) {
    if (number.exponent == 0 || number.digits == 0) return signedValue(static_cast<double>(number.digits));
    if (const auto value = quickly(number)) return signedValue(*value);
  }
  double value = 0;
  if (std::from_chars(begin, number.end, value).ec == std::errc()) return value;
  // Out of range at one end or the other, which from_chars does not tell.
  if (number.exponent + static_cast<std::int64_t>(number.digitCount) > 0) return std::nullopt;
  return signedValue(0);
}

}  // namespace kelvane::jsonscanner
