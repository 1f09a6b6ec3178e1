#pragma once

#include <string>
#include <system_error>

#include "quorvel/files/SystemCalls.h"

/// Renaming an entry within its folder to a name that must be free. An existing entry with the new name is never
/// replaced, whatever other programs do meanwhile. (Putting a file in place of another is Replacement.h.)
namespace quorvel {

/// What is to be found in the folder after a renaming.
enum class NamesLeft {
  onlyNew,       ///< The entry has its new name.
  onlyOld,       ///< It has its old name, unless another program has taken that away.
  both,          ///< A file has both names; a folder has its old one, and an empty folder has the new one.
  newAndHidden,  ///< The file has its new name and a temporary one (TemporaryName.h), which the next sweep takes away.
  unknown,       ///< Cannot be determined. A file has at least one of these names.
};

/// How a renaming ended. The error says why the names are not `onlyNew`: EEXIST when the new name is taken, EBUSY when
/// another program put something in the old one's place meanwhile.
struct RenameResult {
  NamesLeft names = NamesLeft::onlyNew;
  std::error_code error;
};

/// Renames a file in one step where the system can: `onlyNew` and `onlyOld` are the only results then.
///
/// Where it cannot, the file gets a second name, and the first is taken away by way of a temporary one, so that a file
/// which another program puts there meanwhile is seen and gets its name back. A process that dies in between leaves
/// what `both` or `newAndHidden` say; where the disk fails in between, the result says which. Where files cannot have
/// second names either, nothing is done: EOPNOTSUPP.
RenameResult renameFile(const SystemCalls& calls, int folder, const std::string& from, const std::string& to);

/// Renames a folder, in one step where the system can. Where it cannot, an empty folder takes the name first and is
/// replaced; a process that dies in between leaves it there.
RenameResult renameFolder(const SystemCalls& calls, int folder, const std::string& from, const std::string& to);

}  // namespace quorvel
