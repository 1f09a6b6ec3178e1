#pragma once

#include <string>
#include <vector>

#include "quorvel/history/SQLite.h"

namespace quorvel {

/// What is wrong inside a version history: SQLite's own check of the file, then the rules of the format that the file
/// cannot enforce by itself. One sentence each, none for a sound history. Reads every text.
std::vector<std::string> historyProblems(sqlite::Connection& connection);

}  // namespace quorvel
