#include "scripttools/LibraryWritingTools.h"

#include <optional>
#include <string>
#include <string_view>

#include "protocol/RPCError.h"
#include "scripttools/Arguments.h"
#include "scripttools/ItemSummary.h"
#include "scripttools/Resolution.h"
#include "scripttools/SavedMoment.h"

namespace kelvane {

using quorvel::ScriptItem;
using quorvel::ScriptLibrary;

namespace {

// One request per tool. The members stand in the order in which they are checked, and views refer to the arguments.

struct NewItem {
  std::optional<std::string> folder;
  std::string_view name;

  static NewItem resolved(const JSON::Object& arguments, const ScriptLibrary& library) {
    return {folderAt(suppliedString("folder", arguments), library), requiredString("name", arguments)};
  }
};

struct NewScript {
  NewItem item;
  std::optional<std::string_view> text;

  static NewScript resolved(const JSON::Object& arguments, const ScriptLibrary& library) {
    return {NewItem::resolved(arguments, library), suppliedString("text", arguments)};
  }
};

struct NewName {
  ScriptItem item;
  std::string_view name;

  static NewName resolved(const JSON::Object& arguments, const ScriptLibrary& library) {
    return {itemAt(requiredString("id", arguments), library), requiredString("name", arguments)};
  }
};

struct NewVersion {
  ScriptItem script;
  std::string_view note;

  static NewVersion resolved(const JSON::Object& arguments, const ScriptLibrary& library) {
    return {scriptAt(requiredString("id", arguments), library), requiredString("note", arguments)};
  }
};

struct NewText {
  ScriptItem script;
  std::string_view text, note;

  static NewText resolved(const JSON::Object& arguments, const ScriptLibrary& library) {
    return {scriptAt(requiredString("id", arguments), library), requiredString("text", arguments),
            requiredString("note", arguments)};
  }
};

}  // namespace

Tool createScript(const WritingTurns& turns) {
  return {"create_script",
          "Makes a new script, optionally with its opening text. If the name is taken a number is added, so read the "
          "name that comes back.",
          schema({{"name", "What to call it, without a file extension"},
                  {"folder", "Identifier of the folder to put it in. Omit for the top level."},
                  {"text", "The script's opening text. Optional."}},
                 {"name"}),
          turns.running(NewScript::resolved, [](const NewScript& request, WritingTurn& turn) {
            const auto script = turn.create(request.item.name, request.item.folder);
            if (request.text) turn.write(*request.text, script);
            return JSON(itemSummary(script)).encoded();
          })};
}

Tool createFolder(const WritingTurns& turns) {
  return {
      "create_folder", "Makes a new folder. If the name is taken a number is added, so read the name that comes back.",
      schema(
          {{"name", "What to call it"}, {"folder", "Identifier of the folder to nest it in. Omit for the top level."}},
          {"name"}),
      turns.running(NewItem::resolved, [](const NewItem& request, WritingTurn& turn) {
        return JSON(itemSummary(turn.createFolder(request.name, request.folder))).encoded();
      })};
}

Tool renameItem(const WritingTurns& turns) {
  return {"rename",
          "Renames a script or a folder. The identifier changes with the name, and renaming a folder changes the "
          "identifier of everything inside it, so use the one that comes back.",
          schema({{"id", "Identifier of the script or folder"}, {"name", "The new name"}}, {"id", "name"}),
          turns.running(NewName::resolved, [](const NewName& request, WritingTurn& turn) {
            return JSON(itemSummary(turn.rename(request.item, request.name))).encoded();
          })};
}

Tool saveVersion(const WritingTurns& turns) {
  return {"save_version",
          "Keeps the script's current text in version history as a named restore point, without changing a word of it. "
          "Use it before a big rewrite, or whenever you are asked to keep a copy of how something reads now.",
          schema({{"id", "Identifier of the script"},
                  {"note",
                   "What this version is, as it should read in the history list — \"the long version\", \"before "
                   "cutting the intro\""}},
                 {"id", "note"}),
          turns.running(NewVersion::resolved, [](const NewVersion& request, WritingTurn& turn) {
            const ScriptItem& script = request.script;
            const auto version = turn.snapshot(turn.read(script), script, request.note);
            if (!version) {
              throw RPCError::invalidParams("\"" + script.identifier + "\" is empty, so there is nothing to keep");
            }
            return JSON(JSON::Object{{"id", script.identifier},
                                     {"name", version->name},
                                     {"saved", savedMoment(version->saved)},
                                     {"words", version->words}})
                .encoded();
          })};
}

Tool updateScript(const WritingTurns& turns) {
  return {"update_script",
          "Replaces a script's text. The previous text is kept in the app's version history first, labelled with your "
          "note.",
          schema({{"id", "Identifier of the script"},
                  {"text", "The new text, replacing everything already there"},
                  {"note",
                   "A few words on what you changed, for the version history — \"tightened the intro\", \"cut to 90 "
                   "seconds\""}},
                 {"id", "text", "note"}),
          turns.running(NewText::resolved, [](const NewText& request, WritingTurn& turn) {
            turn.keepPrevious(request.script, request.note);
            turn.write(request.text, request.script);
            return JSON(itemSummary(request.script, request.text)).encoded();
          })};
}

Tool appendToScript(const WritingTurns& turns) {
  return {"append_to_script",
          "Adds text to the end of a script, leaving a blank line before it. The previous text is kept in the app's "
          "version history first, labelled with your note.",
          schema({{"id", "Identifier of the script"},
                  {"text", "The text to add on the end"},
                  {"note", "A few words on what you added, for the version history"}},
                 {"id", "text", "note"}),
          turns.running(NewText::resolved, [](const NewText& request, WritingTurn& turn) {
            turn.keepPrevious(request.script, request.note);
            const auto text = quorvel::ScriptText::appending(request.text, turn.read(request.script));
            turn.write(text, request.script);
            return JSON(itemSummary(request.script, text)).encoded();
          })};
}

}  // namespace kelvane
