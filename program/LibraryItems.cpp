#include "program/LibraryItems.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

#include "platform/Unicode.h"
#include "program/Nearest.h"
#include "quorvel/files/SystemReason.h"

namespace kelvane {
namespace {

// The items of a folder that is being listed. They are taken out of their parent, so that nothing recurses.
struct Level {
  std::vector<quorvel::ScriptItem> items;
  std::size_t next = 0;
};

// What is left of an identifier if only its words matter.
std::string comparable(std::string_view identifier, const std::string& suffix) {
  while (identifier.ends_with('/')) identifier.remove_suffix(1);
  std::string form = unicode::folded(identifier);
  if (form.ends_with(suffix)) form.resize(form.size() - suffix.size());
  return form;
}

std::string_view lastPiece(std::string_view path) {
  return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

std::string suggested(std::string_view identifier, const quorvel::ScriptLibrary& library) {
  const std::string suffix = unicode::folded('.' + library.fileExtension());
  const std::string wanted = comparable(identifier, suffix);
  std::vector<std::string> identifiers;
  const std::string* namesake = nullptr;
  const std::vector<LibraryItem> items = itemsOf(library);
  for (const LibraryItem& item : items) {
    const std::string form = comparable(item.identifier, suffix);
    if (form == wanted) return " Did you mean " + quorvel::inQuotes(item.identifier) + "?";
    if (namesake == nullptr && lastPiece(form) == lastPiece(wanted)) namesake = &item.identifier;
    identifiers.push_back(item.identifier);
  }
  if (namesake != nullptr) return " Did you mean " + quorvel::inQuotes(*namesake) + "?";
  return suggestion(identifier, identifiers);
}

}  // namespace

std::vector<LibraryItem> itemsOf(const quorvel::ScriptLibrary& library) {
  std::vector<LibraryItem> items;
  std::vector<Level> path;
  path.push_back({library.contents(library.root())});
  while (!path.empty()) {
    Level& level = path.back();
    if (level.next == level.items.size()) {
      path.pop_back();
      continue;
    }
    quorvel::ScriptItem& item = level.items[level.next++];
    items.push_back({std::move(item.identifier), std::move(item.name), item.kind, path.size() - 1});
    if (item.children) path.push_back({std::move(*item.children)});
  }
  return items;
}

std::string suggestedItem(std::string_view identifier, const quorvel::ScriptLibrary& library) {
  try {
    return suggested(identifier, library);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    return {};  // the message before this one stands for itself
  }
}

}  // namespace kelvane
