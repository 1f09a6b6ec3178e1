#include "quorvel/files/FolderEntries.h"

#include <cerrno>

namespace quorvel {

Expected<FolderEntries> FolderEntries::open(const SystemCalls& calls, Descriptor folder) noexcept {
  DIR* const stream = ::fdopendir(folder.get());
  if (!stream) return lastError();
  folder.release();
  return FolderEntries(calls, stream);
}

Expected<const dirent*> FolderEntries::next() noexcept {
  errno = 0;
  const dirent* const entry = calls_->nextEntry(stream_.get());
  if (!entry && errno != 0) return lastError();
  return entry;
}

}  // namespace quorvel
