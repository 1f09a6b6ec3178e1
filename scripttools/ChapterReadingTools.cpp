#include "scripttools/ChapterReadingTools.h"

#include <string>
#include <utility>

#include "scripttools/Chapters.h"
#include "scripttools/Resolution.h"

namespace kelvane {

using quorvel::Script;
using quorvel::ScriptLibrary;

Tool listChapters(std::shared_ptr<const ScriptLibrary> library) {
  return {"list_chapters",
          "A script's chapters in order: position, title, words, and roughly when each starts when read aloud. Empty "
          "for a script with no chapters. " +
              std::string(chapterRule),
          schema({{"id", "Identifier of the script"}}, {"id"}),
          [library = std::move(library)](const JSON::Object& arguments) {
            return chapterList(Script(library->read(scriptAt(requiredString("id", arguments), *library))));
          }};
}

Tool readChapter(std::shared_ptr<const ScriptLibrary> library) {
  return {"read_chapter", "The text of one chapter, without its heading.",
          schema({{"id", "Identifier of the script"}, {"chapter", "Position of the chapter, 1 for the first"}},
                 {"id", "chapter"}),
          [library = std::move(library)](const JSON::Object& arguments) {
            const Script script(library->read(scriptAt(requiredString("id", arguments), *library)));
            const auto index = chapterIndex(requiredString("chapter", arguments), script);
            return std::string(quorvel::trimmingWhitespace(chapterBody(index, chaptersOf(script), script)));
          }};
}

}  // namespace kelvane
