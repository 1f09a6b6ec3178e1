#pragma once

#include <bit>

// KELVANE_PORTABLE leaves out every fast path that only some processors or systems have. What remains is what all other
// machines run, so that it can be tested on this one.
#if defined(__SSE2__) && !defined(KELVANE_PORTABLE)
#define KELVANE_SSE2
#include <emmintrin.h>
#endif

namespace kelvane {

/// Whether a number of eight bytes that is loaded from a text has the first byte as its lowest. Code that relies on it
/// has a portable alternative beside it.
#if defined(KELVANE_PORTABLE)
inline constexpr bool hasLittleEndianWords = false;
#else
inline constexpr bool hasLittleEndianWords = std::endian::native == std::endian::little;
#endif

}  // namespace kelvane
