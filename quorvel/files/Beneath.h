#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/Expected.h"
#include "quorvel/files/SystemCalls.h"

/// Opening what an identifier names beneath a folder that is already open, so that no link, swapped in at whatever
/// moment, leads out of it. Paths are bytes.
namespace quorvel {

/// The identifier of an entry in a folder, whose own is empty for the library's. `suffix` follows the name.
std::string joined(std::string_view folder, std::string_view name, std::string_view suffix = {});

/// The pieces of an identifier, without empty ones and ".".
std::vector<std::string_view> pieces(std::string_view identifier);

/// Whether an identifier can name something beneath a folder: it is relative and holds neither a piece ".." nor a NUL.
bool staysBeneath(std::string_view identifier) noexcept;

/// Opens what has this identifier beneath the folder, the folder itself for an empty one; the descriptor is never
/// inherited by other programs. `flags` are those of open(2) and create nothing. Errors, beside the system's own:
/// EINVAL unless the identifier stays beneath, ELOOP or ENOTDIR where a symbolic link stands on the way or at its end.
/// Where the system cannot open a whole path so, it goes piece by piece.
Expected<Descriptor> openBeneath(const SystemCalls& calls, int folder, std::string_view identifier, int flags);

/// The same, piece by piece, with open(2) alone.
Expected<Descriptor> openPieceByPiece(int folder, std::string_view identifier, int flags);

/// What open(2) needs for a folder that is only passed through: no right to read it where the system can do without.
int passingFlags() noexcept;

}  // namespace quorvel
