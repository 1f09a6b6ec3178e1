#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

/// The lowest level of reading JSON text: where blanks, texts and numbers end. Shared by everything that reads JSON, so
/// that all agree to the byte. Nothing here allocates or throws; every function takes [at, end) and looks at nothing
/// outside it.
namespace kelvane::jsonscanner {

/// Where the blanks (RFC 8259, section 2) at the front end.
inline const char* skippingBlanks(const char* at, const char* end) noexcept {
  const auto isBlank = [](char byte) { return byte == ' ' || byte == '\n' || byte == '\r' || byte == '\t'; };
  if (at == end || !isBlank(*at)) return at;
#if defined(__SSE2__)
  // Indentation comes in runs.
  while (end - at >= 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    const __m128i blank = _mm_or_si128(
        _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(' ')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\n'))),
        _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('\r')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\t'))));
    const unsigned other = static_cast<unsigned>(_mm_movemask_epi8(blank)) ^ 0xFFFFU;
    if (other != 0) return at + std::countr_zero(other);
    at += 16;
  }
#endif
  while (at != end && isBlank(*at)) ++at;
  return at;
}

/// Where the run of bytes at the front ends that a text shows as they are: ASCII but for the quote, the backslash and
/// the control characters below U+0020.
inline const char* skippingPlain(const char* at, const char* end) noexcept {
#if defined(__SSE2__)
  while (end - at >= 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    // Signed: what is below the blank is a control character or not ASCII.
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

/// The length of the UTF-8 sequence of a scalar above U+007F at the front; 0 where there is none that is well-formed
/// (The Unicode Standard, table 3-7).
inline std::size_t sequenceLength(const char* at, const char* end) noexcept {
  const auto byte = [at](std::ptrdiff_t i) { return static_cast<unsigned char>(at[i]); };
  const auto isTail = [&byte](std::ptrdiff_t i) { return (byte(i) & 0xC0) == 0x80; };
  const std::ptrdiff_t room = end - at;
  const unsigned char lead = byte(0);
  if (lead < 0xC2 || lead > 0xF4) return 0;
  if (lead < 0xE0) return room >= 2 && isTail(1) ? 2 : 0;
  if (lead < 0xF0) {
    if (room < 3 || !isTail(1) || !isTail(2)) return 0;
    if (lead == 0xE0 && byte(1) < 0xA0) return 0;  // overlong
    if (lead == 0xED && byte(1) > 0x9F) return 0;  // a surrogate
    return 3;
  }
  if (room < 4 || !isTail(1) || !isTail(2) || !isTail(3)) return 0;
  if (lead == 0xF0 && byte(1) < 0x90) return 0;  // overlong
  if (lead == 0xF4 && byte(1) > 0x8F) return 0;  // beyond U+10FFFF
  return 4;
}

/// A text, from behind its opening quote.
struct Text {
  const char* close;  // its closing quote; where reading failed if it is not well-formed
  bool isWellFormed;  // as far as this looks: escapes are judged when they are replaced
  bool isASCII;       // of the bytes that stand there, which escapes may yet change
  bool hasEscapes;
};

inline Text scanText(const char* at, const char* end) noexcept {
  Text text{at, false, true, false};
  while (true) {
    text.close = skippingPlain(text.close, end);
    if (text.close == end) return text;
    if (*text.close == '"') break;
    if (*text.close == '\\') {
      if (end - text.close < 2) return text;
      text.hasEscapes = true;
      text.close += 2;
    } else {
      do {
        const std::size_t length = sequenceLength(text.close, end);
        if (length == 0) return text;
        text.close += length;
      } while (text.close != end && static_cast<signed char>(*text.close) < 0);
      text.isASCII = false;
    }
  }
  text.isWellFormed = true;
  return text;
}

/// A number (RFC 8259, section 6): ± digits × 10^exponent, where its digits fit.
struct Number {
  const char* end;    // where it ends; where reading failed if it is not well-formed
  bool isWellFormed;  // as far as it goes: what follows is the reader's to judge
  bool isNegative;
  bool isInteger;          // it has neither a fraction nor an exponent
  std::size_t digitCount;  // significant ones: from the first that is not 0
  std::uint64_t digits;    // of the first 19
  std::int64_t exponent;   // of ten, for all the digits taken as an integer; held within ± 2^40
};

inline Number scanNumber(const char* at, const char* end) noexcept {
  constexpr std::int64_t exponentBound = std::int64_t{1} << 40;
  Number number{at, false, false, true, 0, 0, 0};
  const auto isDigit = [&](const char* byte) { return byte != end && *byte >= '0' && *byte <= '9'; };
  const auto take = [&number](char digit) {
    if (number.digitCount < 19) number.digits = number.digits * 10 + static_cast<std::uint64_t>(digit - '0');
    if (number.digitCount != 0 || digit != '0') ++number.digitCount;
  };
  const char*& p = number.end;
  if (p != end && *p == '-') {
    number.isNegative = true;
    ++p;
  }
  if (!isDigit(p)) return number;
  if (*p == '0') {
    ++p;
  } else {
    for (; isDigit(p); ++p) take(*p);
  }
  if (p != end && *p == '.') {
    number.isInteger = false;
    const char* fraction = ++p;
    if (!isDigit(p)) return number;
    for (; isDigit(p); ++p) take(*p);
    number.exponent = fraction - p;
  }
  if (p != end && (*p == 'e' || *p == 'E')) {
    number.isInteger = false;
    ++p;
    const bool down = p != end && *p == '-';
    if (p != end && (*p == '-' || *p == '+')) ++p;
    if (!isDigit(p)) return number;
    std::int64_t exponent = 0;
    for (; isDigit(p); ++p) {
      if (exponent < exponentBound) exponent = exponent * 10 + (*p - '0');
    }
    number.exponent += down ? -exponent : exponent;
  }
  number.isWellFormed = true;
  return number;
}

}  // namespace kelvane::jsonscanner
