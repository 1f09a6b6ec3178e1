#pragma once

#include <string>

#include "quorvel/files/Descriptor.h"

namespace quorvel {

/// A path that leads to this opened folder and to no other, for as long as it is open, whatever happens to its name and
/// to those above it. For code that takes nothing but paths. It is the system's word for the descriptor below /proc, so
/// it means the folder in this process alone, and nothing where there is no /proc: ask `leadsToFolder` first.
std::string openedFolderPath(const Descriptor& folder);

/// Whether that path does lead to the folder. If not, errno is ENOENT or ENOTDIR when it leads to nothing or elsewhere,
/// and otherwise the reason why the system does not tell.
bool leadsToFolder(const std::string& path, const Descriptor& folder) noexcept;

}  // namespace quorvel
