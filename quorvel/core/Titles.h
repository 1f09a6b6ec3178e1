#pragma once

#include <string>
#include <string_view>

#include "platform/QuorvelCore.h"

/// The title of a heading line: how it is read, and how a new one is written.
///
/// Pure functions, linear in the heading line or in the given title. Headings must be those of the given text.
namespace quorvel {

/// The range of a heading's line after the marker, without the line break. Titles are read and written within it.
TextRange headingContent(std::string_view text, const ScriptHeading& heading) noexcept;

/// The range of the title: the content without white space at its start and end. If the heading has no title, the empty
/// range directly after the marker.
TextRange titleRange(std::string_view text, const ScriptHeading& heading) noexcept;

/// The title on one line: each line break becomes a space, then white space at the start and end is removed. Line
/// breaks are LF, CR, CR LF as one, and the other mandatory breaks of Unicode. A heading line that is written with the
/// result has it as its title.
std::string titleOnOneLine(std::string_view title);

/// The title to write for a client's title: on one line, without markers at its start and the white space before and
/// between them, so "# # New" becomes "New". Empty if nothing is left. Applying it again changes nothing.
std::string writableTitle(std::string_view title);

}  // namespace quorvel
