#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

/// The name that was probably meant by one that is not among them: the first of those that fewest slips of the keyboard
/// turn into it (a letter too many, missing, wrong, or two swapped), where that is at most one slip in three letters.
std::optional<std::string> nearest(std::string_view typed, const std::vector<std::string>& names);

/// ` Did you mean "…"?` with the nearest name, or nothing at all where none is near.
std::string suggestion(std::string_view typed, const std::vector<std::string>& names);

}  // namespace kelvane
