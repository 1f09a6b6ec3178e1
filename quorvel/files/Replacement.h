#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "quorvel/files/SystemCalls.h"

namespace quorvel {

/// The file to replace, and its name in sentences.
struct ReplacedFile {
  int folder;                  ///< Open for reading.
  std::string name;            ///< The file's name in it.
  std::string_view shownName;  ///< The script's identifier.

  /// How long to wait for a program that has the file open for writing. After that the file is not replaced.
  std::chrono::milliseconds patience;

  /// Whether the folder is still where the library has it: it may have been moved away since it was opened.
  std::function<bool()> isInPlace;
};

/// Makes sure that a text which was swapped out of the file's place is not lost: saves it as a version, unless one has
/// it. Returns whether that changed the history. Throws if it cannot.
using KeepReplacedText = std::function<bool(std::string_view text)>;

/// Replaces a file's whole text, and returns when the new one is on the disk for good:
///
///  1. A temporary file beside it (TemporaryName.h) gets the text and the attributes of the old file, and is flushed.
///  2. The two are swapped in one step.
///  3. What came out is read once nobody has it open for writing, and goes to `keep`. The folder must be in its place.
///  4. What came out is deleted, and the folder is flushed.
///
/// A process that dies in between leaves the file with the old or the new text, whole, and at most one temporary file
/// for `sweepLeftovers`.
///
/// If 3 fails, the two are swapped back. If another program has saved there meanwhile, what it saved stays, and what
/// came out is left to `sweepLeftovers`. If it is unclear which of two texts is newer, one stays in the file's place
/// and the other is left to `sweepLeftovers`. If the two cannot be swapped back, the new text stays. The sentence says
/// which of these happened.
///
/// Where the system cannot swap, 3 comes first, the old file gets a second name, and the new one is renamed over the
/// old. Not promised then: a file that another program renames to that name between the two steps is lost. Where the
/// system cannot tell who has a file open (WaitForWriters.h), what a program writes into the old file after it was read
/// is lost, too.
///
/// Two flushes, and about forty system calls; linear in the texts. Throws LibraryError, or what `keep` throws; the file
/// is as it was then, unless the sentence says otherwise. Calls for one file at the same time lose no text; the
/// library's lock normally prevents them.
///
/// Returns whether nothing was left to `sweepLeftovers`. After an exception, something may have been.
bool replaceFile(const SystemCalls& calls, const ReplacedFile& file, std::string_view text,
                 const KeepReplacedText& keep);

}  // namespace quorvel
