#pragma once

#include <fcntl.h>

#include <cerrno>

#include "quorvel/files/Beneath.h"
#include "quorvel/files/SystemCalls.h"

namespace quorvel {

/// Whether the system can swap two files in one step. Without that a text is renamed over the one before, and what
/// tests stage between two swaps never happens.
inline bool systemSwaps() {
  return SystemCalls::ofTheSystem().exchange(-1, "one", "other") == 0 || errno != ENOSYS;
}

inline constexpr const char* noSwaps = "The system cannot swap two files in one step.";

/// Whether a folder can be opened to be passed through without the right to read it.
inline bool systemPassesUnread() {
  return passingFlags() != (O_RDONLY | O_DIRECTORY);
}

inline constexpr const char* noUnreadPassing = "The system lets no folder be passed through that may not be read.";

}  // namespace quorvel
