#include "quorvel/files/FoundTemporaryFile.h"

#include <sys/file.h>
#include <sys/stat.h>

#include <utility>

#include "quorvel/files/FolderEntries.h"
#include "quorvel/files/TemporaryName.h"
#include "quorvel/files/WholeFile.h"

namespace quorvel {

// A shared lock is enough to meet the writer's, and two who look at the same moment do not take each other for one.
std::optional<FoundTemporaryFile> FoundTemporaryFile::open(int folder, const std::string& fileName) {
  auto file = openToRead(folder, fileName);
  struct stat status;
  if (!file || ::fstat(file->get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  const auto name = TemporaryName::parse(fileName);
  const bool hasLivingWriter =
      ::flock(file->get(), LOCK_SH | LOCK_NB) != 0 && lastError() == std::errc::operation_would_block;
  return FoundTemporaryFile{*std::move(file), hasLivingWriter, name && name->inode == status.st_ino,
                            status.st_nlink > 1};
}

std::vector<std::string> temporaryFilesIn(const SystemCalls& calls, int folder) {
  std::vector<std::string> names;
  FolderEntries entries(calls, folder);
  while (const FolderEntry* entry = entries.next().value_or(nullptr)) {
    if (TemporaryName::parse(entry->name)) names.emplace_back(entry->name);
  }
  return names;
}

}  // namespace quorvel
