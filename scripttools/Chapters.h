#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/QuorvelCore.h"

/// What the chapter tools share: the listing that they answer with, the positions that they are given, and the watch on
/// a chapter model that contradicts itself.
namespace kelvane {

/// What a chapter is, in the words of the tools' descriptions and of the message for a script that has none.
inline constexpr std::string_view chapterRule =
    "A chapter is a line starting with \"# \" and everything up to the next one. Scripts without such lines have no "
    "chapters.";

/// The script's chapters as JSON text: an array, in the order of the text, of objects with "chapter" (the position, 1
/// for the first), "starts_at" (a clock reading), "title" and "words".
std::string chapterList(const quorvel::Script& script);

/// The 0-based index of the chapter that a client names by its position: a decimal number from 1 to the number of
/// chapters, one sign and leading zeros allowed, nothing else. Throws RPCError::invalidParams, quoting the position as
/// it was sent, when there is no such chapter.
std::size_t chapterIndex(std::string_view position, const quorvel::Script& script);

/// The text of a chapter as it stands, its heading left out. `chapters` are those of the script, `index` is less than
/// their number, and the result is a part of the script's text.
std::string_view chapterBody(std::size_t index, const std::vector<quorvel::ScriptChapter>& chapters,
                             const quorvel::Script& script);

/// The script's chapters, by the chapter model. Stops the process where `requireConsistent` does.
std::vector<quorvel::ScriptChapter> chaptersOf(const quorvel::Script& script);

/// Stops the process unless the chapters fit the script: one for each heading, in order, its text behind the heading
/// and inside the script's text, its words counted forwards.
void requireConsistent(const std::vector<quorvel::ScriptChapter>& chapters, const quorvel::Script& script);

/// The edit, where the chapter model owes one: no edit stops the process.
quorvel::TextEdit owedEdit(std::optional<quorvel::TextEdit> edit);

}  // namespace kelvane
