#pragma once

#include <cstddef>

/// The strings of a JSON document (RFC 8259, section 7) that do not just say what is written: those with escapes, and
/// those beyond ASCII. Reading one takes two passes. The first finds the closing quote, so that the reader can get
/// memory of the right size:
///
///     const char* close = closingQuote(at, end);                      // `at` is after the opening quote
///     char* out = …;                                                  // close - at + unescapedSlack bytes
///     const Unescaped string = unescaped(at, close, end, out, …);     // the second pass: copies and judges
///     if (string.end == nullptr) …                                    // refused: faultInString(at, end) says where
///
/// `end` is always the end of the document. No function reads a byte outside [at, end) and the quote before it. All
/// take time linear in the string. None allocates or keeps a state, so all may be called from several threads at once.
/// None throws, except that `unescaped` passes on what the function throws that it is given.
namespace kelvane::jsonscanner {

/// The quote that closes a string: the first in [at, end) that no backslash escapes, or nullptr. What `at` points to
/// must not be escaped itself. It may be anywhere in the string, so what is known to be plain need not be read again.
const char* closingQuote(const char* at, const char* end) noexcept;

/// Where the string at `at`, after its opening quote, ceases to be well-formed: at a control character, at a byte that
/// is not UTF-8, or at `end` if it is not closed. nullptr if only its escapes can be wrong. For messages to people: it
/// reads one byte after another.
const char* faultInString(const char* at, const char* end) noexcept;

/// What `unescaped` made of a string.
struct Unescaped {
  char* end;     ///< The end of what was written; nullptr if the string is refused.
  bool isASCII;  ///< Whether all that was written is ASCII.
};

/// How much room `unescaped` needs beyond as many bytes as the string has. No escape becomes longer; but 16 bytes are
/// copied at once, even if fewer are left.
inline constexpr std::size_t unescapedSlack = 16;

/// What a reader does about half of a surrogate pair, which UTF-8 cannot hold. It is told where the escape is. If it
/// returns true, U+FFFD is written; if false, the string is refused. `reader` is what `unescaped` was given.
using AllowsLoneSurrogate = bool (*)(void* reader, const char* escape);

/// Copies the string [at, close), whose quotes are around it, to `out`, and replaces its escapes. The string is refused
/// unless it is UTF-8 without control characters, and has no other escapes than those of JSON. `end` is the end of the
/// document. `out` must not overlap the document, and all of its room may be written to.
Unescaped unescaped(const char* at, const char* close, const char* end, char* out, AllowsLoneSurrogate allowsLone,
                    void* reader);

}  // namespace kelvane::jsonscanner
