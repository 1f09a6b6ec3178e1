#pragma once

#include <dirent.h>

#include <memory>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/SystemCalls.h"

namespace quorvel {

/// Reads the entries of a folder, once, in the order in which the disk has them.
class FolderEntries {
 public:
  /// The folder is open for reading, or not, with the reason in errno.
  FolderEntries(const SystemCalls& calls, Descriptor folder) noexcept;

  /// Whether there is anything to read from; if not, the reason is in errno.
  explicit operator bool() const noexcept { return stream_ != nullptr; }

  /// The next entry. Nothing at the end, with 0 in errno, and nothing with the reason in errno when it could not be
  /// read.
  const dirent* next() noexcept;

  int folder() const noexcept { return ::dirfd(stream_.get()); }

 private:
  struct Close {
    void operator()(DIR* folder) const noexcept;
  };

  const SystemCalls& calls_;
  std::unique_ptr<DIR, Close> stream_;
};

}  // namespace quorvel
