#include "scripttools/LibraryReadingTools.h"

#include <string>
#include <utility>
#include <vector>

#include "scripttools/ItemSummary.h"
#include "scripttools/Resolution.h"
#include "scripttools/SavedMoment.h"

namespace kelvane {

using quorvel::ScriptItem;
using quorvel::ScriptLibrary;
using quorvel::ScriptVersion;
using quorvel::VersionStore;

namespace {

// Writes the tree as the array of objects that it is in JSON, without making those: there may be very many. The members
// of an object are in the order of their keys, so a folder's children come first.
class TreeWriter final : public quorvel::ItemVisitor {
 public:
  explicit TreeWriter(ResultText& text) : text_(text) { text_.append("["); }
  void finish() { text_.append("]"); }

  void enter(const ScriptItem&) override {
    static constexpr ResultText::Markup start(R"({"children":[)");
    separate();
    text_.append(start);
    isFirst_ = true;
  }

  void leave(const ScriptItem& folder) override {
    static constexpr ResultText::Markup id(R"(],"id":")");
    text_.append(id);
    writeMembers(folder);
  }

  void meet(const ScriptItem& item) override {
    static constexpr ResultText::Markup id(R"({"id":")");
    separate();
    text_.append(id);
    writeMembers(item);
  }

 private:
  void separate() {
    if (!isFirst_) text_.append(",");
  }

  void writeMembers(const ScriptItem& item) {
    static constexpr ResultText::Markup folder(R"(","kind":"folder","name":")");
    static constexpr ResultText::Markup script(R"(","kind":"script","name":")");
    static constexpr ResultText::Markup end(R"("})");
    text_.appendString(item.identifier);
    text_.append(item.kind == ScriptItem::Kind::folder ? folder : script);
    text_.appendString(item.name);
    text_.append(end);
    isFirst_ = false;
  }

  ResultText& text_;
  bool isFirst_ = true;  // of the array that is being written
};

class FolderCollector final : public quorvel::ItemVisitor {
 public:
  void enter(const ScriptItem& folder) override {
    entries_.append(JSON::Object{{"id", folder.identifier}, {"name", folder.name}});
  }
  void leave(const ScriptItem&) override {}
  void meet(const ScriptItem& item) override {
    if (item.kind == ScriptItem::Kind::folder) enter(item);
  }

  const JSON::Array& entries() const { return entries_; }

 private:
  JSON::Array entries_;
};

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
            TreeWriter tree(text);
            library->visit(tree);
            tree.finish();
          }};
}

Tool listFolders(std::shared_ptr<const ScriptLibrary> library) {
  return {"list_folders",
          "Every folder in the library, flat. Use one of these ids as \"folder\" when creating something; omit "
          "\"folder\" to work at the top level.",
          schema({}, {}), [library = std::move(library)](const JSON::Object&) {
            FolderCollector folders;
            library->visit(folders);
            return JSON(folders.entries()).encoded();
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
            const std::string_view id = requiredString("id", arguments);
            if (!leadsOut(id)) {
              if (auto text = library->readAtOnce(id)) return *std::move(text);
            }
            return library->read(scriptAt(id, *library));
          }};
}

}  // namespace kelvane
