#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "platform/unicode/Processor.h"

namespace kelvane::unicode {

/// The bytes of one machine word, 16 with SSE2 and 8 elsewhere, which are compared in one step. The result of a
/// comparison is a set of bytes: again a Lane, in which the highest bit of each byte says whether it is in the set.
#if defined(KELVANE_SSE2)

class Lane {
 public:
  static constexpr std::size_t size = 16;

  explicit Lane(const char* bytes) noexcept : bytes_(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes))) {}

  Lane equal(unsigned char byte) const noexcept { return _mm_cmpeq_epi8(bytes_, every(byte)); }
  Lane between(unsigned char first, unsigned char last) const noexcept {
    const __m128i above = _mm_sub_epi8(bytes_, every(first));
    const auto most = static_cast<unsigned char>(last - first);
    return _mm_cmpeq_epi8(_mm_min_epu8(above, every(most)), above);
  }
  Lane nonASCII() const noexcept { return bytes_; }
  friend Lane operator|(Lane left, Lane right) noexcept { return _mm_or_si128(left.bytes_, right.bytes_); }

  /// A set as one bit per byte, the lowest bit for the first byte.
  std::uint64_t bits() const noexcept { return static_cast<unsigned>(_mm_movemask_epi8(bytes_)); }

 private:
  Lane(__m128i bytes) noexcept : bytes_(bytes) {}
  static __m128i every(unsigned char byte) noexcept { return _mm_set1_epi8(static_cast<char>(byte)); }

  __m128i bytes_;
};

#else

class Lane {
 public:
  static constexpr std::size_t size = 8;

  explicit Lane(const char* bytes) noexcept { std::memcpy(&bytes_, bytes, size); }

  // Both comparisons add within each byte so that a carry ends in its highest bit and never in the next byte.
  Lane equal(unsigned char byte) const noexcept {
    const std::uint64_t different = bytes_ ^ every(byte);
    return Lane(~(((different & ~highest) + ~highest) | different));
  }
  /// `first` and `last` must be both ASCII or both not.
  Lane between(unsigned char first, unsigned char last) const noexcept {
    const std::uint64_t low = bytes_ & ~highest;
    const std::uint64_t atLeastFirst = low + every(static_cast<unsigned char>(0x80 - (first & 0x7F)));
    const std::uint64_t aboveLast = low + every(static_cast<unsigned char>(0x7F - (last & 0x7F)));
    return Lane(atLeastFirst & ~aboveLast & (first < 0x80 ? ~bytes_ : bytes_));
  }
  Lane nonASCII() const noexcept { return *this; }
  friend Lane operator|(Lane left, Lane right) noexcept { return Lane(left.bytes_ | right.bytes_); }

  /// A set as one bit per byte, the lowest bit for the first byte.
  std::uint64_t bits() const noexcept {
    // The multiplication moves the bit of byte n to bit 56 + n. Before it, that is bit 8n, or bit 56 - 8n if the first
    // byte of a word is its highest.
    constexpr std::uint64_t gather =
        std::endian::native == std::endian::little ? 0x0102040810204080 : 0x8040201008040201;
    return ((bytes_ & highest) >> 7) * gather >> 56;
  }

 private:
  static constexpr std::uint64_t highest = 0x8080808080808080;

  explicit Lane(std::uint64_t bytes) noexcept : bytes_(bytes) {}
  static constexpr std::uint64_t every(unsigned char byte) noexcept { return byte * std::uint64_t{0x0101010101010101}; }

  std::uint64_t bytes_ = 0;
};

#endif

/// 64 bytes of a text that are examined together. Each answer is a number with one bit per byte, the lowest bit for the
/// first byte. Takes constant time, and does not look at any byte outside the block.
class ByteBlock {
 public:
  static constexpr std::size_t size = 64;

  /// Refers to `size` bytes, which must outlive this.
  explicit ByteBlock(const char* bytes) noexcept : bytes_(bytes) {}

  /// The bytes of 0x80 and above.
  std::uint64_t nonASCII() const noexcept {
    return bits([](Lane lane) { return lane.nonASCII(); });
  }

  /// The bytes that start sequences of two bytes in UTF-8: 0xC2 to 0xDF.
  std::uint64_t leadsOfTwo() const noexcept {
    return bits([](Lane lane) { return lane.between(0xC2, 0xDF); });
  }

  /// The bytes that start sequences of three bytes, without 0xE0 and 0xED: what may follow those is restricted.
  std::uint64_t leadsOfThree() const noexcept {
    return bits([](Lane lane) { return lane.between(0xE1, 0xEC) | lane.between(0xEE, 0xEF); });
  }

  /// The bytes that continue a sequence: 0x80 to 0xBF.
  std::uint64_t continuations() const noexcept {
    return bits([](Lane lane) { return lane.between(0x80, 0xBF); });
  }

  /// ASCII white space: the space and 0x09 to 0x0D.
  std::uint64_t whiteSpace() const noexcept {
    return bits([](Lane lane) { return lane.equal(' ') | lane.between('\t', '\r'); });
  }

  /// The bytes that may start white space beyond ASCII: 0xC2 and 0xE1 to 0xE3, followed by a byte that can be the
  /// second one. The set may contain others too, but misses none, except the last byte of the block.
  std::uint64_t whiteSpaceLeads() const noexcept {
    const std::uint64_t leads = bits([](Lane lane) { return lane.equal(0xC2) | lane.between(0xE1, 0xE3); });
    if (leads == 0) return 0;
    const std::uint64_t seconds =
        bits([](Lane lane) { return lane.equal(0x80) | lane.equal(0x85) | lane.equal(0x9A) | lane.equal(0xA0); });
    // U+205F is E2 81 9F. The byte 81 is not among `seconds`, because in Japanese text it is everywhere: all of
    // Hiragana starts with E3 81.
    const std::uint64_t e281 =
        bits([](Lane lane) { return lane.equal(0xE2); }) & bits([](Lane lane) { return lane.equal(0x81); }) >> 1;
    return (leads & seconds >> 1) | e281;
  }

 private:
  template <typename Question>
  std::uint64_t bits(const Question& question) const noexcept {
    return bits(question, std::make_index_sequence<size / Lane::size>());
  }

  // Without a loop, which GCC would not unroll.
  template <typename Question, std::size_t... lanes>
  std::uint64_t bits(const Question& question, std::index_sequence<lanes...>) const noexcept {
    return ((question(Lane(bytes_ + lanes * Lane::size)).bits() << lanes * Lane::size) | ...);
  }

  const char* bytes_;
};

}  // namespace kelvane::unicode
