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
  bool hasLivingWriter;  ///< Its writer holds its lock.
  bool isAsMade;         ///< It is the file that was made under this name, so it never was in another file's place.
  bool hasAnotherName;

  /// Opens it. Nothing if it is gone, cannot be opened or is no file.
  static std::optional<FoundTemporaryFile> open(int folder, const std::string& fileName);
};

/// The names of the temporary files in a folder that is open for reading, by one look at its entries. Those that were
/// found when the folder cannot be read.
std::vector<std::string> temporaryFilesIn(const SystemCalls& calls, int folder);

}  // namespace quorvel
