#pragma once

#include <chrono>

namespace quorvel {

/// How long a program may take to save a script while we wait; shorter than other writers wait for the lock.
inline constexpr std::chrono::seconds patienceWithWriters(2);

/// Waits until no program has the file open for writing any more. False when one still has after that time. Where the
/// system cannot tell (another system, a disk over the network or of a rarer kind, a file of another owner) it answers
/// at once that none has. `file` is open for reading only, and by nobody else in this process for writing.
bool waitForWriters(int file, std::chrono::milliseconds patience);

}  // namespace quorvel
