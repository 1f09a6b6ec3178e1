#include "scripttools/ChapterEditingTools.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Unicode.h"
#include "protocol/RPCError.h"
#include "scripttools/Arguments.h"
#include "scripttools/Chapters.h"
#include "scripttools/Resolution.h"

/// The five tools differ in how they compute the new text and in the note of the saved version; everything else is in
/// `editing`. Each reads its arguments in the order in which clients see faults reported: "id" first, which is known
/// before the lock is acquired, then those that need the script's text.
namespace kelvane {

using quorvel::ChapterEdits;
using quorvel::Script;
using quorvel::ScriptHeadings;
using quorvel::TextEdit;

namespace {

// `Change` returns the script's new text. `Note` returns the note for the version of the old one; it quotes arguments
// as they were sent, and is called only if the text changes.
using Change = std::string (*)(const JSON::Object& arguments, const Script& script);
using Note = std::string (*)(const JSON::Object& arguments);

Tool::Run editing(const WritingTurns& turns, Change change, Note note) {
  return [turns, change, note](const JSON::Object& arguments) {
    const auto id = requiredString("id", arguments);
    scriptAt(id, turns.library());  // so that a bad identifier does not wait for the lock
    WritingTurn turn(turns);
    const auto item = scriptAt(id, turn.library());
    const Script script(turn.library().readToReplace(item));
    const auto text = change(arguments, script);
    if (unicode::equivalent(text, script.text())) return chapterList(script);
    // Built before anything is changed, so that running out of memory here changes nothing.
    auto listing = chapterList(Script(text));
    turn.keepPrevious(item, note(arguments));
    turn.library().write(text, item);
    return listing;
  };
}

/// A script with words but no chapters, with a heading above those words: they must become chapter 1 before a chapter
/// is added. `needed` returns std::nullopt for any other script.
///
/// Two LF always follow that heading, but everything else that is added takes the line breaks of the words. So the edit
/// is computed on a text whose heading has the line breaks of the words too, and `applied` then puts LF there.
class FirstChapter {
 public:
  static std::optional<FirstChapter> needed(const JSON::Object& arguments, const Script& script) {
    if (!script.headings().empty() || script.wordCount() == 0) return std::nullopt;
    const auto title = suppliedString("first_title", arguments);
    if (!title) {
      throw RPCError::invalidParams(
          "This script has no chapters yet. Give \"first_title\", a title for the text already there, so it becomes "
          "chapter 1.");
    }
    return FirstChapter(std::string(ScriptHeadings::marker).append(*title), script.text());
  }

  const Script& script() const { return script_; }

  std::string applied(const TextEdit& edit) const {
    std::string text = edit.applied(script_.text());
    // A title of several lines may hold headings itself, before which a chapter can be added.
    const bool isBefore = edit.range.end <= headingSize_;
    const std::size_t moved = isBefore ? edit.replacement.size() - (edit.range.end - edit.range.begin) : 0;
    return text.replace(headingSize_ + moved, breaksSize_, "\n\n");
  }

 private:
  FirstChapter(const std::string& heading, std::string_view words)
      : headingSize_(heading.size()),
        breaksSize_(mostlyCRLF(words) ? 4 : 2),
        script_(heading + (mostlyCRLF(words) ? "\r\n\r\n" : "\n\n") + std::string(words)) {}

  static bool mostlyCRLF(std::string_view text) {
    std::ptrdiff_t more = 0;
    for (std::size_t at = text.find('\n'); at != std::string_view::npos; at = text.find('\n', at + 1))
      more += at > 0 && text[at - 1] == '\r' ? 1 : -1;
    return more > 0;
  }

  std::size_t headingSize_;
  std::size_t breaksSize_;
  Script script_;
};

std::size_t requiredChapter(std::string_view key, const JSON::Object& arguments, const Script& script) {
  return chapterIndex(requiredString(key, arguments), script);
}

bool keepsText(const JSON::Object& arguments) {
  const auto answer = unicode::lowercased(requiredString("keep_text", arguments));
  if (answer != "yes" && answer != "no") throw RPCError::invalidParams("\"keep_text\" is \"yes\" or \"no\"");
  return answer == "yes";
}

std::string noteNaming(std::string_view edit, std::string_view key, const JSON::Object& arguments) {
  return std::string(edit).append(requiredString(key, arguments));
}

}  // namespace

Tool addChapter(const WritingTurns& turns) {
  return {"add_chapter",
          "Adds a chapter with a title and, optionally, its text: at the end, or before another chapter. A script with "
          "text but no chapters needs \"first_title\" as well, which names the text already there as chapter 1.",
          schema({{"id", "Identifier of the script"},
                  {"title", "The new chapter's title"},
                  {"text", "Its text. Optional."},
                  {"before", "Position of the chapter to put it before. Omit to add it at the end."},
                  {"first_title", "For a script with no chapters yet: the title for the text already there."}},
                 {"id", "title"}),
          editing(
              turns,
              [](const JSON::Object& arguments, const Script& script) {
                const auto first = FirstChapter::needed(arguments, script);
                const Script& base = first ? first->script() : script;
                std::optional<std::size_t> before;
                if (const auto position = suppliedString("before", arguments)) before = chapterIndex(*position, base);
                const auto title = requiredString("title", arguments);
                const auto edit =
                    ChapterEdits::add(title, suppliedString("text", arguments).value_or(""), before, base);
                if (!edit) throw RPCError::invalidParams("Could not add that chapter");
                return first ? first->applied(*edit) : edit->applied(base.text());
              },
              [](const JSON::Object& arguments) { return noteNaming("added chapter ", "title", arguments); })};
}

Tool renameChapter(const WritingTurns& turns) {
  return {"rename_chapter", "Changes a chapter's title. Its text stays as it is.",
          schema({{"id", "Identifier of the script"},
                  {"chapter", "Position of the chapter, 1 for the first"},
                  {"title", "The new title"}},
                 {"id", "chapter", "title"}),
          editing(
              turns,
              [](const JSON::Object& arguments, const Script& script) {
                const auto chapter = requiredChapter("chapter", arguments, script);
                const auto title = requiredString("title", arguments);
                return requireEdit(ChapterEdits::rename(chapter, title, script)).applied(script.text());
              },
              [](const JSON::Object& arguments) { return noteNaming("renamed chapter ", "chapter", arguments); })};
}

Tool updateChapter(const WritingTurns& turns) {
  return {"update_chapter", "Replaces one chapter's text, keeping its heading and every other chapter as they are.",
          schema({{"id", "Identifier of the script"},
                  {"chapter", "Position of the chapter, 1 for the first"},
                  {"text", "The chapter's new text, without the heading"}},
                 {"id", "chapter", "text"}),
          editing(
              turns,
              [](const JSON::Object& arguments, const Script& script) {
                const auto chapter = requiredChapter("chapter", arguments, script);
                const auto text = requiredString("text", arguments);
                return requireEdit(ChapterEdits::replaceText(chapter, text, script)).applied(script.text());
              },
              [](const JSON::Object& arguments) { return noteNaming("rewrote chapter ", "chapter", arguments); })};
}

Tool moveChapter(const WritingTurns& turns) {
  return {"move_chapter", "Moves a chapter, heading and text, to another position.",
          schema({{"id", "Identifier of the script"},
                  {"chapter", "Position of the chapter to move"},
                  {"to", "The position it should end up at"}},
                 {"id", "chapter", "to"}),
          editing(
              turns,
              [](const JSON::Object& arguments, const Script& script) {
                const auto chapter = requiredChapter("chapter", arguments, script);
                const auto to = requiredChapter("to", arguments, script);
                const auto edit = ChapterEdits::move(chapter, to, script);
                return edit ? edit->applied(script.text()) : script.text();
              },
              [](const JSON::Object& arguments) {
                return noteNaming("moved chapter ", "chapter", arguments) + noteNaming(" to ", "to", arguments);
              })};
}

Tool removeChapter(const WritingTurns& turns) {
  return {"remove_chapter",
          "Takes a chapter's heading away. With keep_text \"yes\" its text joins the chapter before; with \"no\" the "
          "text goes too.",
          schema({{"id", "Identifier of the script"},
                  {"chapter", "Position of the chapter"},
                  {"keep_text", "\"yes\" to keep the text, \"no\" to remove it as well"}},
                 {"id", "chapter", "keep_text"}),
          editing(
              turns,
              [](const JSON::Object& arguments, const Script& script) {
                const auto chapter = requiredChapter("chapter", arguments, script);
                const bool keepingText = keepsText(arguments);
                return requireEdit(ChapterEdits::remove(chapter, keepingText, script)).applied(script.text());
              },
              [](const JSON::Object& arguments) { return noteNaming("removed chapter ", "chapter", arguments); })};
}

}  // namespace kelvane
