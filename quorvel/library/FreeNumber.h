#pragma once

#include <cstddef>
#include <functional>

namespace quorvel {

/// A number from `first` on that was free when this looked: the lowest of them among the next hundred, and behind these
/// one whose predecessor is taken, found in a number of looks that grows with the logarithm of the number. Where all of
/// the first billion are taken, one that was not looked at.
std::size_t findFreeNumber(std::size_t first, const std::function<bool(std::size_t number)>& isTaken);

}  // namespace quorvel
