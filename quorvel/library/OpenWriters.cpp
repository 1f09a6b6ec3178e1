#include "quorvel/library/OpenWriters.h"

#include <fcntl.h>
#include <signal.h>

#include <cerrno>
#include <thread>

namespace quorvel {

// A read lease is granted only while nobody has the file open for writing. It is given back at once; should somebody
// open the file just then, the system would send SIGIO, which ends a program, unless another signal is asked for.
bool waitForWriters([[maybe_unused]] int file, [[maybe_unused]] std::chrono::milliseconds patience) {
#ifdef F_SETLEASE
  const auto deadline = std::chrono::steady_clock::now() + patience;
  if (::fcntl(file, F_SETSIG, SIGURG) != 0) return true;
  while (::fcntl(file, F_SETLEASE, F_RDLCK) != 0) {
    if (errno != EAGAIN) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ::fcntl(file, F_SETLEASE, F_UNLCK);
#endif
  return true;
}

}  // namespace quorvel
