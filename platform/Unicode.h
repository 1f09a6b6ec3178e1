#pragma once

#include <compare>
#include <cstddef>
#include <string>
#include <string_view>

/// What the program knows of Unicode: all of it stands here, with a fast path for ASCII.
///
/// Texts are UTF-8. Where bytes are not, each maximal ill-formed part counts as one U+FFFD (The Unicode Standard,
/// section 3.9), unless an operation says otherwise. Nothing throws but std::bad_alloc, and every operation takes time
/// linear in its text. Characters are extended grapheme clusters (Unicode Standard Annex #29).
namespace kelvane::unicode {

bool isASCII(std::string_view text) noexcept;

bool isValidUTF8(std::string_view text) noexcept;

/// How many bytes at the start of the text are valid UTF-8: all of them, or the offset of the first that is not.
std::size_t validUTF8Prefix(std::string_view text) noexcept;

/// The text with U+FFFD for each maximal ill-formed part.
std::string replacingInvalidUTF8(std::string_view text);

/// The text's canonical composition (NFC, Unicode Standard Annex #15); a text that is not valid UTF-8 as it is.
std::string canonicalForm(std::string_view text);

/// Whether two texts are canonically equivalent; when either is not valid UTF-8, whether they are the same bytes.
/// Needs no memory.
bool equivalent(std::string_view left, std::string_view right) noexcept;

/// The order of the bytes of the two canonical forms, which for ASCII is the order of the texts' bytes. Total, and
/// equal exactly where `equivalent` says so. Needs no memory.
std::strong_ordering order(std::string_view left, std::string_view right) noexcept;

/// The offset just behind the character that starts at `offset`, itself less than the text's size.
std::size_t characterEnd(std::string_view text, std::size_t offset) noexcept;

/// How many characters the text has.
std::size_t characterCount(std::string_view text) noexcept;

/// Whether the character that the text starts with is white space: whether its first scalar has the property
/// White_Space. False for an empty text.
bool startsWithWhiteSpace(std::string_view text) noexcept;

/// How many words the text has: maximal runs of characters none of which is white space.
std::size_t wordCount(std::string_view text) noexcept;

/// The text without the white space characters at its ends; a part of `text`.
std::string_view trimmingWhiteSpace(std::string_view text) noexcept;

/// The text without the tabs and space separators (general category Zs) at its ends, scalar by scalar; line breaks
/// stay. A part of `text`.
std::string_view trimmingSpacesAndTabs(std::string_view text) noexcept;

/// The text in lower case, by Unicode's simple mappings; ill-formed parts stay as they are.
std::string lowercased(std::string_view text);

/// What is left of a text when letter case and accents do not matter: full case folding, decomposed, without marks.
/// For comparing only. Ill-formed parts stay as they are.
std::string folded(std::string_view text);

}  // namespace kelvane::unicode
