#pragma once

#include "protocol/Tool.h"
#include "scripttools/WritingTurn.h"

/// The tools that change a script's chapters. Each holds the library's lock during its call, saves the previous text as
/// a version, writes the new text, and returns the new list of chapters (`chapterList`).
///
/// An edit that leaves the text canonically equivalent saves no version and writes nothing. A failure is thrown before
/// anything is saved, unless saving or writing itself fails.
namespace kelvane {

/// "add_chapter": a new chapter at the end or before another one.
Tool addChapter(const WritingTurns& turns);

/// "rename_chapter": a new title for a chapter.
Tool renameChapter(const WritingTurns& turns);

/// "update_chapter": a new text for a chapter.
Tool updateChapter(const WritingTurns& turns);

/// "move_chapter": another position for a chapter.
Tool moveChapter(const WritingTurns& turns);

/// "remove_chapter": removes a heading, with or without the text below it.
Tool removeChapter(const WritingTurns& turns);

}  // namespace kelvane
