#pragma once

#include <optional>
#include <string>
#include <vector>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/SystemCalls.h"

namespace quorvel {

/// A temporary file (TemporaryFile.h) that was found in a folder, open for reading while the object lives.
struct FoundTemporaryFile {
  Descriptor file;
  bool hasLivingWriter;  ///< Its writer lives: it holds the file's lock.
  bool isAsMade;         ///< It is the file that was made under this name, so it never was in another file's place.
  bool hasAnotherName;   ///< It is a hard link: its text also exists under another name.

  /// Opens the file with that name, which is one of a temporary file. std::nullopt if it is gone, cannot be opened,
  /// or is a folder, a link or the like. Holds a shared lock on it while the object lives, so that two sweeps do not
  /// delete it at once.
  static std::optional<FoundTemporaryFile> open(int folder, const std::string& fileName);
};

/// The names of the temporary files in a folder that is open for reading. Reads the folder's entries once; if that
/// fails half-way, returns the names found so far. Moves the descriptor's position.
std::vector<std::string> temporaryFilesIn(const SystemCalls& calls, int folder);

}  // namespace quorvel
