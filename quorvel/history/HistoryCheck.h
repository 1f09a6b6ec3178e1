#pragma once

#include <string>
#include <vector>

#include "quorvel/history/SQLite.h"

namespace quorvel {

/// What is wrong inside a version history, one sentence each; empty if it is valid. Runs SQLite's own check of the file
/// and, if that finds nothing, checks the rules of the format that SQLite cannot enforce. Reads every text, one at a
/// time. Throws sqlite::Error if the file cannot be read.
std::vector<std::string> historyProblems(sqlite::Connection& connection);

}  // namespace quorvel
