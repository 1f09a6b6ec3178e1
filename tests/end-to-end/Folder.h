#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

namespace kelvane::tests {

/// A folder of its own for a test, gone with the value.
class Folder {
 public:
  Folder();
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder();

  const std::filesystem::path& path() const noexcept { return path_; }
  std::filesystem::path operator/(std::string_view name) const { return path_ / name; }
  std::string text() const { return path_.native(); }  ///< The path, as an argument.

  /// Writes a file, with the folders above it.
  void put(std::string_view name, std::string_view bytes) const;

  /// The file's bytes.
  std::string bytes(std::string_view name) const;

  /// Everything below: kind, number, mode, size and moment of change of each entry.
  std::map<std::string, std::string> census() const;

  /// Lets nobody in and own everything below, if the test has root's rights.
  void giveToNobody() const;

 private:
  std::filesystem::path path_;
};

}  // namespace kelvane::tests
