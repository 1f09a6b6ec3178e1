#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <string_view>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/FileIdentity.h"
#include "quorvel/files/PathBeneath.h"
#include "quorvel/files/SystemCalls.h"

/// Finding what is to be changed, beneath the root, without following links and outside the library's own folder. That
/// folder is known by its file number and not only by its name, because on some disks letter case does not count, and a
/// folder may be mounted twice.
///
/// A call finds its target once, while it holds the library's lock, and works with what was opened then. Everything
/// here throws LibraryError; `happened` begins the sentence, as in "\"Talk.md\" could not be written".
namespace quorvel {

/// The path that an identifier names. Throws when it leads out of the library.
PathBeneath pathBeneath(std::string_view identifier, const std::string& happened);

/// A folder in which something is to change.
struct FolderToChange {
  Descriptor folder;  ///< Open for reading.
  PathBeneath path;   ///< Beneath the root.

  /// The identifier of an entry in it.
  std::string identifierOf(std::string_view name) const { return path.child(name).string(); }
};

/// An entry that is to change. It need not be there.
struct EntryToChange {
  FolderToChange in;
  std::string name;

  std::string identifier() const { return in.identifierOf(name); }

  /// What the entry is now, itself if it is a link; std::nullopt if it is not there. Throws for the library's own
  /// folder. `root` is the library's folder.
  std::optional<struct stat> status(const Descriptor& root, const std::string& happened) const;
};

/// Opens the folder. Two system calls for each piece of its path. `root` is the library's folder.
FolderToChange folderToChange(const SystemCalls& calls, const Descriptor& root, const PathBeneath& path,
                              const std::string& happened);

/// Opens the folder that the entry is in. Throws for the empty path as well: the library's folder is in no folder of
/// the library. Only `status` detects the library's own folder under another name.
EntryToChange entryToChange(const SystemCalls& calls, const Descriptor& root, const PathBeneath& path,
                            const std::string& happened);

}  // namespace quorvel
