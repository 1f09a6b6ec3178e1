#pragma once

#include <string_view>

#include "quorvel/files/Descriptor.h"

/// The folder inside a library that holds what the program keeps for itself there: the lock and the version history.
/// It is made with mode 0700, because the history holds the texts of scripts that may be private.
namespace quorvel {

inline constexpr std::string_view ownFolderName = ".kelvane";

/// The files in it.
inline constexpr const char* lockFileName = "lock";
inline constexpr const char* historyFileName = "history.sqlite";

/// Opens the folder in the opened root of the library, without following a link. No descriptor when there is none.
/// Throws std::system_error: ENOTDIR when a file or a symbolic link has its name.
Descriptor openOwnFolder(const Descriptor& root);

/// The same, made first where it is missing; it is on the disk for good then. Throws std::system_error.
Descriptor makeOwnFolder(const Descriptor& root);

/// Flushes an opened folder, so that the names in it are on the disk for good. Throws std::system_error.
void flushFolder(const Descriptor& folder);

/// The same for a folder that need not be open for reading.
void flushRoot(const Descriptor& root);

}  // namespace quorvel
