#pragma once

#include <cstddef>
#include <limits>

namespace kelvane::tests {

/// While it lives, counts what this thread allocates, and makes allocations fail if a test wants that. At most one per
/// thread. A test's own expectations need memory too, so they come after it.
class CountedMemory {
 public:
  /// From now on, only so many allocations succeed.
  explicit CountedMemory(std::size_t pieces = std::numeric_limits<std::size_t>::max()) noexcept;
  CountedMemory(const CountedMemory&) = delete;
  CountedMemory& operator=(const CountedMemory&) = delete;
  ~CountedMemory();

  /// The number of allocations, including those that failed.
  std::size_t asked() const noexcept;

  /// The number of pieces that were allocated and not freed; negative if older ones were freed.
  std::ptrdiff_t held() const noexcept;
};

}  // namespace kelvane::tests
