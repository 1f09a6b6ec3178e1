#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace kelvane::tests {

/// A folder of its own below the temporary folder or another one; it goes, with all in it, at the object's end.
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

/// Where files are in memory, for tests that write much and look at no disk; the temporary folder where the system has
/// no such place.
inline std::filesystem::path folderInMemory() {
  const std::filesystem::path memory("/dev/shm");
  const bool isUsable = std::filesystem::is_directory(memory) && ::access(memory.c_str(), W_OK) == 0;
  return isUsable ? memory : std::filesystem::temp_directory_path();
}

}  // namespace kelvane::tests
