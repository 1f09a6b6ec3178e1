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

/// The title that a heading line can carry: each line break (LF, CR, CR LF as one, and the other characters that
/// Unicode ends a line with) gives way to one blank, white space at the ends goes. A line that starts with the marker
/// and goes on with the result is one line, and its title is the result.
std::string writableTitle(std::string_view title);

}  // namespace quorvel
