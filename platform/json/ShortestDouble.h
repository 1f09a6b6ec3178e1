#pragma once

namespace kelvane {

/// How many bytes `writeShortest` may write: twice the longest text, -2.2250738585072014e-308.
inline constexpr int roomForDouble = 48;

/// Writes the shortest decimal number that reads back to the same double, in the form that std::to_chars has for it: of
/// 0.001 and 1e-03 the shorter one, without an exponent where both are as long. Returns the end of what was written.
///
/// The value is finite, and `to` has room for `roomForDouble` bytes, of which those behind the end hold
/// anything then. Does not allocate; may be called from any thread.
char* writeShortest(double value, char* to) noexcept;

}  // namespace kelvane
