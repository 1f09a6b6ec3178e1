#pragma once

#include <chrono>
#include <filesystem>

#include "quorvel/files/Descriptor.h"

namespace quorvel {

/// Keeps other changes of ours out of a folder for as long as the result lives. None when somebody else held the folder
/// for all of that time, or it cannot be locked.
Descriptor takeTurn(const std::filesystem::path& folder, std::chrono::milliseconds patience);

}  // namespace quorvel
