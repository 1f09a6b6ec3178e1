#pragma once

#include <chrono>
#include <optional>

namespace quorvel {

/// How long a program may take to save a script while we wait. Shorter than other writers wait for the library's lock.
inline constexpr std::chrono::seconds patienceWithWriters(2);

/// Whether a program has the file open for writing; nothing where the system cannot tell: on systems other than Linux,
/// on disks over the network and of rarer kinds, and for files of another owner. `file` is open for reading only, and
/// nobody in this process has it open for writing. A program that opens the file while it is asked about is not
/// disturbed. May set which signal the descriptor sends (F_SETSIG).
std::optional<bool> hasWriter(int file);

/// Waits until no program has the file open for writing. Returns false if one still has when the time is up; 0 asks
/// once. Where the system cannot tell, the answer is true at once.
bool waitForWriters(int file, std::chrono::milliseconds patience);

}  // namespace quorvel
