#pragma once

#include <string>
#include <string_view>

#include "platform/QuorvelCore.h"

/// A heading line's title: how it is read and what may be written as one.
namespace quorvel {

/// Where the rest of a heading's line stands in the script's text: behind the marker, without the line break.
TextRange headingContent(std::string_view text, const ScriptHeading& heading) noexcept;

/// Where the title stands in it: the content without white space at its ends. For a heading without a title an empty
/// range right behind the marker.
TextRange titleRange(std::string_view text, const ScriptHeading& heading) noexcept;

/// The title on one line: each line break (LF, CR, CR LF as one, and the other characters that Unicode ends a line
/// with) gives way to one blank, white space at the ends goes. A line that starts with the marker and goes on with the
/// result has it as its title.
std::string titleOnOneLine(std::string_view title);

/// The title to write for one that a client gives: on one line, and without the marker where it begins with that, as
/// often as it does ("# # New" is "New"), white space before and between the markers included. Empty where nothing is
/// left. A written title given again is the same.
std::string writableTitle(std::string_view title);

}  // namespace quorvel
