#pragma once

#include <string>
#include <string_view>

namespace kelvane {

/// What changes between two texts, for a person to read: the lines that go behind "-" and those that come behind "+",
/// each group with up to three lines around it behind a blank and, above it, "@@ line N @@" with the first one's number
/// in the old text. Empty when nothing changes. A last line without a line break is followed by one that says so.
///
/// Where texts have little in common it may show more lines as changed than need be; it takes time and memory linear in
/// the texts.
std::string lineDiff(std::string_view before, std::string_view after);

}  // namespace kelvane
