#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Lines, blank lines and white space as the chapter model and its edits see them.
///
/// Lines end in LF or CR LF; a CR without LF ends no line. A byte-order mark at the very start of a script is not part
/// of its first line. A line is blank when it holds nothing but white space, scalar by scalar: one with a mark on a
/// blank is not, so that no mark is ever dropped.
///
/// Every operation takes time linear in the part of the text that it looks at; only `inLineBreaks` copies.
namespace quorvel {

/// How many bytes a byte-order mark at the text's start takes: 3, or 0 where there is none.
std::size_t byteOrderMarkSize(std::string_view text) noexcept;

/// Where the line that begins at `begin` ends, its line break included.
std::size_t lineEnd(std::string_view text, std::size_t begin) noexcept;

/// How many bytes the line break at the text's end takes: 2 for CR LF, 1 for LF, 0 where there is none.
std::size_t finalBreakSize(std::string_view text) noexcept;

/// The line break that the text itself uses: the more frequent of LF and CR LF. LF on a tie, so also where there is
/// none.
std::string_view ownLineBreak(std::string_view text) noexcept;

/// What a client gives, in a script whose own line break is that one: each LF gives way to it. A text that has a CR LF
/// stays as it is, since whoever sent it chose its line breaks.
std::string inLineBreaks(std::string_view given, std::string_view lineBreak);

/// How many line breaks have to follow the text (0, 1 or 2) so that what comes then stands at the start of a line and
/// has a blank line above it. None for an empty text, be it for a byte-order mark.
std::size_t missingBreaks(std::string_view text) noexcept;

/// The text up to the end of its last line that is not blank, without that line's break. What of a chapter moves with
/// it; the rest separates it from the next. Empty for a text that is blank. Ends in no CR, so that whatever begins with
/// a line break can follow.
std::string_view withoutBlankLinesAtEnd(std::string_view text) noexcept;

/// What of a text is written below a heading: all but the blank lines at its start and end, for which an edit puts its
/// own. Everything between stays byte for byte. Empty for a text that is blank.
std::string_view passage(std::string_view text) noexcept;

}  // namespace quorvel
