#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "quorvel/settings/FileCopies.h"

namespace quorvel {

/// A hidden file (quorvel/files/TemporaryName.h) that an interrupted change of a file left behind.
struct FileLeftover {
  std::filesystem::path file;

  /// Whether deleting it loses nothing: its text never was the file's text, or is now, or is in a copy. If false, it
  /// holds a text that was taken out of the file's place, such as one that another program had just saved.
  bool isElsewhere;
};

/// The leftovers beside the file that the copies belong to, and beside the file where its links lead. Files of changes
/// that still run are not leftovers. Those that cannot be read are left out. Empty while another change is at work in
/// the folder.
///
/// Deletes nothing and does not throw FileError. Takes time linear in the folders' entries and the leftovers' texts.
std::vector<FileLeftover> leftoversOf(const FileCopies& copies);

/// Deletes the leftovers that are elsewhere, and returns those that stay. Does not throw FileError.
std::vector<FileLeftover> sweepLeftoversOf(const FileCopies& copies);

}  // namespace quorvel
