#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/QuorvelCore.h"

/// The name that a script or a folder gets if somebody asks for one. Pure functions, linear in the name.
///
///     cleanedName(" ..Act 1/2\n.md", ScriptItem::Kind::script)   // "Act 1-2-"
///     fileName(numberedName("Talk", 2), ScriptItem::Kind::script) // "Talk 2.md"
namespace quorvel {

/// The longest name of an entry on common file systems, in bytes.
inline constexpr std::size_t longestFileName = 255;

/// How many of these bytes stay free behind a name, for a space and a number.
inline constexpr std::size_t roomForNumber = 12;

/// The name, cleaned so that a file can have it. In this order:
///
///  1. bytes that are not UTF-8 become U+FFFD;
///  2. one ".md" at the end of a script's name is removed;
///  3. "/" and control characters become "-";
///  4. white space at both ends and dots at the start are removed;
///  5. the rest is cut between two characters, so that it fits into a file's name with a number and ".md".
///
/// Empty if nothing is left. Cleaning a clean name changes nothing, except that 2 may apply again.
std::string cleanedName(std::string_view asked, ScriptItem::Kind kind);

/// Whether nothing is left only because of step 5: the first character, with its combining marks, is longer than a
/// name.
bool isTooLongToCut(std::string_view asked, ScriptItem::Kind kind);

/// The name as it is for 1, and with a space and the number otherwise.
std::string numberedName(std::string_view name, std::size_t number);

/// The name of the file or folder on the disk: a script's gets its extension.
std::string fileName(std::string_view name, ScriptItem::Kind kind);

}  // namespace quorvel
