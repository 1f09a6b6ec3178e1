#include "quorvel/files/FoundTemporaryFile.h"

#include <sys/file.h>
#include <sys/stat.h>

#include <utility>

#include "quorvel/files/FolderEntries.h"
#include "quorvel/files/TemporaryName.h"
#include "quorvel/files/WholeFile.h"

namespace quorvel {

// A shared lock is enough to meet the writer's, and two who look at the same moment do not take each other for one.
Expected<FoundTemporaryFile> FoundTemporaryFile::open(int folder, const std::string& fileName) {
  auto file = openToRead(folder, fileName);
  if (!file) return file.error();
  struct stat status;
  if (::fstat(file->get(), &status) != 0) return lastError();
  if (!S_ISREG(status.st_mode)) return std::make_error_code(std::errc::invalid_argument);
  const auto name = TemporaryName::parse(fileName);
  const bool hasLivingWriter =
      ::flock(file->get(), LOCK_SH | LOCK_NB) != 0 && lastError() == std::errc::operation_would_block;
  return FoundTemporaryFile{*std::move(file), hasLivingWriter, name && name->inode == status.st_ino,
                            status.st_nlink > 1};
}

// A link cannot be opened without following it (ELOOP), and neither can a socket (ENXIO).
bool FoundTemporaryFile::isNone(const std::error_code& error) noexcept {
  return error == std::errc::no_such_file_or_directory || error == std::errc::too_many_symbolic_link_levels ||
         error == std::errc::no_such_device_or_address || error == std::errc::invalid_argument;
}

TemporaryFileNames temporaryFilesIn(const SystemCalls& calls, int folder) {
  TemporaryFileNames found;
  FolderEntries entries(calls, folder);
  while (true) {
    const auto entry = entries.next();
    if (!entry) found.areAll = false;
    if (!entry || *entry == nullptr) return found;
    if (TemporaryName::parse((*entry)->name)) found.names.emplace_back((*entry)->name);
  }
}

}  // namespace quorvel
