#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include "quorvel/files/SystemReason.h"

namespace quorvel {

/// A library could not do what it was asked. `what()` is complete sentences for the person or model that asked: what
/// happened, to which item, and what to do. The reasons are those of SystemReason.h.
///
///     throw failure(inQuotes(name) + " could not be read", lastError());
///     // "Talk.md" could not be read, because the disk reports an error. Check the disk.
class LibraryError : public std::runtime_error {
 public:
  explicit LibraryError(const std::string& sentences) : std::runtime_error(sentences) {}
};

/// Why the system refused: a clause about "it" without a full stop, such as "the disk is full", for a sentence that
/// begins with "… could not be …, because ".
std::string reason(const std::error_code& error);

/// The sentences for `happened`, such as "\"Talk.md\" could not be read": what happened and why, and what to do if
/// there is something to do.
LibraryError failure(std::string_view happened, const std::error_code& error);

/// The same for a text that is larger than the largest script (WholeFile.h). `what` names the text: "it", "the new
/// text".
LibraryError tooLarge(std::string_view happened, std::string_view what);

}  // namespace quorvel
