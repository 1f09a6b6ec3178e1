#pragma once

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/Expected.h"
#include "quorvel/files/PathBeneath.h"
#include "quorvel/files/SystemCalls.h"

namespace quorvel {

/// Opens what a path names beneath an open folder, or the folder itself for the empty path. No symbolic link is
/// followed, on the way or at the end, so no link leads out of the folder, whenever it is put there.
///
/// `flags` are those of open(2) and create nothing. Programs that this one starts do not inherit the descriptor.
/// Errors, beside the system's own: ELOOP or ENOTDIR where a symbolic link is on the way or at the end, ENAMETOOLONG
/// for a path of PATH_MAX bytes or more. One system call; where the system cannot open a whole path in this way, one
/// for each piece.
Expected<Descriptor> openBeneath(const SystemCalls& calls, int folder, const PathBeneath& path, int flags);

/// The same, piece by piece, with open(2) alone.
Expected<Descriptor> openPieceByPiece(int folder, const PathBeneath& path, int flags);

/// The flags of open(2) for a folder that is only passed through. Where the system can do without it, no right to read
/// the folder is needed.
int passingFlags() noexcept;

}  // namespace quorvel
