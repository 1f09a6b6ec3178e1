#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "quorvel/files/SystemCalls.h"

namespace quorvel {

/// Saves a text that once was a script's as a version of it, unless one of its versions has it. `script` is the
/// script's file name.
using KeepLeftover = std::function<void(const std::string& script, std::string_view text)>;

/// The file names of the scripts that are known to have been in the folder. Asked for at most once, and only if a
/// leftover belongs to a script that is not there.
using RememberedScripts = std::function<std::vector<std::string>()>;

/// What a sweep left in a folder.
struct SweptLeftovers {
  /// The hashes (TemporaryName::hash) of the scripts that still have a text of theirs among the files that stay.
  std::vector<std::uint64_t> scripts;

  /// Whether surely no file of a dead writer stays. False also if the folder could not be read to its end.
  bool areGone = true;
};

/// Deletes the temporary files (TemporaryName.h) that writers left in a folder when they died. A text that once was a
/// script's goes to `keep` first. These files stay:
///
///  - those of living writers;
///  - those that another program has open for writing, as far as the system tells;
///  - texts of scripts that are neither there nor remembered, because nobody could say whose history they belong to,
///    unless they are empty or the file has another name.
///
/// `folder` is open for reading. If nothing is to be deleted, the cost is one look at the folder's entries; a text for
/// `keep` costs one more look in all. What `keep` throws passes through: that file and those after it stay.
SweptLeftovers sweepLeftovers(const SystemCalls& calls, int folder, const KeepLeftover& keep,
                              const RememberedScripts& remembered);

}  // namespace quorvel
