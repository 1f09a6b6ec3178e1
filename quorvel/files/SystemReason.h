#pragma once

#include <string>
#include <string_view>
#include <system_error>

/// What the sentences about files are made of, on every layer: the library, the history, the settings, the program.
namespace quorvel {

/// A name, a path or an identifier as sentences show it: in double quotes, as it is. A NUL, which would end the
/// sentence, becomes U+FFFD. The program also replaces what would steer a terminal (program/Wording.h).
std::string inQuotes(std::string_view name);

/// Why the system refused, and what to do about it.
struct SystemReason {
  std::string reason;       ///< A clause about "it", without a full stop: "the disk is full".
  std::string_view advice;  ///< A sentence: "Free some space and try again." Empty if it depends on what "it" is.

  /// Looks an error of the system up in the one table of reasons. An error that is not in it is told in the system's
  /// own words.
  ///
  /// The advice is empty if a name no longer means what it meant: something is gone, or something else has its name.
  static SystemReason of(const std::error_code& error);
};

/// Complete sentences: `happened`, the reason, and the advice. `lookAgain` is the advice if a name no longer means what
/// it meant.
///
///     because("\"Talk.md\" could not be written", error, "List the library again.")
///
/// for ENOSPC is: "Talk.md" could not be written, because the disk is full. Free some space and try again.
std::string because(std::string_view happened, const std::error_code& error,
                    std::string_view lookAgain = "Look at what is there now and try again.");

/// The error for a value of errno.
std::error_code systemError(int error) noexcept;

}  // namespace quorvel
