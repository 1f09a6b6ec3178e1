#include "quorvel/files/FolderEntries.h"

#include <cerrno>

namespace quorvel {

FolderEntries::FolderEntries(const SystemCalls& calls, Descriptor folder) noexcept : calls_(calls) {
  if (!folder) return;
  stream_.reset(::fdopendir(folder.get()));
  if (stream_) folder.release();
}

const dirent* FolderEntries::next() noexcept {
  errno = 0;
  return calls_.nextEntry(stream_.get());
}

void FolderEntries::Close::operator()(DIR* folder) const noexcept {
  const int error = errno;  // still to be read by whoever gave up before this went
  ::closedir(folder);
  errno = error;
}

}  // namespace quorvel
