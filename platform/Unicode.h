#pragma once

#include <compare>
#include <cstddef>
#include <string>
#include <string_view>

/// Everything that the program knows of Unicode: UTF-8, equality of strings, characters, white space, words and letter
/// case. The data are those of Unicode 15.
///
///     unicode::equivalent("caf\u00E9", "cafe\u0301");   // true: both say "café"
///     unicode::wordCount("One  two\nthree");            // 3
///     unicode::trimmingWhiteSpace(" \tTitle\n");        // "Title"
///
/// Terms. A scalar is a code point that is not a surrogate. A character is an extended grapheme cluster (Unicode
/// Standard Annex #29): what a reader sees as one, such as "e" with an accent, an emoji with a skin colour, or CR LF.
///
/// Input. Strings are UTF-8. Bytes that are not UTF-8 are permitted everywhere: each maximal ill-formed part counts as
/// one U+FFFD (The Unicode Standard, section 3.9, "U+FFFD Substitution of Maximal Subparts"), unless an operation says
/// otherwise.
///
/// Cost. Every operation takes time linear in its strings, with a fast path for ASCII. Those that return a std::string
/// may throw std::bad_alloc; the others allocate nothing and never fail.
///
/// All are pure functions, which may be called from several threads at once. A view that is returned is a part of the
/// argument and lives as long.
namespace kelvane::unicode {

/// Whether every byte is less than 0x80. True for an empty string.
bool isASCII(std::string_view text) noexcept;

/// Whether the string is well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUTF8(std::string_view text) noexcept;

/// How many bytes at the start of the string are valid UTF-8: the offset of the first byte that is not, or the size.
std::size_t validUTF8Prefix(std::string_view text) noexcept;

/// The string with U+FFFD in place of each maximal ill-formed part. The result is valid UTF-8.
std::string replacingInvalidUTF8(std::string_view text);

/// The canonical composition (NFC, Unicode Standard Annex #15). A string that is not valid UTF-8 is returned as it is.
std::string canonicalForm(std::string_view text);

/// Whether two strings are canonically equivalent, that is, whether their canonical forms are equal. If either is not
/// valid UTF-8: whether their bytes are equal.
bool equivalent(std::string_view left, std::string_view right) noexcept;

/// Compares the bytes of the two canonical forms; for ASCII these are the strings' own bytes. A total order, and equal
/// exactly if the strings are `equivalent`. It is not the order of any language.
std::strong_ordering order(std::string_view left, std::string_view right) noexcept;

/// The end of the character that starts at `offset`. `offset` must be less than the size and must be the start of a
/// character, such as 0 or an earlier result.
///
///     for (std::size_t at = 0; at < text.size(); at = characterEnd(text, at)) …
std::size_t characterEnd(std::string_view text, std::size_t offset) noexcept;

/// The number of characters.
std::size_t characterCount(std::string_view text) noexcept;

/// Whether the first character is white space, that is, whether its first scalar has the property White_Space. So a
/// space with a combining mark on it is white space. False for an empty string.
bool startsWithWhiteSpace(std::string_view text) noexcept;

/// The number of words: maximal runs of characters of which none is white space.
std::size_t wordCount(std::string_view text) noexcept;

/// The string without the white space at its start and end, removed by whole characters.
std::string_view trimmingWhiteSpace(std::string_view text) noexcept;

/// The string without the tabs and space separators (general category Zs) at its start and end, removed scalar by
/// scalar. Line breaks stay, and so does a combining mark on a space.
std::string_view trimmingSpacesAndTabs(std::string_view text) noexcept;

/// The string in lower case, by Unicode's simple mappings: each scalar becomes one scalar, in no particular language.
/// Ill-formed parts stay as they are.
std::string lowercased(std::string_view text);

/// What remains of a string if letter case and accents do not matter: full case folding, decomposed, without marks, so
/// that "STRASSE" and "Straße" become equal. For comparing only, not for showing. Ill-formed parts stay as they are.
std::string folded(std::string_view text);

}  // namespace kelvane::unicode
