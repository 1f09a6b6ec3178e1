#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/QuorvelLibrary.h"
#include "quorvel/files/Expected.h"
#include "quorvel/files/PathBeneath.h"
#include "quorvel/files/SystemCalls.h"

/// What is in a library's folder. Scripts are files with the library's extension. Names that begin with a dot, other
/// files, symbolic links and names that are not UTF-8 do not count.
///
/// Each function here reads the entries of all folders below one, and asks the system for nothing else. It holds one
/// folder open at a time beside the root, does not recurse, and is linear in the entries but for their sorting. Several
/// threads may call it at once. A folder below that we are not permitted to read, or that is gone by the time it is
/// read, counts as empty. Any other failure there, such as too many open files, throws LibraryError, because the answer
/// would not be complete.
namespace quorvel {

/// The extension of script files, with the dot.
inline constexpr std::string_view scriptSuffix = ".md";

/// Where a listing begins, and how long identifiers may be.
struct ListingScope {
  int root;                       ///< The library's folder, open.
  PathBeneath folder;             ///< The folder to list.
  std::size_t longestIdentifier;  ///< Items with longer ones could not be opened by their paths and are left out.
};

/// Shows the items below the folder: in each folder the folders first, then the scripts, each in natural order. Returns
/// why the folder itself could not be read, if so. Keeps the names in the folders on the way to the current one, and
/// nothing for those that were shown.
std::error_code visitItems(const SystemCalls& calls, const ListingScope& scope, ItemVisitor& visitor);

/// The same as a tree: the items in the folder, each folder with its children. An error if the folder itself cannot be
/// read.
Expected<std::vector<ScriptItem>> listing(const SystemCalls& calls, const ListingScope& scope);

/// How many scripts and folders the listing leaves out because their names are not UTF-8. What is below such a folder
/// is not counted. An error as for the listing.
Expected<std::size_t> countOfUnlistableNames(const SystemCalls& calls, const ListingScope& scope);

/// The folders in which there are temporary files (TemporaryName.h), or may be, because we must not read them.
struct FoldersFound {
  std::vector<PathBeneath> folders;
  bool areAll = true;  ///< False if another folder could not be read. It may have been moved meanwhile.
};

/// Looks into the root and every folder that a listing looks into, whatever its name's bytes, and into `another`, which
/// may be hidden. Does not throw if one cannot be read. Reads each folder once.
FoldersFound foldersWithTemporaryFiles(const SystemCalls& calls, int root, const PathBeneath& another);

/// The size of the longest identifier that the listing has; the folder's own if the folder is empty, gone or not
/// permitted to be read.
std::size_t longestIdentifierBelow(const SystemCalls& calls, const ListingScope& scope);

}  // namespace quorvel
