#pragma once

#include <sys/stat.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/FileIdentity.h"
#include "quorvel/files/SystemCalls.h"
#include "quorvel/files/TemporaryName.h"

namespace quorvel {

/// A new, hidden file beside another one, for its owner only, that is about to take that one's place or another name.
///
/// Its name (TemporaryName.h) tells whether it ever was in that place. It is locked (flock) for as long as the object
/// lives, so that whoever clears away what dead writers left can tell that its writer lives. The object's end deletes
/// the file, unless it was given another name or is to stay.
///
/// Operations throw std::system_error with the reason when they cannot do what they say. Not thread-safe.
class TemporaryFile {
 public:
  /// Makes an empty one. `folder` is open for longer than the object lives; `name` is the other file's name in it.
  /// EBUSY when another program takes each one away at once. Never null.
  static std::unique_ptr<TemporaryFile> make(const SystemCalls& calls, int folder, std::string_view name);

  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile();

  const std::string& name() const noexcept { return name_; }

  /// The name that `markTaken` gives.
  std::string markedName() const { return parts_.ofTakenFile().text(); }

  /// The file that was made, open for reading.
  int file() const noexcept { return file_.get(); }

  /// What the system told of the file when it was made.
  const struct stat& status() const noexcept { return *status_; }

  /// Which file was made, whatever has its name by now.
  FileIdentity identity() const noexcept { return {status_->st_dev, status_->st_ino}; }

  /// Puts a text into the empty file. EBUSY when another program has put something else under its name.
  void write(std::string_view text) const;

  /// Returns when the file's text and attributes are on the disk.
  void flush() const;

  /// Renames the file over whatever has that name. No failure where the disk says that it could not, but did.
  void renameTo(const std::string& name);

  /// Gives the file another name instead of its own; false when something has it already.
  bool takeFreeName(const std::string& name);

  /// To be called before what has the temporary name may be a text that stood in the other file's place: makes the
  /// name say so.
  void markTaken();

  /// From now on the object's end leaves what has the temporary name.
  void leave() noexcept { isLeft_ = true; }

  /// Deletes what has the temporary name. Should that fail, it stays for whoever clears away.
  void remove() noexcept;

 private:
  TemporaryFile(const SystemCalls& calls, int folder, const TemporaryName& parts, Descriptor file);

  void moveTo(const TemporaryName& parts);

  const SystemCalls& calls_;
  int folder_;
  TemporaryName parts_;
  std::string name_;  // empty once nothing has it
  Descriptor file_;
  std::optional<struct stat> status_;  // none until the system has told it; every file that `make` returns has one
  bool isLeft_ = false;
};

/// Tries whether a file can be made in a folder, and leaves the folder as it is. Returns an open file that has no name
/// and vanishes when it is closed; an empty Descriptor where the system has no such files but seems to let us make one;
/// the reason, when none can be made.
Expected<Descriptor> tryMakingFile(int folder);

}  // namespace quorvel
