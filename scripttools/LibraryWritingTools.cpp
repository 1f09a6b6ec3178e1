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

using quorvel::ScriptLibrary;

// Each tool checks its arguments in the order in which clients see faults reported, and then acquires the lock. What an
// identifier names is looked up again while the lock is held, and only that item is used.
namespace {

// The argument "id", which must name a script.

std::string_view requiredScript(const JSON::Object& arguments, const ScriptLibrary& library) {
  const auto identifier = requiredString("id", arguments);
  scriptAt(identifier, library);
  return identifier;
}

// The argument "folder", which must name a folder if it is given.
std::optional<std::string_view> suppliedFolder(const JSON::Object& arguments, const ScriptLibrary& library) {
  const auto identifier = suppliedString("folder", arguments);
  folderAt(identifier, library);
  return identifier;
}

}  // namespace

Tool createScript(const WritingTurns& turns) {
  return {"create_script",
          "Makes a new script, optionally with its opening text. If the name is taken a number is added, so read the "
          "name that comes back.",
          schema({{"name", "What to call it, without a file extension"},
                  {"folder", "Identifier of the folder to put it in. Omit for the top level."},
                  {"text", "The script's opening text. Optional."}},
                 {"name"}),
          [turns](const JSON::Object& arguments) {
            const auto folder = suppliedFolder(arguments, turns.library());
            const auto name = requiredString("name", arguments);
            const auto text = suppliedString("text", arguments);
            const WritingTurn turn(turns);
            const auto parent = folderAt(folder, turn.library());
            const auto script =
                text ? turn.library().createWithText(name, parent, *text) : turn.library().create(name, parent);
            return JSON(itemSummary(script)).encoded();
          }};
}

Tool createFolder(const WritingTurns& turns) {
  return {
      "create_folder", "Makes a new folder. If the name is taken a number is added, so read the name that comes back.",
      schema(
          {{"name", "What to call it"}, {"folder", "Identifier of the folder to nest it in. Omit for the top level."}},
          {"name"}),
      [turns](const JSON::Object& arguments) {
        const auto parent = suppliedFolder(arguments, turns.library());
        const auto name = requiredString("name", arguments);
        const WritingTurn turn(turns);
        const auto folder = turn.library().createFolder(name, folderAt(parent, turn.library()));
        return JSON(itemSummary(folder)).encoded();
      }};
}

Tool renameItem(const WritingTurns& turns) {
  return {"rename",
          "Renames a script or a folder. The identifier changes with the name, and renaming a folder changes the "
          "identifier of everything inside it, so use the one that comes back.",
          schema({{"id", "Identifier of the script or folder"}, {"name", "The new name"}}, {"id", "name"}),
          [turns](const JSON::Object& arguments) {
            const auto id = requiredString("id", arguments);
            itemAt(id, turns.library());
            const auto name = requiredString("name", arguments);
            const WritingTurn turn(turns);
            return JSON(itemSummary(turn.library().rename(itemAt(id, turn.library()), name))).encoded();
          }};
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
          [turns](const JSON::Object& arguments) {
            const auto id = requiredScript(arguments, turns.library());
            const auto note = requiredString("note", arguments);
            WritingTurn turn(turns);
            const auto script = scriptAt(id, turn.library());
            const auto version = turn.keep(script, note);
            if (!version) {
              throw RPCError::invalidParams("\"" + script.identifier + "\" is empty, so there is nothing to keep");
            }
            return JSON(JSON::Object{{"id", script.identifier},
                                     {"name", version->name},
                                     {"saved", savedMoment(version->saved)},
                                     {"words", version->words}})
                .encoded();
          }};
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
          [turns](const JSON::Object& arguments) {
            const auto id = requiredScript(arguments, turns.library());
            const auto text = requiredString("text", arguments);
            const auto note = requiredString("note", arguments);
            WritingTurn turn(turns);
            const auto script = scriptAt(id, turn.library());
            turn.keepPrevious(script, note);
            turn.library().write(text, script);
            return JSON(itemSummary(script, text)).encoded();
          }};
}

Tool appendToScript(const WritingTurns& turns) {
  return {"append_to_script",
          "Adds text to the end of a script, leaving a blank line before it. The previous text is kept in the app's "
          "version history first, labelled with your note.",
          schema({{"id", "Identifier of the script"},
                  {"text", "The text to add on the end"},
                  {"note", "A few words on what you added, for the version history"}},
                 {"id", "text", "note"}),
          [turns](const JSON::Object& arguments) {
            const auto id = requiredScript(arguments, turns.library());
            const auto added = requiredString("text", arguments);
            const auto note = requiredString("note", arguments);
            WritingTurn turn(turns);
            const auto script = scriptAt(id, turn.library());
            turn.keepPrevious(script, note);
            const auto text = quorvel::ScriptText::appending(added, turn.library().readToReplace(script));
            turn.library().write(text, script);
            return JSON(itemSummary(script, text)).encoded();
          }};
}

}  // namespace kelvane
