#pragma once

#include <filesystem>

#include "quorvel/settings/FileError.h"

namespace quorvel {

/// Makes a folder and those above it that are missing, for their owner only. Does nothing if it exists. Throws
/// FileError if one cannot be made; those above it that were made by then stay.
void makeFolder(const std::filesystem::path& folder);

/// Throws what `makeFolder` would throw, as far as that can be told, and makes nothing.
void tryMakingFolder(const std::filesystem::path& folder);

}  // namespace quorvel
