#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// Which folder may include from which: the table in docs/ARCHITECTURE.md, held against every #include of the tree.
namespace kelvane::house {

struct Source {
  std::string path;  ///< From the root of the tree, as an include of it is written: "protocol/JSON.h".
  std::string text;
};

/// All .h and .cpp files below the root, in the order of their paths. Leaves out build folders, hidden folders and
/// node_modules. Throws what std::filesystem throws.
std::vector<Source> sourcesBelow(const std::filesystem::path& root);

/// What is wrong with the includes of these sources, one sentence for each fault. `tree` must be the whole tree. The
/// rules:
///
/// - Every source is in a room: a folder that is listed in IncludeGraph.cpp with the rooms that it may include.
/// - A file of the tree is included in quotes, by its path from the root. Angle brackets are for other libraries.
/// - It is in the including room itself, or in a room that this room may include. There are no exceptions.
/// - No file includes itself, directly or through others.
std::vector<std::string> faultsIn(const std::vector<Source>& tree);

}  // namespace kelvane::house
