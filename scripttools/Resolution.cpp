#include "scripttools/Resolution.h"

#include <utility>

#include "platform/FileSystem.h"
#include "protocol/RPCError.h"

namespace kelvane {

using quorvel::ScriptItem;
using quorvel::ScriptLibrary;

namespace {

std::string inQuotes(std::string_view identifier) {
  std::string text("\"");
  return text.append(identifier).append("\"");
}

RPCError notInside(std::string_view identifier) {
  return RPCError::invalidParams(inQuotes(identifier) + " is not inside the library");
}

bool climbs(std::string_view identifier) {
  while (true) {
    const std::size_t slash = identifier.find('/');
    if (identifier.substr(0, slash) == "..") return true;
    if (slash == std::string_view::npos) return false;
    identifier.remove_prefix(slash + 1);
  }
}

bool isInside(const std::string& path, const std::string& root) {
  return path == root || (path.size() > root.size() && path.starts_with(root) && path[root.size()] == '/');
}

std::string extensionOf(const std::filesystem::path& file) {
  std::string extension = file.extension().string();
  if (!extension.empty()) extension.erase(0, 1);
  return extension;
}

}  // namespace

std::filesystem::path pathOf(std::string_view identifier, const ScriptLibrary& library) {
  return identifier.empty() ? library.root() : library.root() / identifier;
}

std::string locate(std::string_view identifier, const ScriptLibrary& library) {
  if (identifier.starts_with('/') || climbs(identifier)) throw notInside(identifier);
  // Both sides are resolved the same way, so that a root reached through a link still holds its items.
  const auto root = filesystem::resolvingSymbolicLinks(library.root());
  std::string candidate = library.root().native();
  candidate = filesystem::resolvingSymbolicLinks(candidate.append("/").append(identifier));
  if (!isInside(candidate, root)) throw notInside(identifier);
  return candidate;
}

ScriptItem itemAt(std::string_view identifier, const ScriptLibrary& library) {
  const auto place = locate(identifier, library);
  const auto kind = filesystem::entry(place);
  if (!kind) throw RPCError::invalidParams("Nothing at " + inQuotes(identifier));
  const std::filesystem::path file(place);
  if (*kind == filesystem::EntryKind::directory) {
    return {library.identifier(file), file.filename().string(), ScriptItem::Kind::folder, std::nullopt};
  }
  if (extensionOf(file) != library.fileExtension()) {
    throw RPCError::invalidParams(inQuotes(identifier) + " is not a script");
  }
  return {library.identifier(file), file.stem().string(), ScriptItem::Kind::script, std::nullopt};
}

ScriptItem scriptAt(std::string_view identifier, const ScriptLibrary& library) {
  auto item = itemAt(identifier, library);
  if (item.kind != ScriptItem::Kind::script) {
    throw RPCError::invalidParams(inQuotes(identifier) + " is a folder, not a script");
  }
  return item;
}

std::optional<std::string> folderAt(const std::optional<std::string_view>& identifier, const ScriptLibrary& library) {
  if (!identifier) return std::nullopt;
  auto item = itemAt(*identifier, library);
  if (item.kind != ScriptItem::Kind::folder) {
    throw RPCError::invalidParams(inQuotes(*identifier) + " is a script, not a folder");
  }
  return std::move(item.identifier);
}

}  // namespace kelvane
