#pragma once

#include "program/CommandLine.h"

namespace kelvane {

/// The options of "connect" and "disconnect".
inline constexpr Option configOption = {"--config", "Change this file instead.", "FILE", "a file"};
inline constexpr Option dryRunOption = {"--dry-run",
                                        "Show what would change, or why it would be refused, and change nothing."};
inline constexpr Option registrationOptions[] = {configOption, dryRunOption};

/// Registers this program with the AI client that the first word names, or removes it there, in each of the client's
/// files. With --dry-run it only shows what would change.
///
/// Prints what changed in each file. If a file cannot be changed, it stays as it is, and this prints why and the lines
/// to paste, goes on with the next file, and returns false. A file is changed as quorvel/settings/FileChange.h
/// promises: as a whole or not at all, with its old text in a copy.
///
/// Throws UsageError for an unknown client, and an error with complete sentences if no file can be looked for; nothing
/// is changed then.
bool changeRegistration(bool isConnecting, const Arguments& arguments);

}  // namespace kelvane
