#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "program/CommandLine.h"

namespace kelvane {

/// What can stand in the place of a word of the table, such as "SCRIPT" or "TOOL", behind these words of the command.
/// Empty if that is not known, or cannot be found out now.
using WordsFor =
    std::function<std::vector<std::string>(std::string_view word, const Command& command, const Arguments& typed)>;

/// The answer that means "any file": in the place of the whole word, or behind "=" if the word is an option with one.
inline constexpr std::string_view anyFile = "@files";

/// What the last of the typed arguments, which may be empty, can be completed to. All of it is made from the table of
/// commands. The same for every shell, so that their scripts need to know nothing.
///
///     completions({"his"}, commands, …)           // {"history"}
///     completions({"connect", ""}, commands, …)   // {"claude", "codex"}
std::vector<std::string> completions(std::vector<std::string> typed, Commands commands, const WordsFor& wordsFor);

}  // namespace kelvane
