#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/Expected.h"
#include "quorvel/files/FileIdentity.h"

namespace quorvel {

/// A library's folder, opened once for a whole call.
///
/// Another program may move the folder away and make a new one with its name at any moment. All that one call
/// locks, reads, saves and writes must nevertheless be beneath the same folder:
///
///     const auto root = OpenedRoot::find(path);      // by the lock, at the start
///     …
///     const auto same = OpenedRoot::find(path);      // by each operation of that thread, while `root` lives
///     if (!same->isInPlace()) …                      // before it says that it is done
///
/// Operations are const and may be called from several threads at once.
class OpenedRoot {
 public:
  /// Opens the folder at the path. Never null; throws std::system_error if it cannot be opened. As long as this thread
  /// holds the result, `find` with the same path returns it again in this thread, wherever the folder is by then. The
  /// library's lock holds it, and so decides on the folder for all operations of its thread.
  static std::shared_ptr<const OpenedRoot> find(const std::filesystem::path& path);

  /// The one that this thread holds; null if it holds none.
  static std::shared_ptr<const OpenedRoot> held(const std::filesystem::path& path);

  OpenedRoot(std::filesystem::path path, Descriptor folder, FileIdentity identity);

  /// The folder. It may be open for passing through only (passingFlags in Beneath.h), and not for reading.
  const Descriptor& folder() const noexcept { return folder_; }

  /// Whether the path leads to this folder now, or why the system does not tell. One system call.
  Expected<bool> look() const noexcept;

  /// Whether it surely does.
  bool isInPlace() const noexcept { return look().value_or(false); }

  /// The end of a sentence that begins with "…, because ", for a folder that is not in its place: what happened to it,
  /// where it is now if the system tells, and what to do. With an error of `look`, why that is not known.
  std::string whyNotInPlace(const std::error_code& error = {}) const;

 private:
  const std::filesystem::path path_;
  const Descriptor folder_;
  const FileIdentity identity_;
};

}  // namespace quorvel
