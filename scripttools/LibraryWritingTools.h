#pragma once

#include "protocol/Tool.h"
#include "scripttools/WritingTurn.h"

/// The tools that change the library: its items, a script's text, and what history holds of it. Arguments are read, and
/// their failures found, in the order that each tool reads them in.
namespace kelvane {

/// "create_script" and "create_folder": a new item, in a folder or at the top level.
Tool createScript(const WritingTurns& turns);
Tool createFolder(const WritingTurns& turns);

/// "rename": a new name for a script or a folder.
Tool renameItem(const WritingTurns& turns);

/// "save_version": a script's present text kept in history; the text stays.
Tool saveVersion(const WritingTurns& turns);

/// "update_script" and "append_to_script": a new text, the present one kept in history first.
Tool updateScript(const WritingTurns& turns);
Tool appendToScript(const WritingTurns& turns);

}  // namespace kelvane
