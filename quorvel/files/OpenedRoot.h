#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/FileIdentity.h"

namespace quorvel {

/// A library's folder, opened once for a whole call. Another program may move the folder away and make a new one with
/// its name at any moment. What one call locks, reads, keeps and writes must then be below one and the same folder.
///
/// Operations are const and may be used from several threads at once.
class OpenedRoot {
 public:
  /// Opens the folder at the path. Never null; throws std::system_error when it cannot be opened. As long as this
  /// thread holds the result, `find` with the same path gives this thread the same result again, wherever the folder is
  /// by then. So whoever holds the library's lock in a thread holds the folder for all operations of that thread.
  static std::shared_ptr<const OpenedRoot> find(const std::filesystem::path& path);

  OpenedRoot(std::filesystem::path path, Descriptor folder, FileIdentity identity);

  /// The folder; not necessarily open for reading.
  const Descriptor& folder() const noexcept { return folder_; }

  /// Whether the path leads to this folder now.
  bool isInPlace() const noexcept;

  /// Why the system does not tell where the path leads now; no error if it does.
  std::error_code errorOfLooking() const noexcept;

  /// The end of a sentence that began with "…, because ", for a folder that is not in its place: what happened to it,
  /// where it is now if the system tells, and what to do.
  std::string whyNotInPlace() const;

 private:
  const std::filesystem::path path_;
  const Descriptor folder_;
  const FileIdentity identity_;
};

}  // namespace quorvel
