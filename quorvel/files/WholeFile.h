#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/Expected.h"
#include "quorvel/files/SystemCalls.h"

namespace quorvel {

/// The largest size of a script in bytes: 256 MiB, some 40 million words. A script is in memory as a whole, several
/// times during a call, and must fit into one row of the version history. The same limit holds for the other files that
/// are read whole. What is larger is refused before any of it is read.
inline constexpr std::size_t largestText = std::size_t{256} << 20;

/// The same in words, for sentences.
inline constexpr const char* largestTextInWords = "256 MiB";

/// Opens what has a name in a folder for reading, whatever it is, without following a link and without waiting for a
/// pipe's other end.
Expected<Descriptor> openToRead(int folder, const std::string& name);

/// All bytes from the descriptor's position to the file's end. Errors, beside the system's own:
///
///  - EFBIG if the file is larger than `largestText`; none of it is read then;
///  - EBUSY if it grows while it is read, because another program is writing it then.
///
/// Some files say that they are empty until they are read; they are read to their end, too. Linear in the file.
Expected<std::string> readToEnd(int file, const SystemCalls& calls = SystemCalls::ofTheSystem());

/// The same, for a file whose size was just asked for.
Expected<std::string> readToEnd(int file, off_t size, const SystemCalls& calls);

}  // namespace quorvel
