#pragma once

#include <cstddef>
#include <functional>

namespace quorvel {

/// A number from `first` on that is not used: the lowest one, if it is among the next hundred. If all of these are
/// used, one whose predecessor is used, found with O(log n) calls of `isUsed`: creating the 100,000th "Untitled" must
/// not ask the disk 100,000 times. Asks at most about 160 times, whatever the answers; if all
/// of the first billion numbers are said to be used, returns one that it did not ask about.
std::size_t findFreeNumber(std::size_t first, const std::function<bool(std::size_t number)>& isUsed);

}  // namespace quorvel
