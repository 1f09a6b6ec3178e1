#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/OpenedRoot.h"
#include "quorvel/files/PathBeneath.h"
#include "quorvel/files/SystemCalls.h"

namespace quorvel {

/// What a writer tells the next one in case it dies: in which folders temporary files of it may be (TemporaryName.h).
/// So the next one looks there, and not through all of a folder before each change.
///
/// The note is the content of the lock file, which the writer has open and nobody else changes meanwhile:
///
///     01234567-89ab-cdef-0123-456789abcdef NUL     the system's present run, until it is started anew
///     Talks/Drafts NUL                             a folder; more may follow. The root is the empty path
///
/// With a file that is empty, of another run or spoilt, nothing is known: files may be in any folder. That is so where
/// an earlier version of the program wrote, and after the power failed. The note itself is therefore never flushed: a
/// process that dies leaves it to the system, and a system that dies makes it void.
///
/// A file that does not begin as a note does is somebody's, who moved it there. Nothing is written into it, and so
/// nothing is noted: writers look where they work.
///
/// Not promised, but what is left then is found after the next start of the system, or when its script is renamed:
///
///  - a disk that fails alone, such as one that is pulled out, may lose a note of the present run;
///  - a folder is not found that another program moved away while another folder got its name;
///  - nor is one that was moved into the library, or is hidden, unless a writer works in it;
///  - of two machines that share the library, one that loses its power may lose its note, and the other runs on;
///  - an earlier version of the program notes nothing; nor does this one while the file has other names, and what the
///    file said before is taken for true afterwards.
///
/// The lock owns it (LockLibrary.h). For one thread. `folders`, `begin` and `end` cost at most one system call each,
/// after three of the first `folders` in a process.
class WritersNote {
 public:
  /// Owns the lock file, which is open for reading and writing. From now on, `of` returns the result to this thread,
  /// until its last owner releases it; but not if the file must not be written, because it has other names (hard
  /// links), which may be outside the library. Then nothing is noted, and writers look where they work.
  static std::shared_ptr<WritersNote> hold(const SystemCalls& calls, std::shared_ptr<const OpenedRoot> root,
                                           Descriptor lockFile, bool mayBeWritten);

  /// What this thread holds for that opened root; null if it holds nothing, or a file that is not a note. Reads the
  /// file once.
  static std::shared_ptr<WritersNote> of(const OpenedRoot& root);

  WritersNote(const SystemCalls& calls, std::shared_ptr<const OpenedRoot> root, Descriptor lockFile)
      : calls_(calls), root_(std::move(root)), file_(std::move(lockFile)) {}

  /// The folders that are noted; std::nullopt if files may be in any.
  const std::optional<std::vector<PathBeneath>>& folders();

  /// Replaces what is noted, after a sweep. If that cannot be written, the note says at least as much as before.
  void replace(const std::optional<std::vector<PathBeneath>>& folders);

  /// Notes a folder, before a temporary file is made in it. Returns why it could not be noted in any way; so it does
  /// for a file that could not be read, because nobody knows whether that is a note.
  std::error_code begin(const PathBeneath& folder);

  /// Makes the note void if that folder is noted or one below it, before a folder gets that path or loses it. Otherwise
  /// the next writer would look into the wrong folder. Returns why that could not be done.
  std::error_code forgetIfIn(const PathBeneath& folder);

  /// The folder noted last has no temporary file any more. Without this, it stays noted.
  void end() noexcept;

 private:
  bool isNote();
  bool forget() noexcept;
  bool append(const std::string& bytes) noexcept;
  bool write(const std::string& bytes, off_t at) noexcept;

  const SystemCalls& calls_;
  const std::shared_ptr<const OpenedRoot> root_;
  const Descriptor file_;
  bool isRead_ = false;
  bool isNote_ = true;                               // or a file that was put there
  std::error_code unreadable_;                       // why the file could not be read
  std::optional<std::vector<PathBeneath>> folders_;  // as the file has them
  off_t size_ = 0;                                   // of the file, where the folders are known
  std::optional<off_t> sizeBefore_;                  // what it was before the folder that was begun
};

}  // namespace quorvel
