#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/QuorvelCore.h"
#include "quorvel/files/Expected.h"
#include "quorvel/files/PathBeneath.h"
#include "quorvel/files/SystemCalls.h"

/// What is in a library's folder. Scripts are files with the library's extension; names that begin with a dot, other
/// files, symbolic links and names that are not UTF-8 are not part of it.
namespace quorvel {

/// The extension of script files, with the dot.
inline constexpr std::string_view scriptSuffix = ".md";

/// Where a listing begins, and how far it goes.
struct ListingScope {
  int root;                       ///< The library's folder, open.
  PathBeneath folder;             ///< The folder to list.
  std::size_t longestIdentifier;  ///< What has a longer one could not be opened by its path and is left out.
};

/// The items in the folder, each folder with its children filled in: folders first, then scripts, each in natural
/// order. An error when the folder itself cannot be read. A folder below that may not be
/// read, or that went meanwhile, has no children; any other failure there, such as too many open files, throws
/// LibraryError, since what is listed then would not be all. Asks the system for nothing but the entries, and holds one
/// folder open at a time beside the root.
Expected<std::vector<ScriptItem>> listing(const SystemCalls& calls, const ListingScope& scope);

/// How many scripts and folders the listing leaves out because their names are not UTF-8; what is below such a folder
/// is not counted. Fails as the listing does.
Expected<std::size_t> countOfUnlistableNames(const SystemCalls& calls, const ListingScope& scope);

/// The size of the longest identifier of a script or folder below the folder, the folder's own where nothing is. What
/// the listing leaves out does not count, nor what is below a folder that may not be read. Fails as the listing does.
std::size_t longestIdentifierBelow(const SystemCalls& calls, const ListingScope& scope);

}  // namespace quorvel
