#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Lines, white space and line breaks as the chapter model and its edits see them.
///
/// A line ends in LF or CR LF; a CR without LF does not end a line. A byte-order mark at the start of a script is not
/// part of its first line. A line is empty if every scalar in it is white space. A line with a space that carries a
/// combining mark is therefore not empty, so that no mark is ever dropped.
///
/// Pure functions. Each takes time linear in the part of the text that it looks at; only `inLineBreaks` allocates. The
/// views that are returned are parts of the argument and live as long.
namespace quorvel {

/// The size of the byte-order mark at the start of the text: 3, or 0 if there is none.
std::size_t byteOrderMarkSize(std::string_view text) noexcept;

/// The end of the line that begins at `begin`, its line break included.
std::size_t lineEnd(std::string_view text, std::size_t begin) noexcept;

/// The size of the line break at the end of the text: 2 for CR LF, 1 for LF, 0 if there is none.
std::size_t finalBreakSize(std::string_view text) noexcept;

/// The line break that the text itself uses: the more frequent of LF and CR LF. LF on a tie, and for a text of one
/// line.
std::string_view ownLineBreak(std::string_view text) noexcept;

/// A client's text with its line breaks changed to `lineBreak`, the script's own. A text that contains a CR LF is
/// returned as it is: its sender chose the line breaks.
std::string inLineBreaks(std::string_view given, std::string_view lineBreak);

/// How many line breaks (0, 1 or 2) must follow the text so that what comes next starts a line with an empty line above
/// it. 0 if the text is empty or only a byte-order mark.
std::size_t missingBreaks(std::string_view text) noexcept;

/// The text through its last line that is not empty, without that line's break. Empty if every line is empty. This is
/// the part of a chapter that moves with it; the rest separates it from the next chapter. It does not end in a CR,
/// which would join a LF written after it.
std::string_view withoutEmptyLinesAtEnd(std::string_view text) noexcept;

/// The text without empty lines at its start and end, byte for byte: the part of a client's text that is written below
/// a heading. An edit adds its own empty lines. Empty if every line is empty.
std::string_view passage(std::string_view text) noexcept;

}  // namespace quorvel
