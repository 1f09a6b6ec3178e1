#pragma once

#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <system_error>

namespace quorvel {

/// Why the system call that this thread made last failed: errno, as a typed value. Ask at once, before any other call.
std::error_code lastError() noexcept;

/// The few system calls that a library must be able to do without, or whose failure half-way it must survive. A test
/// derives from this to stage a file system that lacks them, a full disk, or a process that dies in between.
///
/// Each operation is one system call and answers as that does: -1 with errno set if it failed. The callers answer with
/// a type instead (Expected.h) or throw std::system_error. Operations keep no state and may be called from several
/// threads at once.
class SystemCalls {
 public:
  virtual ~SystemCalls() = default;

  /// The system's own calls. One that it lacks fails with ENOSYS. Lives as long as the process.
  static const SystemCalls& ofTheSystem() noexcept;

  /// Opens a path beneath a folder without following a symbolic link and without leaving the folder.
  virtual int openBeneath(int folder, const char* path, int flags) const noexcept;

  /// Opens an absolute path without following a symbolic link.
  virtual int openWithoutLinks(const char* path, int flags) const noexcept;

  /// Reads the folder's next entries, as many as fit, as records of the kernel's (struct linux_dirent64); 0 at the end.
  virtual long readEntries(int folder, void* records, std::size_t size) const noexcept;

  /// The next entry of a folder; null at its end, and null with errno set if it could not be read.
  virtual const dirent* nextEntry(DIR* folder) const noexcept;

  /// Opens an entry of a folder for a connection to a database, or a file without a name, without following a link and
  /// without waiting for a pipe. What O_CREAT creates gets the permissions `mode`.
  virtual int open(int folder, const char* name, int flags, unsigned int mode) const noexcept;

  /// What has a name in a folder, links not followed.
  virtual int status(int folder, const char* name, struct stat* status) const noexcept;

  virtual long read(int file, void* bytes, std::size_t count) const noexcept;
  virtual long write(int file, const void* bytes, std::size_t count) const noexcept;
  virtual long readAt(int file, void* bytes, std::size_t count, off_t at) const noexcept;
  virtual long writeAt(int file, const void* bytes, std::size_t count, off_t at) const noexcept;

  /// Makes an open file that long.
  virtual int truncate(int file, off_t size) const noexcept;

  /// Whether an error says that the system or the disk does not know the call. Some disks say so by EPERM; whether that
  /// is a refusal shows when the caller tries to do without.
  static bool isLacking(const std::error_code& error) noexcept;

  /// Returns when a file's bytes, or a folder's entries, are on the disk for good.
  virtual int flush(int file) const noexcept;

  /// The same for a file's bytes and its size, but not for its other attributes.
  virtual int flushBytes(int file) const noexcept;

  /// As `flush`, for a folder. EINVAL, by which a disk says that its folders need no flushing, is no failure.
  int flushFolder(int folder) const noexcept;

  /// Swaps two entries of a folder in one step, whatever they are.
  virtual int exchange(int folder, const char* one, const char* other) const noexcept;

  /// Renames an entry within its folder, over whatever has the new name.
  virtual int rename(int folder, const char* from, const char* to) const noexcept;

  /// Renames an entry within its folder; EEXIST if something has the new name.
  virtual int renameToFreeName(int folder, const char* from, const char* to) const noexcept;

  /// Gives a file a second name in the folder; EEXIST if something has that.
  virtual int link(int folder, const char* from, const char* to) const noexcept;

  virtual int unlink(int folder, const char* name) const noexcept;
};

}  // namespace quorvel
