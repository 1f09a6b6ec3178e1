#pragma once

#include <string>

#include "quorvel/files/SystemCalls.h"

/// Renaming an entry within its folder to a name that must be free. What the new name already names is never replaced,
/// whatever others do meanwhile. Both answer false with the reason in errno, EEXIST when the name is taken; the entry
/// has its old name then, unless another program has taken that away.
namespace quorvel {

/// Where the system cannot rename so, the file gets a second name, and the first is taken away by way of a temporary
/// one (TemporaryName.h), so that a file which another program puts there meanwhile is seen and gets its name back;
/// EBUSY then. A process that dies in between leaves the file with both names, or with the new and the temporary one.
/// A disk that fails in between can leave the same; the result does not tell. Where files cannot have second names
/// either, nothing is done: EOPNOTSUPP.
bool renameFile(const SystemCalls& calls, int folder, const std::string& from, const std::string& to);

/// Where the system cannot rename so, an empty folder takes the name first and is replaced, which a process that dies
/// in between leaves there.
bool renameFolder(const SystemCalls& calls, int folder, const std::string& from, const std::string& to);

}  // namespace quorvel
