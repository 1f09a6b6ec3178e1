#pragma once

#include "program/CommandLine.h"

namespace kelvane {

/// The options of "connect" and "disconnect".
inline constexpr Option configOption = {"--config", "Change this file instead.", "FILE", "a file"};
inline constexpr Option dryRunOption = {"--dry-run",
                                        "Show what would change, or why it would be refused, and change nothing."};
inline constexpr Option registrationOptions[] = {configOption, dryRunOption};

/// Registers this program with the AI client that the first word names, or removes it there, in each of the client's
/// files. Prints what changed, and what to do where a file could not be changed; false if there is such a file.
/// Throws UsageError for an unknown client, and an error with complete sentences if no file can be looked for.
bool changeRegistration(bool isConnecting, const Arguments& arguments);

}  // namespace kelvane
