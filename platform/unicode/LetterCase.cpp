#include <utf8proc.h>

#include <array>

#include "platform/Unicode.h"
#include "platform/unicode/UTF8.h"

namespace kelvane::unicode {

namespace {

constexpr char asciiLowercased(char byte) noexcept {
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

// The text in which `appendMapped(scalar, result)` writes each scalar that is not ASCII. ASCII becomes lower case.
template <typename AppendMapped>
std::string mapped(std::string_view text, const AppendMapped& appendMapped) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t offset = 0; offset < text.size();) {
    const Decoded decoded = decodedAt(text, offset);
    if (decoded.scalar < 0x80) {
      result.push_back(asciiLowercased(text[offset]));
    } else if (decoded.wellFormed) {
      appendMapped(static_cast<utf8proc_int32_t>(decoded.scalar), result);
    } else {
      result.append(text.substr(offset, decoded.size));
    }
    offset += decoded.size;
  }
  return result;
}

// Calls `take` with each scalar that utf8proc makes of one scalar with these options.
template <typename Take>
void decompose(utf8proc_int32_t scalar, int options, const Take& take) {
  std::array<utf8proc_int32_t, 16> parts{};  // folded and decomposed, no scalar has more than six
  int lastClass = 0;
  const auto count =
      utf8proc_decompose_char(scalar, parts.data(), parts.size(), static_cast<utf8proc_option_t>(options), &lastClass);
  for (utf8proc_ssize_t at = 0; at < count; ++at) take(parts[static_cast<std::size_t>(at)]);
}

}  // namespace

std::string lowercased(std::string_view text) {
  return mapped(text, [](utf8proc_int32_t scalar, std::string& result) {
    append(static_cast<char32_t>(utf8proc_tolower(scalar)), result);
  });
}

std::string folded(std::string_view text) {
  // Two steps, because folding changes some marks into letters: U+1F80, a letter with a iota below, folds to two
  // letters, but the same character written in three scalars would lose the iota as a mark. Decomposing and stripping
  // first makes both the same.
  return mapped(text, [](utf8proc_int32_t scalar, std::string& result) {
    decompose(scalar, UTF8PROC_DECOMPOSE | UTF8PROC_STRIPMARK, [&](utf8proc_int32_t part) {
      decompose(part, UTF8PROC_CASEFOLD | UTF8PROC_DECOMPOSE | UTF8PROC_STRIPMARK,
                [&](utf8proc_int32_t mappedPart) { append(static_cast<char32_t>(mappedPart), result); });
    });
  });
}

}  // namespace kelvane::unicode
