#pragma once

#include <string>
#include <system_error>

#include "quorvel/files/Descriptor.h"

namespace quorvel {

/// A path that leads to this open folder and to no other as long as it is open, even if the folder or one above it is
/// renamed. For code that takes only paths. It is the name of the descriptor below /proc, so it works in this process
/// alone, and not at all without /proc: check with `errorOfPath` first.
std::string openedFolderPath(const Descriptor& folder);

/// Why a path does not lead to the folder: ENOENT or ENOTDIR if it leads to nothing or elsewhere, otherwise the reason
/// why the system does not tell. No error if it does.
std::error_code errorOfPath(const std::string& path, const Descriptor& folder) noexcept;

}  // namespace quorvel
