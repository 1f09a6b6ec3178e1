#include <bit>
#include <cstdint>

#include "platform/Unicode.h"
#include "platform/unicode/ByteBlock.h"
#include "platform/unicode/Scalars.h"
#include "platform/unicode/UTF8.h"

namespace kelvane::unicode {

namespace {

/// Counts the words of a text from its start to its end, without finding the characters. Whether a scalar starts a word
/// depends only on what it is and on what the scalar before it belongs to:
///
/// - A tab or a line break is always white space.
/// - A space is white space, unless a Prepend (such as an Arabic number sign) before it draws it into a word.
/// - Anything else starts a word after white space, except a mark after a space, which joins the space.
///
/// Most of a text needs no such care, so it is counted in blocks of 64 bytes: a bit for each byte that is white space,
/// and a word starts at each bit that is not set after one that is. A block in which a mark or a Prepend meets a space
/// is counted scalar by scalar instead.
class WordCounter {
 public:
  explicit WordCounter(std::string_view text) noexcept : text_(text) {}

  std::size_t count() noexcept {
    while (text_.size() - offset_ >= ByteBlock::size) {
      if (!countBlock()) countScalars(offset_ + ByteBlock::size);
    }
    countScalars(text_.size());
    return words_;
  }

 private:
  enum class Within { word, space, control };

  void countScalars(std::size_t end) noexcept;
  bool countBlock() noexcept;
  std::size_t wholeSequences() const noexcept;
  std::uint64_t whiteSpaceBytes(const ByteBlock& block, std::size_t length) const noexcept;

  bool isExtenderAt(std::size_t offset) const noexcept { return isExtender(decodedAt(text_, offset).scalar); }
  bool isPrependerBefore(std::size_t offset) const noexcept {
    return offset > 0 && isPrepender(decodedBefore(text_, offset).scalar);
  }
  bool isContinuation(std::size_t offset) const noexcept {
    return (static_cast<unsigned char>(text_[offset]) & 0xC0) == 0x80;
  }

  std::string_view text_;
  std::size_t offset_ = 0;  // everything before it is counted; never inside a well-formed sequence
  Within within_ =
      Within::control;  // what the scalar before offset_ belongs to; a text starts as if after a line break
  std::size_t words_ = 0;
};

// Counts up to the first scalar that starts at or after `end`.
void WordCounter::countScalars(std::size_t end) noexcept {
  while (offset_ < end) {
    const Decoded decoded = decodedAt(text_, offset_);
    const WhiteSpace kind = whiteSpace(decoded.scalar);
    if (kind == WhiteSpace::control) {
      within_ = Within::control;
    } else if (kind == WhiteSpace::space) {
      if (within_ != Within::word || !isPrependerBefore(offset_)) within_ = Within::space;
    } else if (within_ == Within::control || (within_ == Within::space && !isExtender(decoded.scalar))) {
      ++words_;
      within_ = Within::word;
    }
    offset_ += decoded.size;
  }
}

// Counts a block by the bits of its white space, whole sequences only. Returns false, with nothing changed, if a scalar
// in it may join a space to its neighbour.
bool WordCounter::countBlock() noexcept {
  const ByteBlock block(text_.data() + offset_);
  const std::uint64_t nonASCII = block.nonASCII();
  const std::size_t length = nonASCII == 0 ? ByteBlock::size : wholeSequences();
  const std::uint64_t inside = ~std::uint64_t{0} >> (ByteBlock::size - length);
  const std::uint64_t white = inside & (nonASCII == 0 ? block.whiteSpace() : whiteSpaceBytes(block, length));
  const std::uint64_t solid = inside & ~white;
  const std::uint64_t behindSolid = solid << 1 | (within_ == Within::word ? 1 : 0);
  const std::uint64_t starts = solid & ~behindSolid;
  const std::uint64_t ends = white & behindSolid;
  for (std::uint64_t left = starts & nonASCII; left != 0; left &= left - 1) {
    if (isExtenderAt(offset_ + static_cast<std::size_t>(std::countr_zero(left)))) return false;
  }
  for (std::uint64_t left = ends & (nonASCII << 1 | 1); left != 0; left &= left - 1) {
    if (isPrependerBefore(offset_ + static_cast<std::size_t>(std::countr_zero(left)))) return false;
  }
  words_ += static_cast<std::size_t>(std::popcount(starts));
  offset_ += length;
  const WhiteSpace last = whiteSpace(decodedBefore(text_, offset_).scalar);
  within_ = last == WhiteSpace::none ? Within::word : last == WhiteSpace::space ? Within::space : Within::control;
  return true;
}

// The length of the block without a sequence at its end that continues in the next block.
std::size_t WordCounter::wholeSequences() const noexcept {
  for (std::size_t length = ByteBlock::size; length > ByteBlock::size - 4; --length) {
    if (offset_ + length == text_.size() || !isContinuation(offset_ + length)) return length;
  }
  // Of four continuation bytes in a row the last belongs to no sequence, so nothing is cut here.
  return ByteBlock::size;
}

// All bytes of white space among the first `length` bytes of a block, ASCII or not.
std::uint64_t WordCounter::whiteSpaceBytes(const ByteBlock& block, std::size_t length) const noexcept {
  std::uint64_t result = block.whiteSpace();
  for (std::uint64_t left = block.whiteSpaceLeads(); left != 0; left &= left - 1) {
    const auto at = static_cast<std::size_t>(std::countr_zero(left));
    if (at >= length) break;
    const Decoded decoded = decodedAt(text_, offset_ + at);
    if (whiteSpace(decoded.scalar) != WhiteSpace::none) result |= ((std::uint64_t{1} << decoded.size) - 1) << at;
  }
  return result;
}

}  // namespace

std::size_t wordCount(std::string_view text) noexcept {
  return WordCounter(text).count();
}

}  // namespace kelvane::unicode
