#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "quorvel/files/SystemCalls.h"

namespace quorvel {

/// Keeps a text that was taken out of a script's place, unless it is kept already. `script` is the script's file name.
using KeepLeftover = std::function<void(const std::string& script, std::string_view text)>;

/// The file names of scripts that are known to have been in the folder once. Asked for only where a leftover is of a
/// script that is not there, and once.
using RememberedScripts = std::function<std::vector<std::string>()>;

/// Clears away the temporary files (TemporaryName.h) that writers left in a folder when they died: texts that never
/// were a script's are deleted, those that once were are handed to `keep` first. These stay:
///
///  - the files of living writers;
///  - texts that another program still has open for writing, as far as the system tells;
///  - texts of scripts that are neither there nor remembered, as nobody could say whose history they belong to, unless
///    the file has another name by which it is to be had.
///
/// Returns the hashes (TemporaryName::hash) of the scripts of which a text stays that once was theirs.
///
/// The folder is open for reading. Takes one look at its entries, another where a text is to be kept, and does no more
/// where there is nothing to clear. What `keep` throws passes through; the file at hand and those not looked at yet
/// stay then.
std::vector<std::uint64_t> sweepLeftovers(const SystemCalls& calls, int folder, const KeepLeftover& keep,
                                          const RememberedScripts& remembered);

}  // namespace quorvel
