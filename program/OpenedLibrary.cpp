#include "program/OpenedLibrary.h"

#include <stdexcept>
#include <string>

#include "platform/FileSystem.h"
#include "quorvel/files/SystemReason.h"

namespace kelvane {
namespace {

void requireFolder(const std::filesystem::path& folder, std::string_view howToGiveIt) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(folder, error);
  const std::string name = quorvel::inQuotes(folder.native());
  const std::string how = ": " + std::string(howToGiveIt) + '.';
  if (status.type() == std::filesystem::file_type::not_found) {
    throw std::runtime_error("There is no folder " + name + ". Give an existing one" + how);
  }
  if (std::filesystem::status_known(status) && !std::filesystem::is_directory(status)) {
    throw std::runtime_error(name + " is not a folder. Give the folder that holds the scripts" + how);
  }
  if (filesystem::resolvingSymbolicLinks(folder) == folder.root_path()) {  // whose items no identifier names
    throw std::runtime_error(name + " is the whole disk. Give the folder that holds the scripts" + how);
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
  return openLibrary(settings.libraryFolder(), "kelvane settings library DIR");
}

OpenedLibrary openLibraryOf(const Arguments& arguments) {
  if (!arguments.has(libraryOption)) return openLibraryOf(OwnSettings());
  return openLibrary(arguments.value(libraryOption), usageOf(libraryOption));
}

}  // namespace kelvane
