#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "program/OpenedLibrary.h"
#include "program/ScriptVersion.h"

namespace kelvane {

/// What putting a version back did.
struct Restored {
  enum class How { replaced, recreated, unchanged };

  How how = How::replaced;
  std::optional<quorvel::VersionNumber> saved;  ///< The version that holds the replaced text; empty if that was empty.
};

/// Puts a version of a script back, and saves the text that it replaces first, under `label`. A script that is gone is
/// created again. `lock` is the library's, taken before `script` was found: nobody may write between the two.
///
/// Throws an error with complete sentences, which say what is true now.
Restored restore(const FoundScript& script, quorvel::VersionNumber version, std::string_view label,
                 const OpenedLibrary& opened, const quorvel::LibraryLock& lock);

}  // namespace kelvane
