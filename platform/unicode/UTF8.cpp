#include "platform/unicode/UTF8.h"

#include <cstdint>
#include <cstring>

#include "platform/Unicode.h"

namespace kelvane::unicode {

namespace {

constexpr std::uint64_t highBits = 0x8080808080808080;  // set in a word if any of its bytes is not ASCII
constexpr std::size_t blockSize = 32;

std::uint64_t word(const char* bytes) noexcept {
  std::uint64_t result;
  std::memcpy(&result, bytes, sizeof result);
  return result;
}

bool isASCIIBlock(const char* bytes) noexcept {
  return ((word(bytes) | word(bytes + 8) | word(bytes + 16) | word(bytes + 24)) & highBits) == 0;
}

}  // namespace

Decoded decodedSequenceAt(std::string_view text, std::size_t offset) noexcept {
  const auto byte = [&](std::size_t at) -> unsigned { return static_cast<unsigned char>(text[offset + at]); };
  const unsigned lead = byte(0);
  if (lead < 0x80) return {lead, 1, true};
  if (lead < 0xC2 || lead > 0xF4) return {};
  const std::size_t size = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  // The smaller range of the second byte excludes overlong forms, surrogates and scalars above U+10FFFF. Where a
  // sequence breaks off, what was read of it is the maximal ill-formed part.
  unsigned lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  unsigned highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  char32_t scalar = lead & (0x7Fu >> size);
  for (std::size_t at = 1; at < size; ++at) {
    if (offset + at == text.size() || byte(at) < lowest || byte(at) > highest) return {replacementCharacter, at, false};
    scalar = scalar << 6 | (byte(at) & 0x3F);
    lowest = 0x80;
    highest = 0xBF;
  }
  return {scalar, size, true};
}

std::size_t asciiEnd(std::string_view text, std::size_t offset) noexcept {
  // Blocks first, because most texts are long runs of ASCII; then words and bytes for what is left.
  while (text.size() - offset >= blockSize && isASCIIBlock(text.data() + offset)) offset += blockSize;
  while (text.size() - offset >= 8 && (word(text.data() + offset) & highBits) == 0) offset += 8;
  while (offset < text.size() && static_cast<unsigned char>(text[offset]) < 0x80) ++offset;
  return offset;
}

bool isASCII(std::string_view text) noexcept {
  // Short texts are many: their last eight bytes may be looked at twice.
  if (text.size() >= 8 && text.size() <= 16)
    return ((word(text.data()) | word(text.data() + text.size() - 8)) & highBits) == 0;
  return asciiEnd(text, 0) == text.size();
}

std::size_t validUTF8Prefix(std::string_view text) noexcept {
  std::size_t offset = 0;
  while ((offset = asciiEnd(text, offset)) < text.size()) {
    while (offset < text.size() && static_cast<unsigned char>(text[offset]) >= 0x80) {
      const Decoded decoded = decodedAt(text, offset);
      if (!decoded.wellFormed) return offset;
      offset += decoded.size;
    }
  }
  return offset;
}

bool isValidUTF8(std::string_view text) noexcept {
  return validUTF8Prefix(text) == text.size();
}

std::string replacingInvalidUTF8(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const std::size_t valid = validUTF8Prefix(text);
    result.append(text.substr(0, valid));
    if (valid == text.size()) break;
    append(replacementCharacter, result);
    text.remove_prefix(valid + decodedAt(text, valid).size);
  }
  return result;
}

}  // namespace kelvane::unicode
