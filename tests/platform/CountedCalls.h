#pragma once

#include <poll.h>
#include <sys/types.h>

#include <cstddef>
#include <functional>

namespace kelvane::tests {

/// While it lives, counts the calls by which this thread reads, writes, waits and searches, so that a test needs no
/// clock. At most one per thread.
class CountedCalls {
 public:
  CountedCalls() noexcept;
  CountedCalls(const CountedCalls&) = delete;
  CountedCalls& operator=(const CountedCalls&) = delete;
  ~CountedCalls();

  std::size_t reads = 0;
  std::size_t writes = 0;
  std::size_t waits = 0;
  std::size_t searched = 0;  ///< Bytes that were looked through for one byte.

  std::size_t mostPerRead = static_cast<std::size_t>(-1);
  std::function<void()> beforeEachTry;                 ///< Before each read and write.
  std::function<void(const pollfd&, int)> onEachWait;  ///< Gets what is waited for and the time limit.
};

}  // namespace kelvane::tests
