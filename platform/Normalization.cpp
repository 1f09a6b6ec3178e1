#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <vector>

#include "platform/Scalars.h"
#include "platform/UTF8.h"
#include "platform/Unicode.h"

namespace kelvane::unicode {

namespace {

const utf8proc_property_t& property(utf8proc_int32_t scalar) noexcept {
  return *utf8proc_get_property(scalar);
}

// The offset of the first scalar at or behind `offset` at which composing could not start anew, or the text's size. A
// text without such a scalar is its own canonical form: it is composed, or it is not UTF-8.
std::size_t plainEnd(std::string_view text, std::size_t offset) noexcept {
  while ((offset = asciiEnd(text, offset)) < text.size()) {
    do {
      const Decoded decoded = decodedAt(text, offset);
      if (!startsComposition(decoded.scalar)) return offset;
      offset += decoded.size;
    } while (offset < text.size() && static_cast<unsigned char>(text[offset]) >= 0x80);
  }
  return offset;
}

class Composer {
 public:
  /// Adds the canonical composition of a valid text to the end of `result`.
  void append(std::string_view text, std::string& result) {
    scalars_.clear();
    for (std::size_t offset = 0; offset < text.size();) {
      const Decoded decoded = decodedAt(text, offset);
      decompose(static_cast<utf8proc_int32_t>(decoded.scalar));
      offset += decoded.size;
    }
    orderMarks();
    const auto composed = utf8proc_normalize_utf32(scalars_.data(), static_cast<utf8proc_ssize_t>(scalars_.size()),
                                                   static_cast<utf8proc_option_t>(UTF8PROC_COMPOSE | UTF8PROC_STABLE));
    for (utf8proc_ssize_t at = 0; at < composed; ++at) {
      unicode::append(static_cast<char32_t>(scalars_[static_cast<std::size_t>(at)]), result);
    }
  }

 private:
  void decompose(utf8proc_int32_t scalar) {
    std::array<utf8proc_int32_t, 8> parts{};  // no scalar has more than four
    int lastClass = 0;
    const auto count = utf8proc_decompose_char(scalar, parts.data(), parts.size(), UTF8PROC_DECOMPOSE, &lastClass);
    scalars_.insert(scalars_.end(), parts.begin(), parts.begin() + count);
  }

  // utf8proc would order them too, in time quadratic in the length of a run of marks.
  void orderMarks() {
    const auto isMark = [](utf8proc_int32_t scalar) { return property(scalar).combining_class != 0; };
    const auto comesBefore = [](utf8proc_int32_t left, utf8proc_int32_t right) {
      return property(left).combining_class < property(right).combining_class;
    };
    for (auto begin = scalars_.begin(); begin != scalars_.end();) {
      begin = std::find_if(begin, scalars_.end(), isMark);
      const auto end = std::find_if_not(begin, scalars_.end(), isMark);
      if (!std::is_sorted(begin, end, comesBefore)) std::stable_sort(begin, end, comesBefore);
      begin = end;
    }
  }

  std::vector<utf8proc_int32_t> scalars_;
};

std::string composed(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  Composer composer;
  for (std::size_t offset = 0; offset < text.size();) {
    // A part of the text that must be composed starts where composing can start anew, and ends before the next such
    // place. U+11A7 always stands at one: utf8proc would lose it behind a Hangul syllable.
    std::size_t end = plainEnd(text, offset);
    std::size_t begin = end;
    if (end > offset && end < text.size()) begin -= decodedBefore(text, end).size;
    result.append(text.substr(offset, begin - offset));
    while (end < text.size()) {
      const Decoded decoded = decodedAt(text, end);
      if (startsComposition(decoded.scalar)) break;
      end += decoded.size;
    }
    composer.append(text.substr(begin, end - begin), result);
    offset = end;
  }
  return result;
}

// A text's canonical form, without a copy where the text is seen to be in it.
class CanonicalForm {
 public:
  explicit CanonicalForm(std::string_view text) : text_(text) {
    if (plainEnd(text, 0) == text.size() || !isValidUTF8(text)) return;
    composed_ = composed(text);
    text_ = composed_;
  }
  CanonicalForm(const CanonicalForm&) = delete;
  CanonicalForm& operator=(const CanonicalForm&) = delete;

  std::string_view text() const noexcept { return text_; }

 private:
  std::string_view text_;
  std::string composed_;
};

}  // namespace

std::string canonicalForm(std::string_view text) {
  if (plainEnd(text, 0) == text.size() || !isValidUTF8(text)) return std::string(text);
  return composed(text);
}

bool equivalent(std::string_view left, std::string_view right) {
  return left == right || CanonicalForm(left).text() == CanonicalForm(right).text();
}

std::strong_ordering order(std::string_view left, std::string_view right) {
  return CanonicalForm(left).text() <=> CanonicalForm(right).text();
}

}  // namespace kelvane::unicode
