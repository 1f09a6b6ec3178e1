#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/QuorvelCore.h"

/// What a script or a folder is called when somebody asks for a name.
namespace quorvel {

/// The longest name of an entry that file systems take, in bytes.
inline constexpr std::size_t longestFileName = 255;

/// How much of that is kept free behind a name for a blank and its number.
inline constexpr std::size_t roomForNumber = 12;

/// The name made fit for a file, cleaned in this order: bytes that are not UTF-8 become U+FFFD; one ".md" at the end
/// goes, if it is for a script; "/" and control characters become "-"; white space at both ends and dots at the start
/// go; the rest is cut between two characters, so that the name, a number and ".md" make a file's name. Empty when
/// nothing is left. Names cleaned once stay as they are, but for a ".md" at the end of a script's.
std::string cleanedName(std::string_view asked, ScriptItem::Kind kind);

/// Whether it is only for its length that nothing is left: the first character, with its marks, is longer than a name.
bool isTooLongToCut(std::string_view asked, ScriptItem::Kind kind);

/// The name with its number: as it is for 1, with a blank and the number otherwise.
std::string numberedName(std::string_view name, std::size_t number);

/// The name of the file or folder on the disk.
std::string fileName(std::string_view name, ScriptItem::Kind kind);

}  // namespace quorvel
