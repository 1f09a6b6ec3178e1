#include "scripttools/ScriptTools.h"

#include <utility>

#include "platform/FatalError.h"
#include "scripttools/ChapterEditingTools.h"
#include "scripttools/ChapterReadingTools.h"
#include "scripttools/LibraryReadingTools.h"
#include "scripttools/LibraryWritingTools.h"

namespace kelvane {

ScriptTools::ScriptTools(std::shared_ptr<quorvel::ScriptLibrary> library,
                         std::shared_ptr<quorvel::VersionStore> versions)
    : library_(std::move(library)), versions_(std::move(versions)) {
  if (!library_ || !versions_) fatalError("ScriptTools needs a library and a version store.");
}

std::vector<Tool> ScriptTools::tools(bool allowingWrites) const {
  std::vector<Tool> tools = {
      listScripts(library_), listFolders(library_),  listVersions(library_, versions_),
      readScript(library_),  listChapters(library_), readChapter(library_),
  };
  if (!allowingWrites) return tools;  // what does not exist cannot be called by mistake

  const WritingTurns turns(library_, versions_);
  const std::initializer_list<Tool> writing = {
      createScript(turns),  createFolder(turns),   renameItem(turns),    saveVersion(turns),
      updateScript(turns),  appendToScript(turns), addChapter(turns),    renameChapter(turns),
      updateChapter(turns), moveChapter(turns),    removeChapter(turns),
  };
  tools.insert(tools.end(), writing);
  return tools;
}

}  // namespace kelvane
