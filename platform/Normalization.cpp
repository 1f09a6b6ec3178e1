#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <vector>

#include "platform/UTF8.h"
#include "platform/Unicode.h"

namespace kelvane::unicode {

namespace {

const utf8proc_property_t& property(utf8proc_int32_t scalar) noexcept {
  return *utf8proc_get_property(scalar);
}

// Whether composing a text can be taken up anew at this scalar: it never reorders, never combines with what stands
// before it, and is its own canonical composition. It may still combine with what follows. True for most scalars of
// most prose; false for a few of which it holds, too, which costs time only.
bool isStable(char32_t scalar) noexcept {
  const auto within = [&](char32_t first, char32_t last) { return scalar >= first && scalar <= last; };
  if (scalar < 0x300 || within(0x3041, 0x3096) || within(0x30A1, 0x30FF)) return true;  // Latin, Kana
  if (within(0x4E00, 0x9FFF) || within(0xAC00, 0xD7A3)) return true;                    // Han, Hangul syllables
  if (within(0x1161, 0x1175) || within(0x11A8, 0x11C2)) return false;                   // Jamo that join a syllable
  const utf8proc_property_t& known = property(static_cast<utf8proc_int32_t>(scalar));
  constexpr auto none = static_cast<utf8proc_uint16_t>(-1);
  const bool decomposes = known.decomp_seqindex != none && known.decomp_type == 0;
  return known.combining_class == 0 && known.comb_index == none && !decomposes;
}

// The offset of the first scalar at or behind `offset` that is not stable, or the text's size. For valid UTF-8.
std::size_t stableEnd(std::string_view text, std::size_t offset) noexcept {
  while ((offset = asciiEnd(text, offset)) < text.size()) {
    while (offset < text.size() && static_cast<unsigned char>(text[offset]) >= 0x80) {
      const Decoded decoded = decodedAt(text, offset);
      if (!isStable(decoded.scalar)) return offset;
      offset += decoded.size;
    }
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
    for (auto begin = scalars_.begin(); begin != scalars_.end();) {
      begin = std::find_if(begin, scalars_.end(), isMark);
      const auto end = std::find_if_not(begin, scalars_.end(), isMark);
      std::stable_sort(begin, end, [](utf8proc_int32_t left, utf8proc_int32_t right) {
        return property(left).combining_class < property(right).combining_class;
      });
      begin = end;
    }
  }

  std::vector<utf8proc_int32_t> scalars_;
};

// A text's canonical form, which is the text itself where it is in that form already and seen to be so at a glance.
class CanonicalForm {
 public:
  explicit CanonicalForm(std::string_view text) : text_(text) {
    if (!isValidUTF8(text) || stableEnd(text, 0) == text.size()) return;
    composed_ = canonicalForm(text);
    text_ = composed_;
  }
  CanonicalForm(const CanonicalForm&) = delete;
  CanonicalForm& operator=(const CanonicalForm&) = delete;

  std::string_view text() const noexcept { return text_; }

 private:
  std::string composed_;
  std::string_view text_;
};

}  // namespace

std::string canonicalForm(std::string_view text) {
  if (isASCII(text) || !isValidUTF8(text)) return std::string(text);
  std::string result;
  result.reserve(text.size());
  Composer composer;
  for (std::size_t offset = 0; offset < text.size();) {
    // What must be composed: from the last stable scalar before an unstable one, up to the next stable one.
    std::size_t end = stableEnd(text, offset);
    std::size_t begin = end;
    if (end > offset && end < text.size()) begin -= decodedBefore(text, end).size;
    result.append(text.substr(offset, begin - offset));
    while (end < text.size()) {
      const Decoded decoded = decodedAt(text, end);
      if (isStable(decoded.scalar)) break;
      end += decoded.size;
    }
    composer.append(text.substr(begin, end - begin), result);
    offset = end;
  }
  return result;
}

bool equivalent(std::string_view left, std::string_view right) {
  if (left == right) return true;
  if (isASCII(left) && isASCII(right)) return false;
  return CanonicalForm(left).text() == CanonicalForm(right).text();
}

std::strong_ordering order(std::string_view left, std::string_view right) {
  if (isASCII(left) && isASCII(right)) return left <=> right;
  return CanonicalForm(left).text() <=> CanonicalForm(right).text();
}

}  // namespace kelvane::unicode
