#include "program/LibraryOptions.h"

#include <stdexcept>

#include "platform/FileSystem.h"

namespace kelvane {
namespace {

void requireFolder(const std::filesystem::path& folder, std::string_view howToGiveIt) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(folder, error);
  const std::string name = "\"" + folder.native() + "\"";
  const std::string how = std::string(howToGiveIt) + '.';
  if (status.type() == std::filesystem::file_type::not_found) {
    throw std::runtime_error("There is no folder " + name + ": give one that exists " + how);
  }
  if (std::filesystem::status_known(status) && !std::filesystem::is_directory(status)) {
    throw std::runtime_error(name + " is not a folder: give the folder that holds the scripts " + how);
  }
  if (filesystem::resolvingSymbolicLinks(folder) == folder.root_path()) {  // whose items no identifier names
    throw std::runtime_error(name + " is the whole disk: give the folder that holds the scripts " + how);
  }
}

}  // namespace

OpenedLibrary openLibrary(const std::filesystem::path& folder, std::string_view howToGiveIt) {
  const std::filesystem::path root = filesystem::standardized(folder);
  requireFolder(root, howToGiveIt);
  OpenedLibrary opened;
  opened.history = std::make_shared<quorvel::History>(root);
  opened.library = std::make_shared<quorvel::FolderLibrary>(root, opened.history);
  opened.library->requireReadable();
  return opened;
}

OpenedLibrary openLibraryOf(const OwnSettings& settings) {
  return openLibrary(settings.libraryFolder(), "with \"kelvane settings library DIR\"");
}

void LibraryOptions::addLibraryTo(CLI::App& command) {
  command.add_option("--library", folder)->type_name("DIR")->check([](const std::string& typed) {
    return std::string(typed.empty() ? "DIR is empty" : "");
  });
}

void LibraryOptions::addTo(CLI::App& command) {
  addLibraryTo(command);
  command.add_flag("--allow-writes", allowsWrites)->disable_flag_override();
}

OpenedLibrary LibraryOptions::open() const {
  return folder.empty() ? openLibraryOf(OwnSettings()) : openLibrary(folder, "with --library");
}

}  // namespace kelvane
