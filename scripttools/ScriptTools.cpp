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
  for (const auto makeTool : {createScript, createFolder, renameItem, saveVersion, updateScript, appendToScript,
                              addChapter, renameChapter, updateChapter, moveChapter, removeChapter})
    tools.push_back(makeTool(turns));
  return tools;
}

}  // namespace kelvane
