#pragma once

#include <chrono>
#include <filesystem>
#include <memory>

#include "platform/QuorvelLibrary.h"

namespace quorvel {

/// Takes the lock of the library at `root`: a lock of flock(2) on the file "lock" in the library's own folder, made
/// where it is missing and never removed. It holds against other processes and against other threads of this one, is
/// inherited by no program, and is let go by the system when the process dies, however it dies. Nobody who lets go of
/// it gets it again before one who waits.
///
/// When this returns, the root led to the folder whose lock it is. Who has it holds that opened folder as well, so that
/// OpenedRoot::find gives this thread the same one until the lock is let go.
///
/// Throws LibraryError when others hold it for all of `patience`, when it cannot be made, and when the folders are
/// moved away or replaced for all of `patience`.
std::unique_ptr<LibraryLock> lockLibrary(const std::filesystem::path& root, std::chrono::milliseconds patience);

}  // namespace quorvel
