#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

/// The name that was probably meant by one that is not in the list: the one with the fewest typing errors (a letter too
/// many, missing or wrong, or two swapped), if that is at most one error in three letters. Of several, the first. Empty
/// if no name is that near.
///
///     nearest("conect", {"connect", "disconnect"})  // "connect"
///
/// Takes time proportional to the product of the lengths, and ignores a typed name that is too long to be meant.
std::optional<std::string> nearest(std::string_view typed, const std::vector<std::string>& names);

/// The end of a message: ` Did you mean "…"?` with the nearest name. Empty if no name is near.
std::string suggestion(std::string_view typed, const std::vector<std::string>& names);

}  // namespace kelvane
