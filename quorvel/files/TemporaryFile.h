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

/// A new, hidden file beside another one, readable for its owner only, that is about to replace that one or to get
/// another name.
///
///     auto fresh = TemporaryFile::make(calls, folder, "Talk.md");
///     fresh->write(text);
///     fresh->flush();
///     fresh->renameTo("Talk.md");
///
/// Its name (TemporaryName.h) tells whether it ever was in the other file's place. It is locked (flock) while the
/// object lives, so that a sweep of what dead writers left can tell that its writer lives. The destructor deletes the
/// file, unless it got another name or `leave` was called.
///
/// Operations throw std::system_error with the reason if they cannot do what they say. Not thread-safe.
class TemporaryFile {
 public:
  /// Makes an empty file. `folder` stays open for longer than the object lives; `name` is the other file's name in it.
  /// Throws EBUSY if another program deletes each file at once, a hundred times. Never null.
  static std::unique_ptr<TemporaryFile> make(const SystemCalls& calls, int folder, std::string_view name);

  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile();

  /// Its name in the folder; empty once nothing has it.
  const std::string& name() const noexcept { return name_; }

  /// The name that `markReplaced` gives.
  std::string markedName() const { return parts_.ofReplacedFile().text(); }

  /// The file that was made, open for reading. Owned by this object.
  int file() const noexcept { return file_.get(); }

  /// What the system told of the file when it was made.
  const struct stat& status() const noexcept { return *status_; }

  /// Which file was made, whatever has its name by now.
  FileIdentity identity() const noexcept { return {status_->st_dev, status_->st_ino}; }

  /// Writes a text into the empty file. Throws EBUSY if another program has put something else under its name.
  void write(std::string_view text) const;

  /// Returns when the file's text and attributes are on the disk.
  void flush() const;

  /// Renames the file over whatever has that name. Succeeds also if the disk says that it could not, but did.
  void renameTo(const std::string& name);

  /// Gives the file another name instead of its own. Returns false if something has that name already.
  bool takeFreeName(const std::string& name);

  /// Changes the temporary name into one that says that its text was in the other file's place. Call it before that may
  /// be so.
  void markReplaced();

  /// From now on the destructor leaves what has the temporary name.
  void leave() noexcept { isLeft_ = true; }

  /// Deletes what has the temporary name. Returns false if that fails: it stays for the next sweep.
  bool remove() noexcept;

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
/// and vanishes when it is closed; an empty Descriptor if the system has no such files but the folder seems to permit a
/// new file; otherwise the reason.
Expected<Descriptor> tryMakingFile(const SystemCalls& calls, int folder);

}  // namespace quorvel
