#pragma once

#include "protocol/Tool.h"
#include "scripttools/WritingTurn.h"

/// The tools that change the library: its items, a script's text, and its saved versions. Each holds the library's lock
/// during its call. If several arguments are wrong, the first one in the order of the tool's members is reported.
namespace kelvane {

/// "create_script": a new script, with or without a text. If writing the text fails, the new script stays, empty.
Tool createScript(const WritingTurns& turns);

/// "create_folder": a new folder.
Tool createFolder(const WritingTurns& turns);

/// "rename": a new name for a script or a folder.
Tool renameItem(const WritingTurns& turns);

/// "save_version": saves a script's present text as a version under the given note. Fails for an empty script.
Tool saveVersion(const WritingTurns& turns);

/// "update_script": saves the present text as a version, then replaces it, even by an equal one.
Tool updateScript(const WritingTurns& turns);

/// "append_to_script": saves the present text as a version, then adds to its end.
Tool appendToScript(const WritingTurns& turns);

}  // namespace kelvane
