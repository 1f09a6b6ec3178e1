#pragma once

namespace quorvel {

/// Gives `to` the owner, group, mode, access lists and extended attributes of the user's that `from` has, and takes
/// away the access list that the folder gave it. Both are open files of one file system, `to` is the caller's own.
/// False, with the reason in errno, when `to` could not be made the same.
bool copyAttributes(int from, int to);

}  // namespace quorvel
