#include "scripttools/LibraryWritingTools.h"

#include <optional>
#include <string>

#include "protocol/RPCError.h"
#include "scripttools/Arguments.h"
#include "scripttools/ItemSummary.h"
#include "scripttools/SavedMoment.h"

namespace kelvane {

Tool createScript(const WritingTurns& turns) {
  return {"create_script",
          "Makes a new script, optionally with its opening text. If the name is taken a number is added, so read the "
          "name that comes back.",
          schema({{"name", "What to call it, without a file extension"},
                  {"folder", "Identifier of the folder to put it in. Omit for the top level."},
                  {"text", "The script's opening text. Optional."}},
                 {"name"}),
          turns.running([](const JSON::Object& arguments, WritingTurn& turn) {
            const auto folder = turn.folderAt(suppliedString("folder", arguments));
            const auto script = turn.create(requiredString("name", arguments), folder);
            if (const auto text = suppliedString("text", arguments)) turn.write(*text, script);
            return JSON(itemSummary(script)).encoded();
          })};
}

Tool createFolder(const WritingTurns& turns) {
  return {
      "create_folder", "Makes a new folder. If the name is taken a number is added, so read the name that comes back.",
      schema(
          {{"name", "What to call it"}, {"folder", "Identifier of the folder to nest it in. Omit for the top level."}},
          {"name"}),
      turns.running([](const JSON::Object& arguments, WritingTurn& turn) {
        const auto folder = turn.folderAt(suppliedString("folder", arguments));
        return JSON(itemSummary(turn.createFolder(requiredString("name", arguments), folder))).encoded();
      })};
}

Tool renameItem(const WritingTurns& turns) {
  return {"rename",
          "Renames a script or a folder. The identifier changes with the name, and renaming a folder changes the "
          "identifier of everything inside it, so use the one that comes back.",
          schema({{"id", "Identifier of the script or folder"}, {"name", "The new name"}}, {"id", "name"}),
          turns.running([](const JSON::Object& arguments, WritingTurn& turn) {
            const auto item = turn.itemAt(requiredString("id", arguments));
            return JSON(itemSummary(turn.rename(item, requiredString("name", arguments)))).encoded();
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
          turns.running([](const JSON::Object& arguments, WritingTurn& turn) {
            const auto script = turn.scriptAt(requiredString("id", arguments));
            const auto note = requiredString("note", arguments);
            const auto version = turn.snapshot(turn.read(script), script, note);
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
          turns.running([](const JSON::Object& arguments, WritingTurn& turn) {
            const auto script = turn.scriptAt(requiredString("id", arguments));
            const auto text = requiredString("text", arguments);
            turn.keepPrevious(script, requiredString("note", arguments));
            turn.write(text, script);
            return JSON(itemSummary(script, text)).encoded();
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
          turns.running([](const JSON::Object& arguments, WritingTurn& turn) {
            const auto script = turn.scriptAt(requiredString("id", arguments));
            const auto added = requiredString("text", arguments);
            turn.keepPrevious(script, requiredString("note", arguments));
            const auto text = quorvel::ScriptText::appending(added, turn.read(script));
            turn.write(text, script);
            return JSON(itemSummary(script, text)).encoded();
          })};
}

}  // namespace kelvane
