#pragma once

#include <fcntl.h>

#include <cerrno>
#include <cstdio>

#include "quorvel/files/Beneath.h"
#include "quorvel/files/SystemCalls.h"

namespace quorvel {

/// Whether the system can swap two files in one step. Without that a text is renamed over the one before, and what
/// tests stage between two swaps never happens.
inline bool systemSwaps() {
  return SystemCalls::ofTheSystem().exchange(-1, "one", "other") == 0 || errno != ENOSYS;
}

inline constexpr const char* noSwaps =
    "The system cannot swap two files in one step. FolderLibrary::write promises less there.";

/// Whether a folder can be opened to be passed through without the right to read it.
inline bool systemPassesUnread() {
  return passingFlags() != (O_RDONLY | O_DIRECTORY);
}

inline constexpr const char* noUnreadPassing = "The system lets no folder be passed through that may not be read.";

/// Swaps two entries of a folder, whatever way ours has: in steps, where there is no other.
inline int swapInAnyWay(int folder, const char* one, const char* other) {
#ifdef RENAME_EXCHANGE
  if (::renameat2(folder, one, folder, other, RENAME_EXCHANGE) == 0) return 0;
#endif
  const bool isSwapped = ::renameat(folder, one, folder, "aside") == 0 && ::renameat(folder, other, folder, one) == 0 &&
                         ::renameat(folder, "aside", folder, other) == 0;
  return isSwapped ? 0 : -1;
}

}  // namespace quorvel
