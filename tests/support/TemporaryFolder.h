#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace kelvane::tests {

/// A folder of its own below the temporary folder; it goes, with all in it, at the object's end.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::canonical(std::filesystem::temp_directory_path()) / "kelvane-XXXXXX").string();
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

}  // namespace kelvane::tests
