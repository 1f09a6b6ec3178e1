#pragma once

#include "protocol/Tool.h"
#include "scripttools/WritingTurn.h"

/// The tools that change a script's chapters. Each answers with the list of chapters as it is then; the text before is
/// kept in history first, and an edit that leaves the text as it was keeps and writes nothing.
namespace kelvane {

/// "add_chapter", "rename_chapter", "update_chapter", "move_chapter", "remove_chapter".
Tool addChapter(const WritingTurns& turns);
Tool renameChapter(const WritingTurns& turns);
Tool updateChapter(const WritingTurns& turns);
Tool moveChapter(const WritingTurns& turns);
Tool removeChapter(const WritingTurns& turns);

}  // namespace kelvane
