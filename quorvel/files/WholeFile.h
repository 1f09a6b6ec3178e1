#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/SystemCalls.h"

namespace quorvel {

/// The largest size of a script in bytes, 256 MiB: some 40 million words. A script is in memory as a whole, several
/// times while it is edited and answered with, and it must fit into one row of the version history. The same holds for
/// the other files that are read whole. What is larger is refused before any of it is read.
inline constexpr std::size_t largestText = std::size_t{256} << 20;

/// The same in words, for sentences.
inline constexpr const char* largestTextInWords = "256 MiB";

/// Opens what has a name in a folder for reading, whatever it is, without following a link and without waiting for a
/// pipe's other end. None, with the reason in errno, when it cannot be opened.
Descriptor openToRead(int folder, const std::string& name);

/// All bytes from where the file stands to its end. Nothing, with the reason in errno, when they cannot be read:
///
///  - EFBIG when it is larger than `largestText`, which costs no look at its bytes;
///  - EBUSY when it grows while it is read, as another program is writing it then.
///
/// Some files say that they are empty until they are read; they are read to their end, too.
std::optional<std::string> readToEnd(int file, const SystemCalls& calls = SystemCalls::ofTheSystem());

}  // namespace quorvel
