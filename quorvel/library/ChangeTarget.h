#pragma once

#include <string>
#include <string_view>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/SystemCalls.h"

/// Finding what is to be changed, beneath the root, without following links and outside the library's own folder. The
/// latter is known by its file number and not only by its name, since letter case may not count or a folder may be
/// mounted twice.
namespace quorvel {

/// A folder in which something is to change.
struct ChangingFolder {
  Descriptor folder;       ///< Open for reading.
  std::string identifier;  ///< Without empty pieces and ".".

  /// The identifier of an entry in it.
  std::string identifierOf(std::string_view name) const;
};

/// An entry that is to change.
struct ChangingEntry {
  ChangingFolder in;
  std::string name;

  std::string identifier() const { return in.identifierOf(name); }
};

/// Both throw LibraryError, whose sentence begins with `happened`, as in "\"Talk.md\" could not be written". `root` is
/// the library's folder.
ChangingFolder folderToChange(const SystemCalls& calls, const Descriptor& root, std::string_view identifier,
                              const std::string& happened);

/// Also throws for the empty identifier: the library's folder is in no folder of the library. The entry itself need
/// not be there.
ChangingEntry entryToChange(const SystemCalls& calls, const Descriptor& root, std::string_view identifier,
                            const std::string& happened);

}  // namespace quorvel
