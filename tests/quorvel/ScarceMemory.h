#pragma once

#include <cstddef>
#include <limits>

namespace kelvane::tests {

/// While it lives, so many of this thread's allocations that are larger than a limit fail, as if others had the memory.
/// Smaller ones succeed, as those for a sentence do. At most one per thread. What C code allocates is not meant.
class ScarceMemory {
 public:
  static constexpr std::size_t largestPiece = 16 * 1024;

  explicit ScarceMemory(std::size_t failures = std::numeric_limits<std::size_t>::max()) noexcept;
  ScarceMemory(const ScarceMemory&) = delete;
  ScarceMemory& operator=(const ScarceMemory&) = delete;
  ~ScarceMemory();

  /// How many allocations failed.
  std::size_t failed() const noexcept;
};

}  // namespace kelvane::tests
