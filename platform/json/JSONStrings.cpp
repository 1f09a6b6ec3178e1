#include "platform/json/JSONStrings.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstring>
#include <optional>

#include "platform/json/JSONRuns.h"
#include "platform/unicode/Processor.h"
#include "platform/unicode/UTF8.h"

// With SSE2, both passes read the string 16 bytes after 16, wherever its escapes are, and note one bit for each byte.
// So the processor looks for the next escapes while it still copies what is before them; beginning again behind each
// one takes a fifth longer. UTF-8 is judged in the same pass.
namespace kelvane::jsonscanner {
namespace {

#if defined(KELVANE_SSE2)

/// One bit for each of 16 bytes, the lowest for the first.
unsigned bits(__m128i bytes) noexcept {
  return static_cast<unsigned>(_mm_movemask_epi8(bytes));
}

__m128i all(int byte) noexcept {
  return _mm_set1_epi8(static_cast<char>(byte));
}

/// Tells which bytes of a string are escaped by a backslash before them. Asked for 16 bytes after 16, from the first.
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

/// Judges a string as UTF-8 (The Unicode Standard, table 3-7), 16 bytes after 16, from the first. It compares where
/// continuation bytes are with where the leads before them call for some, by one bit for each byte. So prose takes the
/// same time in every script, and ASCII takes nearly none.
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

/// The number in the escape \uXXXX at `at`; std::nullopt if there is no such escape.
std::optional<unsigned> escapedUnit(const char* at, const char* end) noexcept {
  if (end - at < 6 || at[0] != '\\' || at[1] != 'u') return std::nullopt;
  unsigned value = 0;
  const auto [stop, error] = std::from_chars(at + 2, at + 6, value, 16);
  return stop == at + 6 ? std::optional(value) : std::nullopt;
}

/// What a backslash and one more byte stand for; 0 if that is another escape, or none.
constexpr auto shortEscapes = [] {
  std::array<char, 256> meanings{};
  for (const char same : {'"', '\\', '/'}) meanings[static_cast<unsigned char>(same)] = same;
  meanings['b'] = '\b';
  meanings['f'] = '\f';
  meanings['n'] = '\n';
  meanings['r'] = '\r';
  meanings['t'] = '\t';
  return meanings;
}();

/// An escape \uXXXX, or two that form a pair of surrogates.
struct UnicodeEscape {
  std::size_t length;  ///< Of the escape; 0 if JSON has no such escape, or if it was not allowed.
  char32_t scalar;
};

/// The escape at the backslash `at`, if it is none of those in `shortEscapes`. Two escapes of surrogates are one scalar
/// only if the high one comes first.
UnicodeEscape unicodeEscape(const char* at, const char* end, AllowsLoneSurrogate allowsLone, void* reader) {
  const auto unit = escapedUnit(at, end);
  if (!unit) return {0, 0};
  if (*unit < 0xD800 || *unit >= 0xE000) return {6, *unit};
  const auto low = *unit < 0xDC00 ? escapedUnit(at + 6, end) : std::nullopt;
  if (low && *low >= 0xDC00 && *low < 0xE000) return {12, 0x10000 + ((*unit - 0xD800) << 10) + (*low - 0xDC00)};
  return allowsLone(reader, at) ? UnicodeEscape{6, unicode::replacementCharacter} : UnicodeEscape{0, 0};
}

}  // namespace

const char* closingQuote(const char* at, const char* end) noexcept {
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

const char* faultInString(const char* at, const char* end) noexcept {
  while (true) {
    at = skippingPlain(at, end);
    if (at == end) return at;
    if (*at == '"') return nullptr;
    if (*at == '\\') {
      if (end - at < 2) return at;
      at += 2;
    } else {
      const auto decoded = unicode::decodedAt({at, static_cast<std::size_t>(end - at)}, 0);
      if (!decoded.wellFormed || decoded.size == 1) return at;
      at += decoded.size;
    }
  }
}

Unescaped unescaped(const char* at, const char* close, [[maybe_unused]] const char* end, char* out,
                    AllowsLoneSurrogate allowsLone, void* reader) {
  constexpr Unescaped refused{nullptr, false};
  bool isASCII = true;
  const auto replace = [&](const char* escape) -> std::ptrdiff_t {
    if (const char meant = shortEscapes[static_cast<unsigned char>(escape[1])]) {
      *out++ = meant;
      return 2;
    }
    const UnicodeEscape found = unicodeEscape(escape, close, allowsLone, reader);
    if (found.length == 0) return 0;
    isASCII = isASCII && found.scalar < 0x80;
    out = unicode::encode(found.scalar, out);
    return static_cast<std::ptrdiff_t>(found.length);
  };
#if defined(KELVANE_SSE2)
  Escaping escaping;
  UTF8Judge judge;
  std::ptrdiff_t begin = 0;  // where what is to be copied begins, from `at`
  while (true) {
    const char* from = at;
    char padded[1 + 3 * 16];
    if (end - at < 32) [[unlikely]] {
      // The document ends within what is looked at, or within the 16 bytes after it, which copying may reach.
      std::memset(padded, 0, sizeof padded);
      std::memcpy(padded, at - 1, static_cast<std::size_t>(end - at + 1));
      from = padded + 1;
    }
    const auto copyTo = [&](std::ptrdiff_t stop) {
      const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + begin));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out), bytes);
      out += stop - begin;
    };
    const std::ptrdiff_t size = std::min<std::ptrdiff_t>(close - at, 16);
    const unsigned inside = (1U << size) - 1;
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    const unsigned controls = bits(_mm_cmpeq_epi8(_mm_min_epu8(bytes, all(0x1F)), bytes));
    const unsigned slashes = bits(_mm_cmpeq_epi8(bytes, all('\\')));
    if ((controls & inside) != 0 || !judge.accepts(from, inside)) return refused;
    unsigned escapes = slashes & ~escaping.escaped(slashes) & inside;
    for (; escapes != 0; escapes &= escapes - 1) {
      const std::ptrdiff_t escape = std::countr_zero(escapes);
      if (escape < begin) continue;  // the second of a pair
      copyTo(escape);
      const std::ptrdiff_t length = replace(at + escape);
      if (length == 0) return refused;
      begin = escape + length;
    }
    if (begin < size) {
      copyTo(size);
      begin = size;
    }
    // The quote is looked at as well, even if it is the first of 16 bytes: no sequence of UTF-8 may reach it.
    if (size < 16) return {out, isASCII && judge.isASCII()};
    begin -= 16;  // not below 0, since begin is at least the size
    at += 16;
  }
#else
  const char* copied = at;
  const auto copyTo = [&](const char* stop) {
    std::memcpy(out, copied, static_cast<std::size_t>(stop - copied));
    out += stop - copied;
  };
  while (true) {
    at = skippingPlain(at, close);
    if (at != close && static_cast<signed char>(*at) < 0) {
      const auto decoded = unicode::decodedAt({at, static_cast<std::size_t>(close - at)}, 0);
      if (!decoded.wellFormed) return refused;
      isASCII = false;
      at += decoded.size;
      continue;
    }
    copyTo(at);
    if (at == close) return {out, isASCII};
    const std::ptrdiff_t length = *at == '\\' ? replace(at) : 0;
    if (length == 0) return refused;
    copied = at += length;
  }
#endif
}

}  // namespace kelvane::jsonscanner
