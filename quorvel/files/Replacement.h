#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "quorvel/files/SystemCalls.h"

namespace quorvel {

/// What is replaced, and how it is called in sentences.
struct ReplacedFile {
  int folder;                  ///< Open for reading.
  std::string name;            ///< The file's name in it.
  std::string_view shownName;  ///< The script's identifier.

  /// How long to wait for a program that has the file open for writing. Refused then.
  std::chrono::milliseconds patience;

  /// Whether the folder still is where the library has it; it may have been moved away since it was opened.
  std::function<bool()> isInPlace;
};

/// Makes sure that a text which was taken out of the file's place is not lost: keeps it unless it is kept already.
/// Throws when it cannot be kept.
using KeepTakenText = std::function<void(std::string_view text)>;

/// Replaces a file's whole text, and returns when the new one is on the disk for good:
///
///  1. A temporary file beside it (TemporaryName.h) gets the text and the attributes of the old file, and is flushed.
///  2. The two change places in one step.
///  3. What came back is read once nobody has it open for writing, and handed to `keep`. The folder must be in its
///  place.
///  4. It is unlinked, and the folder is flushed.
///
/// A process that dies in between leaves the file with the old or the new text whole, and at most a temporary file for
/// `sweepLeftovers`. If 3 fails, the two change places again, unless another program has saved onto the new file or put
/// one of its own in its place meanwhile: that stays, and what came back is left to `sweepLeftovers`. If that cannot be
/// found out, what came back is put back, and the other file is left to `sweepLeftovers`. If they cannot change places
/// again, the new text stays, and the sentence says so.
///
/// Where the system lacks the exchange, 3 comes first, the old file gets a second name, and the new one is renamed over
/// the old; a file that another program renamed there between the two is then lost. Where the system cannot tell who
/// has a file open (WaitForWriters.h), so is what a program writes into what came back after it was read.
///
/// Throws LibraryError, or what `keep` throws. The file is as it was then, unless the sentence says otherwise.
void replaceFile(const SystemCalls& calls, const ReplacedFile& file, std::string_view text, const KeepTakenText& keep);

}  // namespace quorvel
