#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <string_view>

#include "quorvel/settings/FileChange.h"
#include "quorvel/settings/FileCopies.h"
#include "quorvel/settings/FileReading.h"
#include "tests/support/Files.h"
#include "tests/support/Sentence.h"
#include "tests/support/TemporaryFolder.h"

/// What the tests of FileChange.h share.
namespace quorvel::changes {

namespace fs = std::filesystem;
using kelvane::tests::TemporaryFolder;

inline void put(const fs::path& file, std::string_view text) {
  kelvane::tests::writeFile(file, text);
}

inline std::string got(const fs::path& file) {
  return kelvane::tests::bytesOf(file, "no file");
}

inline std::size_t entries(const fs::path& folder) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

inline mode_t mode(const fs::path& file) {
  struct stat status {};
  return ::lstat(file.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

inline std::string errorOf(const std::function<void()>& body) {
  return kelvane::tests::sentenceOf<FileError>(body);
}

/// A file of which every text before a change is kept in a copy.
inline FileCopies copiesOf(const fs::path& file, const SystemCalls& calls = SystemCalls::ofTheSystem()) {
  return {file, ".copy", [](const std::string&) { return true; }, calls};
}

/// Changes a file of which no copies are kept.
inline bool changeFile(const fs::path& file, const FileEdit& edit,
                       const SystemCalls& calls = SystemCalls::ofTheSystem()) {
  FileCopies copies(
      file, ".copy", [](const std::string&) { return false; }, calls);
  return quorvel::changeFile(copies, edit);
}

/// A system whose calls can be made to fail, and which runs something before each of them and just before the files
/// change places.
class StagedCalls : public SystemCalls {
 public:
  bool hasExchange = true;
  bool deniesExchange = false;  // an exchange is made and said to have failed
  bool hasFreeRename = true;
  bool saysThatNamesAreTaken = false;  // of each free name, when it is to be used
  bool hasRename = true;
  bool hasUnnamedFiles = true;
  int failingWrite = 0;
  int failingFlushOfFiles = 0;
  int failingFlushOfFolders = 0;
  std::function<void()> beforeSwap = [] {};
  std::function<void()> beforeEach = [] {};
  mutable int swaps = 0;

  int open(int folder, const char* name, int flags, unsigned int permissions) const noexcept override {
    if (!hasUnnamedFiles && std::string_view(name) == ".") return errno = EOPNOTSUPP, -1;
    return SystemCalls::open(folder, name, flags, permissions);
  }
  long write(int file, const void* bytes, std::size_t count) const noexcept override {
    beforeEach();
    if (failingWrite != 0) return errno = failingWrite, -1;
    return SystemCalls::write(file, bytes, std::min<std::size_t>(count, 3));  // short writes are finished
  }
  int flush(int file) const noexcept override {
    beforeEach();
    struct stat status {};
    const bool isFolder = ::fstat(file, &status) == 0 && S_ISDIR(status.st_mode);
    if (const int error = isFolder ? failingFlushOfFolders : failingFlushOfFiles) return errno = error, -1;
    return SystemCalls::flush(file);
  }
  int exchange(int folder, const char* one, const char* other) const noexcept override {
    beforeEach();
    beforeSwap();
    ++swaps;
    const int made = hasExchange ? SystemCalls::exchange(folder, one, other) : (errno = EINVAL, -1);
    return deniesExchange ? (errno = EIO, -1) : made;
  }
  int rename(int folder, const char* from, const char* other) const noexcept override {
    beforeEach();
    return hasRename ? SystemCalls::rename(folder, from, other) : (errno = EIO, -1);
  }
  int renameToFreeName(int folder, const char* from, const char* other) const noexcept override {
    beforeEach();
    beforeSwap();
    if (saysThatNamesAreTaken) return errno = EEXIST, -1;
    return hasFreeRename ? SystemCalls::renameToFreeName(folder, from, other) : (errno = EINVAL, -1);
  }
  int link(int folder, const char* from, const char* other) const noexcept override {
    beforeEach();
    return SystemCalls::link(folder, from, other);
  }
  int unlink(int folder, const char* name) const noexcept override {
    beforeEach();
    return SystemCalls::unlink(folder, name);
  }
};

}  // namespace quorvel::changes
