#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "quorvel/settings/FileCopies.h"

namespace quorvel {

/// A hidden file (quorvel/files/TemporaryName.h) that a change of a file left when it was cut short.
struct FileLeftover {
  std::filesystem::path file;

  /// Whether deleting it loses nothing: its text never was the file's, or is the file's now, or is in one of the
  /// copies. Otherwise it is a text that was taken out of the file's place, such as one that another program had just
  /// saved.
  bool isElsewhere;
};

/// The leftovers beside the file that has these copies, and beside the file where its links lead. Those of living
/// changes are none, nor are files that cannot be read. Deletes nothing, and is empty while a change is under way.
/// Takes one look at the entries of the folders. Does not fail.
std::vector<FileLeftover> leftoversOf(const FileCopies& copies);

/// Deletes those that are elsewhere, and returns what stays. Does not fail.
std::vector<FileLeftover> sweepLeftoversOf(const FileCopies& copies);

}  // namespace quorvel
