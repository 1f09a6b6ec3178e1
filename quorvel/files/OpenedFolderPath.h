#pragma once

#include <string>
#include <system_error>

#include "quorvel/files/Descriptor.h"

namespace quorvel {

/// A path that leads to this open folder and to no other as long as it is open, even if the folder or one above it is
/// renamed. For code that takes only paths. It is the name of the descriptor below /proc, so it works in this process
/// alone, and leads to nothing without /proc.
std::string openedFolderPath(const Descriptor& folder);

}  // namespace quorvel
