#pragma once

#include <chrono>

namespace quorvel {

/// How long a program may take to save a script while we wait. Shorter than other writers wait for the library's lock.
inline constexpr std::chrono::seconds patienceWithWriters(2);

/// Waits until no program has the file open for writing. Returns false if one still has when the time is up; 0 asks
/// once. `file` is open for reading only, and nobody in this process has it open for writing.
///
/// Where the system cannot tell, the answer is true at once: on systems other than Linux, on disks over the network and
/// of rarer kinds, and for files of another owner. A program that opens the file while it is asked about is not
/// disturbed. May set which signal the descriptor sends (F_SETSIG).
bool waitForWriters(int file, std::chrono::milliseconds patience);

}  // namespace quorvel
