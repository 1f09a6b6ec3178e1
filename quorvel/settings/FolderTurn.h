#pragma once

#include <chrono>
#include <filesystem>

#include "quorvel/files/Descriptor.h"

namespace quorvel {

/// Locks a folder against other changes of ours, in this and other processes, for as long as the result lives. Tries
/// again once a millisecond until `patience` is over. Empty if another one holds the lock all that time, or if the
/// folder cannot be opened or locked. Programs that do not ask for the lock are not kept out.
Descriptor takeTurn(const std::filesystem::path& folder, std::chrono::milliseconds patience);

}  // namespace quorvel
