#include "platform/unicode/UTF8.h"

#include <bit>
#include <cstdint>
#include <cstring>

#include "platform/Unicode.h"
#include "platform/unicode/ByteBlock.h"

namespace kelvane::unicode {

namespace {

constexpr std::uint64_t highBits = 0x8080808080808080;  // set in a word if any of its bytes is not ASCII

std::uint64_t word(const char* bytes) noexcept {
  std::uint64_t result;
  std::memcpy(&result, bytes, sizeof result);
  return result;
}

// How many bytes at the start of a block are whole sequences of one, two and three bytes. 0 if other bytes are in the
// block, which need not be wrong: sequences of four bytes, and those whose second byte is restricted.
std::size_t wholeSequences(const ByteBlock& block) noexcept {
  const std::uint64_t two = block.leadsOfTwo();
  const std::uint64_t three = block.leadsOfThree();
  const std::uint64_t continuations = block.continuations();
  if (continuations != ((two | three) << 1 | three << 2)) return 0;
  if (block.nonASCII() != (two | three | continuations)) return 0;
  // A sequence that goes on behind the block is none of its own.
  if ((three >> 62 & 1) != 0) return ByteBlock::size - 2;
  return (two | three) >> 63 != 0 ? ByteBlock::size - 1 : ByteBlock::size;
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
  // Four lanes together first, because most texts are long runs of ASCII; then lanes, and bytes for what is left.
  for (; text.size() - offset >= 4 * Lane::size; offset += 4 * Lane::size) {
    const auto lane = [&](std::size_t at) { return Lane(text.data() + offset + at * Lane::size); };
    if ((lane(0) | lane(1) | lane(2) | lane(3)).nonASCII().bits() != 0) break;
  }
  for (; text.size() - offset >= Lane::size; offset += Lane::size) {
    const std::uint64_t others = Lane(text.data() + offset).nonASCII().bits();
    if (others != 0) return offset + static_cast<std::size_t>(std::countr_zero(others));
  }
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
  // Most texts have a few other characters among their ASCII: those of a block are decoded one by one. Where there are
  // more, what follows is judged as a whole, if that is possible.
  constexpr int few = 4;
  bool areMany = false;  // where the block before ends
  std::size_t offset = 0;
  while (text.size() - offset >= ByteBlock::size) {
    const std::size_t begin = offset;
    std::uint64_t others = ByteBlock(text.data() + begin).nonASCII();
    offset += ByteBlock::size;
    for (int count = areMany ? few : 0; others != 0; ++count) {
      std::size_t at = begin + static_cast<std::size_t>(std::countr_zero(others));
      std::size_t whole = 0;
      if (count == few && text.size() - at >= ByteBlock::size) whole = wholeSequences(ByteBlock(text.data() + at));
      areMany = whole != 0;
      if (!areMany) {
        const Decoded decoded = decodedAt(text, at);
        if (!decoded.wellFormed) return at;
        whole = decoded.size;
      }
      at += whole;
      if (at - begin >= ByteBlock::size) {
        offset = at;
        break;
      }
      others &= ~std::uint64_t{0} << (at - begin);
    }
  }
  while ((offset = asciiEnd(text, offset)) < text.size()) {
    const Decoded decoded = decodedAt(text, offset);
    if (!decoded.wellFormed) return offset;
    offset += decoded.size;
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
