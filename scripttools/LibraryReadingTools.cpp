#include "scripttools/LibraryReadingTools.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/FreeMemory.h"
#include "scripttools/ItemSummary.h"
#include "scripttools/Resolution.h"
#include "scripttools/SavedMoment.h"

namespace kelvane {

using quorvel::ScriptItem;
using quorvel::ScriptLibrary;
using quorvel::ScriptVersion;
using quorvel::VersionStore;

namespace {

// The tree of items is walked with a stack of levels, one for each folder from the root to the current one. A library
// may be nested deeper than the call stack permits, so nothing recurses. A level takes its items out of their parent,
// so that destroying the tree does not recurse either.
struct Level {
  std::vector<ScriptItem> items;
  std::size_t next = 0;
};

// How long the listing of the tree is, if nothing in it needs an escape.
std::size_t expectedSize(const std::vector<ScriptItem>& items) {
  constexpr std::size_t sizeOfEntry = std::string_view(R"({\"id\":\"\",\"kind\":\"script\",\"name\":\"\"},)").size();
  std::size_t size = 0;
  std::vector<const std::vector<ScriptItem>*> left{&items};
  while (!left.empty()) {
    const std::vector<ScriptItem>& folder = *left.back();
    left.pop_back();
    for (const ScriptItem& item : folder) {
      size += sizeOfEntry + item.identifier.size() + item.name.size();
      if (item.children) left.push_back(&*item.children);
    }
  }
  return size;
}

// Writes the tree as the array of objects that it is in JSON, without making those: there may be very many. The members
// of an object are in the order of their keys, so a folder's children come first.
void writeTree(std::vector<ScriptItem> items, ResultText& text) {
  constexpr std::size_t longPiece = 4096;
  // The items of a folder are freed when it is complete. So that a large reply takes their place instead of being added
  // to them, their memory is given back meanwhile.
  constexpr std::size_t betweenReturns = 2 * 1024 * 1024;
  std::size_t sinceReturn = 0;
  text.reserve(expectedSize(items));
  std::string piece = "[";
  const auto writeMembers = [&piece](const ScriptItem& item) {
    piece.append(R"("id":")");
    JSON::appendEscaped(item.identifier, piece);
    piece.append(item.kind == ScriptItem::Kind::folder ? R"(","kind":"folder","name":")"
                                                       : R"(","kind":"script","name":")");
    JSON::appendEscaped(item.name, piece);
    piece.append("\"}");
  };
  std::vector<Level> path;
  path.push_back({std::move(items)});
  while (true) {
    Level& level = path.back();
    if (level.next < level.items.size()) {
      if (level.next > 0) piece.push_back(',');
      piece.push_back('{');
      ScriptItem& item = level.items[level.next];
      if (item.children) {
        piece.append(R"("children":[)");
        path.push_back({std::move(*item.children)});
      } else {
        writeMembers(item);
        ++level.next;
      }
    } else {
      // The folder is complete; what is left of its own entry follows.
      piece.push_back(']');
      path.pop_back();
      if (path.empty()) return text.append(piece);
      Level& above = path.back();
      piece.push_back(',');
      writeMembers(above.items[above.next++]);
    }
    if (piece.size() >= longPiece) {
      text.append(piece);
      sinceReturn += piece.size();
      piece.clear();
    }
    if (sinceReturn >= betweenReturns) {
      returnFreeMemory();
      sinceReturn = 0;
    }
  }
}

JSON::Array folders(std::vector<ScriptItem> items) {
  JSON::Array entries;
  std::vector<Level> path;
  path.push_back({std::move(items)});
  while (!path.empty()) {
    Level& level = path.back();
    if (level.next == level.items.size()) {
      path.pop_back();
      continue;
    }
    ScriptItem& item = level.items[level.next++];
    if (item.kind != ScriptItem::Kind::folder) continue;
    entries.append(JSON::Object{{"id", item.identifier}, {"name", item.name}});
    if (item.children) path.push_back({std::move(*item.children)});
  }
  return entries;
}

JSON::Array savedVersions(const std::vector<ScriptVersion>& versions) {
  JSON::Array entries;
  for (const ScriptVersion& version : versions) {
    entries.append(
        JSON::Object{{"name", version.name}, {"saved", savedMoment(version.saved)}, {"words", version.words}});
  }
  return entries;
}

}  // namespace

Tool listScripts(std::shared_ptr<const ScriptLibrary> library) {
  return {"list_scripts",
          "The whole script library as a tree of folders and scripts. Use the \"id\" of an entry with the other tools; "
          "it is a path and it changes when anything above it is renamed.",
          schema({}, {}), [library = std::move(library)](const JSON::Object&, ResultText& text) {
            writeTree(library->contents(library->root()), text);
          }};
}

Tool listFolders(std::shared_ptr<const ScriptLibrary> library) {
  return {"list_folders",
          "Every folder in the library, flat. Use one of these ids as \"folder\" when creating something; omit "
          "\"folder\" to work at the top level.",
          schema({}, {}), [library = std::move(library)](const JSON::Object&) {
            return JSON(folders(library->contents(library->root()))).encoded();
          }};
}

Tool listVersions(std::shared_ptr<const ScriptLibrary> library, std::shared_ptr<const VersionStore> versions) {
  return {"list_versions",
          "The saved versions of a script, newest first. Each one can be put back from the app's history pane.",
          schema({{"id", "Identifier of the script"}}, {"id"}),
          [library = std::move(library), versions = std::move(versions)](const JSON::Object& arguments) {
            const auto script = scriptAt(requiredString("id", arguments), *library);
            return JSON(savedVersions(versions->versions(pathOf(script.identifier, *library)))).encoded();
          }};
}

Tool readScript(std::shared_ptr<const ScriptLibrary> library) {
  return {"read_script", "The full text of one script.",
          schema({{"id", "Identifier of the script, from list_scripts"}}, {"id"}),
          [library = std::move(library)](const JSON::Object& arguments) {
            return library->read(scriptAt(requiredString("id", arguments), *library));
          }};
}

}  // namespace kelvane
