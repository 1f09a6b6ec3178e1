#include "program/LibraryOptions.h"

#include <filesystem>
#include <memory>
#include <stdexcept>

#include "platform/FileSystem.h"
#include "quorvel/library/FolderLibrary.h"
#include "quorvel/library/History.h"

namespace kelvane {
namespace {

void requireFolder(const std::filesystem::path& folder) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(folder, error);
  const std::string name = "\"" + folder.native() + "\"";
  if (status.type() == std::filesystem::file_type::not_found) {
    throw std::runtime_error("There is no folder " + name + ": give one that exists with --library.");
  }
  if (std::filesystem::status_known(status) && !std::filesystem::is_directory(status)) {
    throw std::runtime_error(name + " is not a folder: give the folder that holds the scripts with --library.");
  }
}

}  // namespace

void LibraryOptions::addTo(CLI::App& command) {
  command.add_option("--library", folder)->type_name("DIR")->check([](const std::string& typed) {
    return std::string(typed.empty() ? "DIR is empty" : "");
  });
  command.add_flag("--allow-writes", allowsWrites)->disable_flag_override();
}

ScriptTools LibraryOptions::open() const {
  if (folder.empty()) throw std::runtime_error("Say which folder holds the scripts, with --library DIR.");
  const std::filesystem::path root = filesystem::standardized(folder);
  requireFolder(root);
  const auto history = std::make_shared<quorvel::History>(root);
  const auto library = std::make_shared<quorvel::FolderLibrary>(root, history);
  library->requireReadable();
  return {library, history};
}

}  // namespace kelvane
