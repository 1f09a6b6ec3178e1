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

/// The first quote in [at, end) that no backslash escapes, or nullptr. `at` is not after such a backslash itself.
inline const char* closingQuote(const char* at, const char* end) noexcept {
#if defined(KELVANE_SSE2)
  unsigned isFirstEscaped = 0;  // 1 if a backslash that ends the block before escapes the first byte
  for (; end - at >= 16; at += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    auto quotes = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"'))));
    auto slashes = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\'))));
    if ((slashes | isFirstEscaped) != 0) {
      // In a series of backslashes every second one is escaped, and so is the byte after a series of odd length. Adding
      // its lowest bit to a series moves that bit to the end of the series. Done only where a series starts at an odd
      // bit, this tells whether the even or the odd bits after its start are the escaped ones.
      constexpr unsigned evenBits = 0x5555;
      slashes &= ~isFirstEscaped;
      const unsigned afterSlash = slashes << 1 | isFirstEscaped;
      const unsigned moved = (slashes & ~evenBits & ~afterSlash) + slashes;
      quotes &= ~((evenBits ^ moved << 1) & afterSlash);
      isFirstEscaped = moved >> 16;
    }
    if (quotes != 0) return at + std::countr_zero(quotes);
  }
  if (isFirstEscaped != 0 && at != end) ++at;
#endif
  for (; at != end && *at != '"'; ++at) {
    if (*at == '\\' && ++at == end) break;
  }
  return at == end ? nullptr : at;
}

/// What `copyToEscape` copied.
struct Copied {
  const char* end;  ///< The backslash or quote that follows.
  bool isASCII;
  bool isWellFormed;  ///< It is UTF-8 without control characters. If not, `end` means nothing.
};

/// How many bytes beyond those that `copyToEscape` copies it may write.
inline constexpr std::size_t copySlack = 16;

/// Copies the part of a string before its first backslash or quote to `to`, and judges it at the same time. `at` is
/// within the string, after its opening quote; there is a closing quote before `end`. `to` has room for all that is
/// before that quote, and for `copySlack` bytes.
///
/// With SSE2, UTF-8 is judged 16 bytes at a time, by one bit for each byte: where continuation bytes are, and where the
/// leads before them call for some. So prose takes the same time in every script.
inline Copied copyToEscape(const char* at, const char* end, char* to) noexcept {
  bool isASCII = true;
#if defined(KELVANE_SSE2)
  const auto bits = [](__m128i bytes) { return static_cast<unsigned>(_mm_movemask_epi8(bytes)); };
  const auto all = [](int byte) { return _mm_set1_epi8(static_cast<char>(byte)); };
  const auto load = [](const char* from) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from)); };
  const auto isAtLeast = [](__m128i bytes, __m128i least) { return _mm_cmpeq_epi8(_mm_max_epu8(bytes, least), bytes); };
  char padded[1 + 2 * 16];
  const char* from = at;  // `at`, or a copy of it where the text ends within 16 bytes
  unsigned due = 0;       // continuation bytes that the block before calls for, at the beginning of this one
  for (;; at += 16, from = at, to += 16) {
    if (end - at < 16) [[unlikely]] {
      std::memset(padded, 0, sizeof padded);
      std::memcpy(padded, at - 1, static_cast<std::size_t>(end - at + 1));
      from = padded + 1;
    }
    const __m128i bytes = load(from);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes);
    const unsigned stops = escapedBytes(bytes);
    unsigned high = bits(bytes);
    if ((high | due) != 0) {
      const unsigned run = stops == 0 ? 0xFFFF : (stops & (0 - stops)) - 1;  // the bytes before the first stop
      const unsigned continuations = bits(_mm_cmplt_epi8(bytes, all(0xC0)));
      const unsigned leadsOfThree = bits(isAtLeast(bytes, all(0xE0))) & run;
      const unsigned leadsOfFour = bits(isAtLeast(bytes, all(0xF0))) & run;
      high &= run;
      // C0 and C1 begin nothing but overlong sequences, F5 and above nothing at all.
      __m128i isWrong =
          _mm_or_si128(_mm_cmpeq_epi8(_mm_and_si128(bytes, all(0xFE)), all(0xC0)), isAtLeast(bytes, all(0xF5)));
      if ((leadsOfThree | due) != 0) {
        // After four leads not every continuation byte may follow: others would be overlong, surrogates, or too large.
        const __m128i leads = load(from - 1);  // to each byte the one before it; to the first of a string its quote
        const auto isAfter = [&](int lead, __m128i isBad) {
          return _mm_and_si128(_mm_cmpeq_epi8(leads, all(lead)), isBad);
        };
        isWrong = _mm_or_si128(isWrong, _mm_or_si128(isAfter(0xE0, _mm_cmplt_epi8(bytes, all(0xA0))),
                                                     isAfter(0xED, _mm_cmpgt_epi8(bytes, all(0x9F)))));
        isWrong = _mm_or_si128(isWrong, _mm_or_si128(isAfter(0xF0, _mm_cmplt_epi8(bytes, all(0x90))),
                                                     isAfter(0xF4, _mm_cmpgt_epi8(bytes, all(0x8F)))));
      }
      due |= (high & ~continuations) << 1 | leadsOfThree << 2 | leadsOfFour << 3;
      // The byte that stops the run is ASCII, so it is judged as well: a sequence must not reach it.
      const unsigned judged = (run << 1 | 1) & 0xFFFF;
      if ((((due ^ continuations) & judged) | (bits(isWrong) & run)) != 0) return {at, false, false};
      due >>= 16;
      isASCII = isASCII && high == 0;
    }
    if (stops != 0) {
      at += std::countr_zero(stops);
      return {at, isASCII, *at == '"' || *at == '\\'};
    }
  }
#else
  const char* const begin = at;
  while (true) {
    at = skippingPlain(at, end);
    if (*at == '"' || *at == '\\') break;
    const auto decoded = unicode::decodedAt({at, static_cast<std::size_t>(end - at)}, 0);
    isASCII = false;
    if (!decoded.wellFormed || static_cast<unsigned char>(*at) < 0x20) return {at, isASCII, false};
    at += decoded.size;
  }
  std::memcpy(to, begin, static_cast<std::size_t>(at - begin));
  return {at, isASCII, true};
#endif
}

}  // namespace kelvane::jsonscanner
