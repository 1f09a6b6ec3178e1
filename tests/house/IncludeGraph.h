#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// The order of the house: which folder may include from which.
namespace kelvane::house {

struct Source {
  std::string path;  ///< From the root of the tree, as an include of it is written: "protocol/JSON.h".
  std::string text;
};

/// All .h and .cpp files below the root, but for build folders, hidden ones and other people's (node_modules), in the
/// order of their paths. Throws what std::filesystem throws.
std::vector<Source> sourcesBelow(const std::filesystem::path& root);

/// What is wrong with the includes of these sources, taken as the whole tree: a sentence each, none for a tree in
/// order.
///
/// - Every source lies in a folder that has its place in the order.
/// - An include of ours is written with quotes, from the root of the tree, and names a source of the tree. What is in
///   angle brackets is other people's.
/// - It points into the including folder itself or into one that this folder may know. There are no exceptions.
/// - No header comes back to itself by way of others.
std::vector<std::string> disorder(const std::vector<Source>& tree);

}  // namespace kelvane::house
