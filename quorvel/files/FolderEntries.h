#pragma once

#include <dirent.h>

#include <cstddef>
#include <memory>

#include "quorvel/files/Expected.h"
#include "quorvel/files/SystemCalls.h"

namespace quorvel {

/// What a folder has under a name.
struct FolderEntry {
  const char* name;    ///< Valid until the next entry is read.
  unsigned char type;  ///< DT_DIR, DT_REG and so on; DT_UNKNOWN where the disk does not keep it with the name.
};

/// Reads the entries of an open folder, once, in the order in which the disk has them; "." and ".." are among them.
///
///     FolderEntries entries(calls, folder.get());
///     for (auto entry = entries.next(); entry && *entry; entry = entries.next()) use((*entry)->name);
///
/// Uses 32 KiB and no allocation. The descriptor must be open for reading, stays open for longer than the object lives,
/// and is read by nobody else meanwhile: its position among the entries moves. Not thread-safe.
class FolderEntries {
 public:
  FolderEntries(const SystemCalls& calls, int folder) noexcept : calls_(calls), folder_(folder) {}

  /// The next entry; null at the end. After an error or the end it is not to be asked again.
  Expected<const FolderEntry*> next() noexcept;

 private:
  struct Close {
    void operator()(DIR* folder) const noexcept { ::closedir(folder); }
  };

  Expected<const FolderEntry*> nextRecord() noexcept;
  Expected<const FolderEntry*> nextOfStream() noexcept;
  std::error_code begin() noexcept;
  std::error_code fill() noexcept;

  const SystemCalls& calls_;
  const int folder_;
  bool hasBegun_ = false;
  FolderEntry entry_{};
  std::unique_ptr<DIR, Close> stream_;  // where the system does not hand over entries by the block
  std::size_t at_ = 0;                  // the next record in the block
  std::size_t end_ = 0;
  alignas(8) char block_[std::size_t{32} << 10];
};

}  // namespace quorvel
