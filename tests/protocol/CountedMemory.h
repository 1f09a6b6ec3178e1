#pragma once

#include <cstddef>
#include <limits>

namespace kelvane::tests {

/// Counts what this thread takes of the heap while it lives, and lets memory run out where a test wants that. One at a
/// time a thread. A test's own expectations need memory, too, so they stand behind it.
class CountedMemory {
 public:
  /// So many more pieces of memory can be had.
  explicit CountedMemory(std::size_t pieces = std::numeric_limits<std::size_t>::max()) noexcept;
  CountedMemory(const CountedMemory&) = delete;
  CountedMemory& operator=(const CountedMemory&) = delete;
  ~CountedMemory();

  /// How many pieces were asked for, those that could not be had among them.
  std::size_t asked() const noexcept;

  /// How many pieces were taken and not given back; less than 0 where older ones were given back.
  std::ptrdiff_t held() const noexcept;
};

}  // namespace kelvane::tests
