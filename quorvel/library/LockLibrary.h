#pragma once

#include <chrono>
#include <filesystem>
#include <memory>

#include "platform/QuorvelLibrary.h"
#include "quorvel/files/SystemCalls.h"

namespace quorvel {

/// Locks the library at `root` for this thread, until the result is destroyed.
///
/// The lock is one of flock(2) on the file "lock" in the library's own folder, which is made if it is missing and never
/// deleted. It keeps out other processes and other threads of this one. Programs that this one starts do not inherit
/// it, and the system releases it when the process dies. It is fair: releasing it lets a waiting process go first,
/// except where folders cannot be locked.
///
/// When this returns, `root` led to the folder whose lock it is. The lock holds that folder, the library's own folder
/// in it and the file open. Until it is released, OpenedRoot::find, HeldOwnFolder::of and WritersNote::of return these
/// in this thread.
///
/// Throws LibraryError if others hold the lock for all of `patience`, if it cannot be made, and if the folders are
/// moved away or replaced again and again for all of `patience`. Without other writers it takes some ten system calls.
std::unique_ptr<LibraryLock> lockLibrary(const SystemCalls& calls, const std::filesystem::path& root,
                                         std::chrono::milliseconds patience);

}  // namespace quorvel
