#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// UTF-8, one scalar at a time. The operations of `platform/Unicode.h` are built on this.
///
///     for (std::size_t at = 0; at < text.size();) {
///       const Decoded decoded = decodedAt(text, at);
///       … decoded.scalar …
///       at += decoded.size;
///     }
///
/// Sequences are judged by table 3-7 of The Unicode Standard, "Well-Formed UTF-8 Byte Sequences". Pure functions; only
/// `append` allocates. All but `append` and `asciiEnd` take constant time.
namespace kelvane::unicode {

inline constexpr char32_t replacementCharacter = 0xFFFD;

/// A scalar of a text, or a maximal ill-formed part, which reads as U+FFFD. A U+FFFD that the text itself contains is
/// well-formed.
struct Decoded {
  char32_t scalar = replacementCharacter;
  std::size_t size = 1;  ///< In bytes; at least 1.
  bool wellFormed = false;
};

/// What starts at `offset`, which must be less than the text's size.
Decoded decodedSequenceAt(std::string_view text, std::size_t offset) noexcept;

/// The same, inline for the sequences of one, two and three bytes that most prose consists of. Leads such as E0 and ED,
/// whose second byte has a smaller range, go to `decodedSequenceAt`.
inline Decoded decodedAt(std::string_view text, std::size_t offset) noexcept {
  const auto byte = [&](std::size_t at) -> unsigned { return static_cast<unsigned char>(text[offset + at]); };
  const auto continues = [&](std::size_t at) { return (byte(at) & 0xC0) == 0x80; };
  const unsigned lead = byte(0);
  if (lead < 0x80) return {lead, 1, true};
  const std::size_t left = text.size() - offset;
  if (lead >= 0xE1 && lead <= 0xEC && left >= 3 && continues(1) && continues(2)) {
    return {(lead & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F), 3, true};
  }
  if (lead >= 0xC2 && lead <= 0xDF && left >= 2 && continues(1)) {
    return {(lead & 0x1F) << 6 | (byte(1) & 0x3F), 2, true};
  }
  return decodedSequenceAt(text, offset);
}

/// What ends at `offset`, which must be more than 0 and at most the text's size. Of an ill-formed part only the last
/// byte is returned: `size` is 1.
inline Decoded decodedBefore(std::string_view text, std::size_t offset) noexcept {
  for (std::size_t size = 1; size <= 4 && size <= offset; ++size) {
    const auto first = static_cast<unsigned char>(text[offset - size]);
    if (first >= 0x80 && first < 0xC0) continue;
    const Decoded decoded = decodedAt(text, offset - size);
    return decoded.wellFormed && decoded.size == size ? decoded : Decoded{};
  }
  return {};
}

/// Writes a scalar as UTF-8 and returns the end of what was written. `out` must have room for four bytes.
inline char* encode(char32_t scalar, char* out) noexcept {
  const auto put = [&out](char32_t byte) { *out++ = static_cast<char>(byte); };
  if (scalar < 0x80) {
    put(scalar);
  } else if (scalar < 0x800) {
    put(0xC0 | scalar >> 6);
    put(0x80 | (scalar & 0x3F));
  } else if (scalar < 0x10000) {
    put(0xE0 | scalar >> 12);
    put(0x80 | (scalar >> 6 & 0x3F));
    put(0x80 | (scalar & 0x3F));
  } else {
    put(0xF0 | scalar >> 18);
    put(0x80 | (scalar >> 12 & 0x3F));
    put(0x80 | (scalar >> 6 & 0x3F));
    put(0x80 | (scalar & 0x3F));
  }
  return out;
}

/// Adds a scalar as UTF-8 to the end of a text.
inline void append(char32_t scalar, std::string& text) {
  char bytes[4];
  text.append(bytes, static_cast<std::size_t>(encode(scalar, bytes) - bytes));
}

/// The offset of the first byte at or after `offset` that is not ASCII, or the text's size. Takes time linear in the
/// distance. `offset` must be at most the text's size.
std::size_t asciiEnd(std::string_view text, std::size_t offset) noexcept;

}  // namespace kelvane::unicode
