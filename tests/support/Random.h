#pragma once

#include <cstdlib>
#include <iostream>
#include <iterator>
#include <random>

namespace kelvane::tests {

/// The seed to begin with: printed, and taken from KELVANE_SEED where that is set, so that a failure can be repeated.
inline std::uint64_t firstSeed() {
  const char* given = std::getenv("KELVANE_SEED");
  const std::uint64_t seed = given ? std::strtoull(given, nullptr, 10) : std::random_device{}();
  std::cout << "KELVANE_SEED=" << seed << '\n';
  return seed;
}

/// A generator with that seed.
inline std::mt19937_64 seededGenerator() {
  return std::mt19937_64(firstSeed());
}

/// A number from 0 to `bound` - 1.
inline std::size_t below(std::size_t bound, std::mt19937_64& generator) {
  return std::uniform_int_distribution<std::size_t>(0, bound - 1)(generator);
}

/// One of the elements of an array or a container that has them in a row.
template <class Elements>
const auto& oneOf(const Elements& elements, std::mt19937_64& generator) {
  return std::data(elements)[below(std::size(elements), generator)];
}

}  // namespace kelvane::tests
