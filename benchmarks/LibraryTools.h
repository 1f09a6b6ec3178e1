#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "quorvel/history/History.h"
#include "quorvel/library/FolderLibrary.h"
#include "scripttools/ScriptTools.h"

/// Folders of scripts, and the tools over them.
namespace kelvane::benchmarks {

/// A folder that goes with the program.
class Folder {
 public:
  explicit Folder(const std::filesystem::path& parent = std::filesystem::temp_directory_path()) {
    std::string pattern = (parent / "kelvane-benchmark-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("There is no room for a temporary folder.");
    path_ = pattern;
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

inline void put(const std::filesystem::path& file, std::string_view text) {
  std::ofstream stream(file, std::ios::binary);
  stream.write(text.data(), static_cast<std::streamsize>(text.size()));
  if (!stream.flush()) throw std::runtime_error("A script could not be written.");
}

/// The tools over a folder, called by their names.
class Tools {
 public:
  explicit Tools(const std::filesystem::path& root) {
    const auto history = std::make_shared<quorvel::History>(root);
    const auto library = std::make_shared<quorvel::FolderLibrary>(root, history);
    for (Tool& tool : ScriptTools(library, history).tools(true)) tools_.emplace(tool.name(), tool);
  }
  std::string call(const std::string& name, const JSON::Object& arguments) const {
    return tools_.at(name).run(arguments);
  }

 private:
  std::map<std::string, Tool> tools_;
};

}  // namespace kelvane::benchmarks
