#pragma once

#include <optional>
#include <string>

#include "program/OpenedLibrary.h"
#include "quorvel/history/VersionNumber.h"

/// Which script and which of its versions a person means, for the commands that reach the history.
namespace kelvane {

/// A script that a person named.
struct FoundScript {
  std::string identifier;
  std::optional<quorvel::ScriptItem> item;  ///< Empty if the script is gone and only its history is there.
};

/// The script with that identifier. Its ".md" is optional: "Talks/Opening" finds "Talks/Opening.md". A script that is
/// there is preferred to one of which only the history is left. Throws an error with complete sentences if there is
/// neither.
FoundScript findScript(const std::string& typed, const OpenedLibrary& opened);

/// Whether there is a file at that identifier now.
bool isFileAt(const std::string& identifier, const OpenedLibrary& opened);

/// The words of a command that takes SCRIPT and VERSION.
inline constexpr Word scriptWord = {"SCRIPT", "The script, such as \"Talks/Opening\". The \".md\" is optional."};
inline constexpr Word versionWord = {"VERSION", "The version's number, from \"kelvane history SCRIPT\"."};
inline constexpr Word scriptAndVersion[] = {scriptWord, versionWord};

/// The version that was typed as the second of these words. Throws UsageError if either is missing, or the second is
/// not a version's number.
quorvel::VersionNumber versionIn(const Arguments& arguments);

/// The version's exact bytes, which need not be UTF-8. Throws an error with complete sentences if the script has no
/// such version.
std::string textOf(quorvel::VersionNumber version, const FoundScript& script, const OpenedLibrary& opened);

}  // namespace kelvane
