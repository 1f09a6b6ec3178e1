#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/unicode/Processor.h"

// What reading and writing doubles have in common. Both multiply by a power of ten that is rounded to 128 bits. Where
// there are no integers of that size, the standard library does all of it, and nothing here exists.
#if defined(__SIZEOF_INT128__) && !defined(KELVANE_PORTABLE)
#define KELVANE_INT128

namespace kelvane {

__extension__ using UInt128 = unsigned __int128;

/// The upper 128 bits of a power of ten, rounded up if it has more. The highest bit is set: which power of two they are
/// to be multiplied by, `floorLog2OfPower10` says.
struct Power10 {
  std::uint64_t high = 0;
  std::uint64_t low = 0;
};

/// The least and the greatest exponent that have a power here: those that writing the least and the greatest double
/// needs.
inline constexpr int leastPower10 = -292;
inline constexpr int greatestPower10 = 324;

/// Computed when the program is compiled. For `power10`.
extern const std::array<Power10, greatestPower10 - leastPower10 + 1> powersOf10;

/// The upper bits of 10^exponent, which must be within the two limits. The powers from 10^0 to 10^55 are exact, those
/// up to 10^27 have no bit in `low`; no other is exact.
inline Power10 power10(int exponent) noexcept {
  return powersOf10[static_cast<std::size_t>(exponent - leastPower10)];
}

/// log2(10^exponent), rounded down, for each exponent that a double needs.
constexpr int floorLog2OfPower10(int exponent) noexcept {
  return (exponent * 1741647) >> 19;
}

/// The integer part of number * power / 2^64: the upper 128 bits of a product of 192. Never overflows. If the power was
/// rounded up, the product is too large by less than 1.
inline UInt128 upperProduct(Power10 power, std::uint64_t number) noexcept {
  const UInt128 lower = static_cast<UInt128>(power.low) * number;
  return static_cast<UInt128>(power.high) * number + (lower >> 64);
}

}  // namespace kelvane
#endif
