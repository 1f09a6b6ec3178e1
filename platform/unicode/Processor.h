#pragma once

#include <bit>

// KELVANE_PORTABLE leaves out every quicker way that only some processors or systems have, wherever there is a slower
// one that all have. What is left is what other machines run, so that it can be tried on this one.
#if defined(__SSE2__) && !defined(KELVANE_PORTABLE)
#define KELVANE_SSE2
#include <emmintrin.h>
#endif

namespace kelvane {

/// Whether code may be written for words whose lowest byte comes first.
#if defined(KELVANE_PORTABLE)
inline constexpr bool hasLittleEndianWords = false;
#else
inline constexpr bool hasLittleEndianWords = std::endian::native == std::endian::little;
#endif

}  // namespace kelvane
