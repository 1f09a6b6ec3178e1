#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "quorvel/library/SystemCalls.h"

namespace quorvel {

/// Keeps a text that was taken out of a script's place, unless it is kept already. `script` is the script's file name.
using KeepLeftover = std::function<void(const std::string& script, std::string_view text)>;

/// Clears away the temporary files (TemporaryName.h) that writers left in a folder when they died: texts that never
/// were a script's are deleted, those that once were are handed to `keep` first. The files of living writers stay, and
/// so do those whose script is not in the folder any more, as nobody could say whose history they belong to.
///
/// The folder is open for reading. Takes one look at its entries, and does no more where there is nothing to clear.
/// What `keep` throws passes through; the file at hand and those not looked at yet stay then.
void sweepLeftovers(const SystemCalls& calls, int folder, const KeepLeftover& keep);

}  // namespace quorvel
