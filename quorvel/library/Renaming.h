#pragma once

#include <string>

#include "quorvel/library/SystemCalls.h"

/// Renaming an entry within its folder to a name that must be free. What the new name already names is never replaced,
/// whatever others do meanwhile. Both answer false with the reason in errno, EEXIST when the name is taken; the entry
/// has its old name then.
namespace quorvel {

/// Where the system cannot rename so, the file gets a second name and loses the first, which a process that dies in
/// between leaves to it.
bool renameFile(const SystemCalls& calls, int folder, const std::string& from, const std::string& to);

/// Where the system cannot rename so, an empty folder takes the name first and is replaced, which a process that dies
/// in between leaves there.
bool renameFolder(const SystemCalls& calls, int folder, const std::string& from, const std::string& to);

}  // namespace quorvel
