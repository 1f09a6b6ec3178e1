#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace kelvane::tests {

/// A new folder below the system's temporary folder, or below another one. The destructor deletes it with its contents.
class TemporaryFolder {
 public:
  explicit TemporaryFolder(const std::filesystem::path& parent = std::filesystem::temp_directory_path()) {
    std::string name = (std::filesystem::canonical(parent) / "kelvane-XXXXXX").string();
    if (!::mkdtemp(name.data())) throw std::runtime_error("No temporary folder could be made.");
    path_ = name;
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  const std::filesystem::path& path() const noexcept { return path_; }

 private:
  std::filesystem::path path_;
};

/// A folder whose files are in memory, for tests that write a lot and do not need a disk. The temporary folder if the
/// system has none.
inline std::filesystem::path folderInMemory() {
  const std::filesystem::path memory("/dev/shm");
  const bool isUsable = std::filesystem::is_directory(memory) && ::access(memory.c_str(), W_OK) == 0;
  return isUsable ? memory : std::filesystem::temp_directory_path();
}

}  // namespace kelvane::tests
