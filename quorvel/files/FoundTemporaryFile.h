#pragma once

#include <string>
#include <system_error>
#include <vector>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/Expected.h"
#include "quorvel/files/SystemCalls.h"

namespace quorvel {

/// A temporary file (TemporaryFile.h) that was found in a folder, open for reading while the object lives.
struct FoundTemporaryFile {
  Descriptor file;
  bool hasLivingWriter;  ///< Its writer lives: it holds the file's lock.
  bool isAsMade;         ///< It is the file that was made under this name, so it never was in another file's place.
  bool hasAnotherName;   ///< It is a hard link: its text also exists under another name.

  /// Opens the file with that name, which is one of a temporary file. Errors, beside the system's own: EINVAL if it is
  /// a folder, a pipe or the like. Holds a shared lock on it while the object lives, so that two sweeps do not delete
  /// it at once.
  static Expected<FoundTemporaryFile> open(int folder, const std::string& fileName);

  /// Whether an error of `open` says that there is no temporary file of that name: it is gone, or a link, a folder or
  /// the like has the name.
  static bool isNone(const std::error_code& error) noexcept;
};

/// The names of the temporary files in a folder.
struct TemporaryFileNames {
  std::vector<std::string> names;
  bool areAll = true;  ///< False if the folder could not be read to its end.
};

/// Reads the entries of a folder that is open for reading, once. Moves the descriptor's position.
TemporaryFileNames temporaryFilesIn(const SystemCalls& calls, int folder);

}  // namespace quorvel
