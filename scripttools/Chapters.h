#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/QuorvelCore.h"

/// What the chapter tools share: the list that they return, the positions that they are given, and checks that stop the
/// process if the chapter model contradicts itself.
///
/// Pure functions, linear in the script, which may be called from several threads at once.
namespace kelvane {

/// The definition of a chapter, as clients read it in descriptions and messages.
inline constexpr std::string_view chapterRule =
    "A chapter is a line starting with \"# \" and everything up to the next one. Scripts without such lines have no "
    "chapters.";

/// The script's chapters as the JSON that clients receive, in the order of the text:
///
///     [{"chapter":1,"starts_at":"0:00","title":"Intro","words":42}, …]
std::string chapterList(const quorvel::Script& script);

/// The 0-based index of the chapter at a client's position: a decimal number from 1 to the number of chapters. One sign
/// and leading zeros are permitted, white space is not. Throws RPCError::invalidParams, which quotes the position as it
/// was sent, if there is no such chapter.
std::size_t chapterIndex(std::string_view position, const quorvel::Script& script);

/// A chapter's text without its heading line, white space included. `chapters` must be those of `script`, and `index`
/// less than their number. The result is a part of the script's text and lives as long.
std::string_view chapterBody(std::size_t index, const std::vector<quorvel::ScriptChapter>& chapters,
                             const quorvel::Script& script);

/// The script's chapters, checked by `requireConsistent`.
std::vector<quorvel::ScriptChapter> chaptersOf(const quorvel::Script& script);

/// Stops the process unless the chapters fit the script: one chapter per heading, numbered in order, each ending inside
/// the script's text and not before its heading ends, with a range of words that does not run backwards.
void requireConsistent(const std::vector<quorvel::ScriptChapter>& chapters, const quorvel::Script& script);

/// The edit that the chapter model must return for a chapter that exists. Stops the process if there is none.
quorvel::TextEdit requireEdit(std::optional<quorvel::TextEdit> edit);

}  // namespace kelvane
