#pragma once

namespace kelvane {

/// The room that `writeShortest` needs, in bytes. The longest result, -2.2250738585072014e-308, has half as many.
inline constexpr int roomForDouble = 48;

/// Writes the shortest decimal number that reads back to the same double, and returns its end. The bytes are those of
/// std::to_chars: with or without an exponent, whichever is shorter, and without one if both have the same length.
///
/// The value must be finite, and `to` must have room for `roomForDouble` bytes. Those after the end may be overwritten.
/// Takes constant time, allocates nothing and never fails. May be called from several threads at once.
char* writeShortest(double value, char* to) noexcept;

}  // namespace kelvane
