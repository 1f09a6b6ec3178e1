#pragma once

#include <dirent.h>

#include <memory>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/Expected.h"
#include "quorvel/files/SystemCalls.h"

namespace quorvel {

/// Reads the entries of a folder, once, in the order in which the disk has them.
class FolderEntries {
 public:
  /// `folder` is open for reading.
  static Expected<FolderEntries> open(const SystemCalls& calls, Descriptor folder) noexcept;

  /// The next entry; null at the end.
  Expected<const dirent*> next() noexcept;

  int folder() const noexcept { return ::dirfd(stream_.get()); }

 private:
  struct Close {
    void operator()(DIR* folder) const noexcept { ::closedir(folder); }
  };

  FolderEntries(const SystemCalls& calls, DIR* stream) noexcept : calls_(&calls), stream_(stream) {}

  const SystemCalls* calls_;
  std::unique_ptr<DIR, Close> stream_;
};

}  // namespace quorvel
