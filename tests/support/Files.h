#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kelvane::tests {

/// Writes a file, replacing its bytes, and creates the folders above it. Throws if that fails.
inline void writeFile(const std::filesystem::path& file, std::string_view bytes) {
  if (file.has_parent_path()) std::filesystem::create_directories(file.parent_path());
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  stream << bytes;
  stream.close();
  if (!stream) throw std::runtime_error("The test could not write \"" + file.native() + "\".");
}

/// A file's bytes, or `unreadable` if there is no file that can be read.
inline std::string bytesOf(const std::filesystem::path& file, std::string_view unreadable = {}) {
  std::ifstream stream(file, std::ios::binary);
  return stream ? std::string(std::istreambuf_iterator<char>(stream), {}) : std::string(unreadable);
}

}  // namespace kelvane::tests
