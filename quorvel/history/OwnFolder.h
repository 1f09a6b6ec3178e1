#pragma once

#include <string_view>

#include "quorvel/files/Descriptor.h"

/// The library's own folder, `.kelvane`: the folder inside a library that contains the lock and the version history. It
/// is created with mode 0700, because the history contains the texts of scripts, which may be private.
///
/// The functions follow no link and may be called from several threads. They throw std::system_error.
namespace quorvel {

inline constexpr std::string_view ownFolderName = ".kelvane";

/// The files in it.
inline constexpr const char* lockFileName = "lock";
inline constexpr const char* historyFileName = "history.sqlite";

/// Opens the folder in the opened root of the library. No descriptor if there is none. The error is ENOTDIR if a file
/// or a symbolic link has its name.
Descriptor openOwnFolder(const Descriptor& root);

/// The same, but creates the folder if it is missing, and flushes the root so that a power failure cannot remove it.
Descriptor makeOwnFolder(const Descriptor& root);

/// Flushes an opened folder, so that a power failure cannot change the names in it.
void flushFolder(const Descriptor& folder);

/// The same for a folder that is not necessarily open for reading.
void flushRoot(const Descriptor& root);

}  // namespace quorvel
