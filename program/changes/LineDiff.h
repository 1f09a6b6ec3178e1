#pragma once

#include <string>
#include <string_view>

namespace kelvane {

/// What changes between two texts, for a person to read: removed lines after "-", added lines after "+", each group
/// with up to three lines around it after a space and, above it, "@@ line N @@" with the number of its first line in
/// the old text. Empty if the texts are equal. A last line without a line break is followed by one that says so.
///
/// If the texts have little in common, it may show more lines as changed than necessary. Takes time and memory linear
/// in the texts.
std::string lineDiff(std::string_view before, std::string_view after);

}  // namespace kelvane
