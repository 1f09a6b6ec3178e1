#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

// KELVANE_PORTABLE leaves out what is written for one kind of processor.
#if defined(__SSE2__) && !defined(KELVANE_PORTABLE)
#define KELVANE_SSE2
#include <emmintrin.h>
#endif

/// 64 bytes of a text looked at together. The answers have one bit a byte, the lowest for the first.
namespace kelvane::unicode {

#if defined(KELVANE_SSE2)

class ByteBlock {
 public:
  static constexpr std::size_t size = 64;

  explicit ByteBlock(const char* bytes) noexcept {
    for (__m128i& part : parts_) {
      part = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
      bytes += sizeof part;
    }
  }

  /// The bytes of 0x80 and above.
  std::uint64_t nonASCII() const noexcept {
    return bits([](__m128i part) { return part; });
  }

  /// ASCII white space: the blank and 0x09 to 0x0D.
  std::uint64_t whiteSpace() const noexcept {
    return bits([](__m128i part) {
      const __m128i blanks = _mm_cmpeq_epi8(part, _mm_set1_epi8(' '));
      const __m128i fromTab = _mm_sub_epi8(part, _mm_set1_epi8('\t'));
      return _mm_or_si128(blanks, _mm_cmpeq_epi8(_mm_min_epu8(fromTab, _mm_set1_epi8(4)), fromTab));
    });
  }

  /// The bytes that may start the UTF-8 of other white space: 0xC2 and 0xE1 to 0xE3 before a byte that its second byte
  /// can be. All that do are among them, save in the last byte.
  std::uint64_t whiteSpaceLeads() const noexcept {
    const auto equals = [](__m128i part, unsigned char byte) {
      return _mm_cmpeq_epi8(part, _mm_set1_epi8(static_cast<char>(byte)));
    };
    const std::uint64_t leads = bits([&](__m128i part) {
      const __m128i fromE1 = _mm_sub_epi8(part, _mm_set1_epi8(static_cast<char>(0xE1)));
      return _mm_or_si128(equals(part, 0xC2), _mm_cmpeq_epi8(_mm_min_epu8(fromE1, _mm_set1_epi8(2)), fromE1));
    });
    if (leads == 0) return 0;
    const std::uint64_t seconds = bits([&](__m128i part) {
      const __m128i latin = _mm_or_si128(equals(part, 0x85), equals(part, 0xA0));
      return _mm_or_si128(latin, _mm_or_si128(equals(part, 0x80), equals(part, 0x9A)));
    });
    // U+205F is E2 81 9F; 81 is no second byte to look for in general, since it is that of Hiragana.
    const std::uint64_t e281 = bits([&](__m128i part) { return equals(part, 0xE2); }) &
                               bits([&](__m128i part) { return equals(part, 0x81); }) >> 1;
    return (leads & seconds >> 1) | e281;
  }

 private:
  template <typename Test>
  std::uint64_t bits(const Test& test) const noexcept {
    std::uint64_t result = 0;
    for (std::size_t part = std::size(parts_); part-- > 0;) {
      result = result << 16 | static_cast<unsigned>(_mm_movemask_epi8(test(parts_[part])));
    }
    return result;
  }

  __m128i parts_[size / 16];
};

#else

class ByteBlock {
 public:
  static constexpr std::size_t size = 64;

  explicit ByteBlock(const char* bytes) noexcept { std::memcpy(bytes_.data(), bytes, size); }

  std::uint64_t nonASCII() const noexcept {
    return bits([](unsigned char byte) { return byte >= 0x80; });
  }
  std::uint64_t whiteSpace() const noexcept {
    return bits([](unsigned char byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); });
  }
  std::uint64_t whiteSpaceLeads() const noexcept {
    return bits([](unsigned char byte) { return byte == 0xC2 || (byte >= 0xE1 && byte <= 0xE3); });
  }

 private:
  template <typename Test>
  std::uint64_t bits(const Test& test) const noexcept {
    std::uint64_t result = 0;
    for (std::size_t at = size; at-- > 0;) result = result << 1 | (test(bytes_[at]) ? 1u : 0u);
    return result;
  }

  std::array<unsigned char, size> bytes_;
};

#endif

}  // namespace kelvane::unicode
