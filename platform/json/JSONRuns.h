#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/unicode/Processor.h"
#include "platform/unicode/UTF8.h"

/// Runs of bytes in JSON strings that need no treatment: what a reader skips and what a writer copies. They are found
/// 16 bytes at a time with SSE2, otherwise 8 or one at a time.
///
/// Every function reads [at, end) and no byte outside it, in time linear in the run. None allocates or throws.
namespace kelvane::jsonscanner {

/// The end of the run of plain bytes at `at`: ASCII without quotes, backslashes and control characters (below U+0020).
inline const char* skippingPlain(const char* at, const char* end) noexcept {
#if defined(KELVANE_SSE2)
  while (end - at >= 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    // As signed numbers, control characters and all bytes that are not ASCII are less than a space.
    const __m128i special = _mm_or_si128(
        _mm_cmplt_epi8(bytes, _mm_set1_epi8(' ')),
        _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\'))));
    const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(special));
    if (mask != 0) return at + std::countr_zero(mask);
    at += 16;
  }
#else
  constexpr std::uint64_t ones = 0x0101010101010101;
  constexpr std::uint64_t highs = 0x8080808080808080;
  while (end - at >= 8) {
    std::uint64_t word;
    std::memcpy(&word, at, 8);
    const auto holds = [&](std::uint64_t byte) {
      const std::uint64_t zeros = word ^ (ones * byte);
      return (zeros - ones) & ~zeros;
    };
    if (((word | holds('"') | holds('\\') | ((word - ones * ' ') & ~word)) & highs) != 0) break;
    at += 8;
  }
#endif
  while (at != end && static_cast<signed char>(*at) >= ' ' && *at != '"' && *at != '\\') ++at;
  return at;
}

#if defined(KELVANE_SSE2)
/// One bit per byte, the lowest for the first: set for those that must be escaped.
inline unsigned escapedBytes(__m128i bytes) noexcept {
  const __m128i control = _mm_cmpeq_epi8(_mm_min_epu8(bytes, _mm_set1_epi8(0x1F)), bytes);
  const __m128i special = _mm_or_si128(
      control, _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\'))));
  return static_cast<unsigned>(_mm_movemask_epi8(special));
}
#endif

/// Whether a byte must be escaped in a string: a quote, a backslash or a control character.
inline bool isEscaped(char byte) noexcept {
  return static_cast<unsigned char>(byte) < 0x20 || byte == '"' || byte == '\\';
}

/// Copies the run of bytes at `at` that need no escape to `to`, and returns its length. Bytes that are not ASCII need
/// none. `to` has room for all of [at, end); bytes of that room after the run may be overwritten, but none outside it.
inline std::size_t copyUnescaped(const char* at, const char* end, char* to) noexcept {
  const char* const begin = at;
#if defined(KELVANE_SSE2)
  for (; end - at >= 16; at += 16, to += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes);
    const unsigned mask = escapedBytes(bytes);
    if (mask != 0) return static_cast<std::size_t>(at - begin) + static_cast<std::size_t>(std::countr_zero(mask));
  }
  if (end - at >= 8) {
    const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(at));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), bytes);
    const unsigned mask = escapedBytes(bytes) & 0xFF;
    if (mask != 0) return static_cast<std::size_t>(at - begin) + static_cast<std::size_t>(std::countr_zero(mask));
    at += 8;
    to += 8;
  }
#endif
  for (; at != end && !isEscaped(*at); ++at) *to++ = *at;
  return static_cast<std::size_t>(at - begin);
}

#if defined(KELVANE_SSE2)

/// One bit for each of 16 bytes, the lowest for the first.
inline unsigned bits(__m128i bytes) noexcept {
  return static_cast<unsigned>(_mm_movemask_epi8(bytes));
}

inline __m128i all(int byte) noexcept {
  return _mm_set1_epi8(static_cast<char>(byte));
}

/// Tells which bytes of a string a backslash escapes, 16 bytes after 16.
class Escaping {
 public:
  /// The escaped ones of 16 bytes, whose backslashes are `slashes`.
  unsigned escaped(unsigned slashes) noexcept {
    if ((slashes | isFirstEscaped_) == 0) return 0;
    // In a series of backslashes every second one is escaped, and so is the byte after a series of odd length. Adding
    // its lowest bit to a series moves that bit to the end of the series. Done only where a series starts at an odd
    // bit, this tells whether the even or the odd bits after its start are the escaped ones.
    constexpr unsigned evenBits = 0x5555;
    slashes &= ~isFirstEscaped_;
    const unsigned afterSlash = slashes << 1 | isFirstEscaped_;
    const unsigned moved = (slashes & ~evenBits & ~afterSlash) + slashes;
    isFirstEscaped_ = moved >> 16;
    return (evenBits ^ moved << 1) & afterSlash & 0xFFFF;
  }

  /// Whether the byte after the last 16 is escaped.
  bool isNextEscaped() const noexcept { return isFirstEscaped_ != 0; }

 private:
  unsigned isFirstEscaped_ = 0;
};

/// Judges a string as UTF-8, 16 bytes after 16: by one bit for each byte, where continuation bytes are and where the
/// leads before them call for some. So prose takes the same time in every script.
class UTF8Judge {
 public:
  /// Judges 16 bytes and what those before them call for. The `inside` bits are the bytes of the string; the one after
  /// the last of them is its closing quote. The byte before `at` must be readable. False if they are not well-formed.
  bool accepts(const char* at, unsigned inside) noexcept {
    const auto isAtLeast = [](__m128i bytes, __m128i least) {
      return _mm_cmpeq_epi8(_mm_max_epu8(bytes, least), bytes);
    };
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    const unsigned high = bits(bytes) & inside;
    if ((high | due_) == 0) return true;
    isASCII_ = false;
    const unsigned continuations = bits(_mm_cmplt_epi8(bytes, all(0xC0)));
    const unsigned leadsOfThree = bits(isAtLeast(bytes, all(0xE0))) & inside;
    const unsigned leadsOfFour = bits(isAtLeast(bytes, all(0xF0))) & inside;
    // C0 and C1 begin nothing but overlong sequences, F5 and above nothing at all.
    __m128i isWrong =
        _mm_or_si128(_mm_cmpeq_epi8(_mm_and_si128(bytes, all(0xFE)), all(0xC0)), isAtLeast(bytes, all(0xF5)));
    if ((leadsOfThree | due_) != 0) {
      // After four leads not every continuation byte may follow: others would be overlong, surrogates, or too large.
      const __m128i leads = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at - 1));  // the byte before each
      const auto isAfter = [leads](int lead, __m128i isBad) {
        return _mm_and_si128(_mm_cmpeq_epi8(leads, all(lead)), isBad);
      };
      isWrong = _mm_or_si128(isWrong, _mm_or_si128(isAfter(0xE0, _mm_cmplt_epi8(bytes, all(0xA0))),
                                                   isAfter(0xED, _mm_cmpgt_epi8(bytes, all(0x9F)))));
      isWrong = _mm_or_si128(isWrong, _mm_or_si128(isAfter(0xF0, _mm_cmplt_epi8(bytes, all(0x90))),
                                                   isAfter(0xF4, _mm_cmpgt_epi8(bytes, all(0x8F)))));
    }
    const unsigned due = due_ | (high & ~continuations) << 1 | leadsOfThree << 2 | leadsOfFour << 3;
    due_ = due >> 16;
    // The closing quote is judged as well: a sequence must not reach it.
    const unsigned judged = (inside << 1 | 1) & 0xFFFF;
    return (((due ^ continuations) & judged) | (bits(isWrong) & inside)) == 0;
  }

  /// Whether all bytes so far were ASCII.
  bool isASCII() const noexcept { return isASCII_; }

 private:
  bool isASCII_ = true;
  unsigned due_ = 0;  // one bit for each continuation byte that the bytes so far call for
};

#endif

/// The first quote in [at, end) that no backslash escapes, or nullptr. `at` is not after such a backslash itself.
inline const char* closingQuote(const char* at, const char* end) noexcept {
#if defined(KELVANE_SSE2)
  Escaping escaping;
  for (; end - at >= 16; at += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    const unsigned escaped = escaping.escaped(bits(_mm_cmpeq_epi8(bytes, all('\\'))));
    const unsigned quotes = bits(_mm_cmpeq_epi8(bytes, all('"'))) & ~escaped;
    if (quotes != 0) return at + std::countr_zero(quotes);
  }
  if (escaping.isNextEscaped() && at != end) ++at;
#endif
  for (; at != end && *at != '"'; ++at) {
    if (*at == '\\' && ++at == end) break;
  }
  return at == end ? nullptr : at;
}

}  // namespace kelvane::jsonscanner
