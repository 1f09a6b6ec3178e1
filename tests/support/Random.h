#pragma once

#include <cstdlib>
#include <iostream>
#include <iterator>
#include <random>

namespace kelvane::tests {

/// The seed of a random test. Prints it, and reads it from KELVANE_SEED if that is set, so that a failure can be
/// repeated.
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

/// A random element of an array or of a contiguous container.
template <class Elements>
const auto& oneOf(const Elements& elements, std::mt19937_64& generator) {
  return std::data(elements)[below(std::size(elements), generator)];
}

}  // namespace kelvane::tests
