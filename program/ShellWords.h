#pragma once

#include <string>
#include <string_view>

#include "program/OpenedLibrary.h"
#include "quorvel/history/VersionNumber.h"

/// Commands that are printed so that a person can paste them into a shell. Names are other people's, so a shell must
/// take each of them as one word and nothing else.
namespace kelvane {

/// A word as POSIX shells take it: as it is if it has only letters, digits and "_./+,@%:-" in ASCII, else in single
/// quotes.
std::string quotedForShell(std::string_view word);

/// The command that puts a version of a script back. It names the library if that is not the one of the settings.
std::string restoreCommandFor(std::string_view identifier, std::string_view version, const OpenedLibrary& opened);

}  // namespace kelvane
