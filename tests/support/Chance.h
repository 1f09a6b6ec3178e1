#pragma once

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>

namespace kelvane::chance {

/// The seed for a randomised test: KELVANE_SEED where that is set, so that a failure can be repeated, else a new one.
/// Prints it.
inline std::uint64_t seed() {
  const char* fixed = std::getenv("KELVANE_SEED");
  const std::uint64_t value = fixed ? std::strtoull(fixed, nullptr, 10) : std::random_device{}();
  std::cout << "KELVANE_SEED=" << value << '\n';
  return value;
}

/// An index below `count`, each as likely as the next.
inline std::size_t below(std::size_t count, std::mt19937_64& random) {
  return std::uniform_int_distribution<std::size_t>(0, count - 1)(random);
}

/// One of the elements.
template <class Range>
const auto& anyOf(const Range& range, std::mt19937_64& random) {
  return std::data(range)[below(std::size(range), random)];
}

}  // namespace kelvane::chance
