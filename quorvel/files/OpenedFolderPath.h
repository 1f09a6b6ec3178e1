#pragma once

#include <string>

#include "quorvel/files/Descriptor.h"

namespace quorvel {

/// A path that leads to this opened folder and to no other, for as long as it is open, whatever happens to its name and
/// to those above it. For code that takes nothing but paths. It is the system's word for the descriptor below /proc, so
/// it means the folder in this process alone, and nothing where there is no /proc.
std::string openedFolderPath(const Descriptor& folder);

}  // namespace quorvel
