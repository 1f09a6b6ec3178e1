#pragma once

#include <filesystem>

#include "quorvel/settings/FileError.h"

namespace quorvel {

/// Makes a folder and those above it that are missing, for their owner only. Throws FileError.
void makeFolder(const std::filesystem::path& folder);

/// Throws what `makeFolder` would throw, as far as that can be told without making anything.
void tryMakingFolder(const std::filesystem::path& folder);

}  // namespace quorvel
