#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace quorvel {

/// What a library throws when it cannot do what it was asked: `what()` is complete sentences for the person or model
/// that asked, which say what happened, to what, and what to do.
class LibraryError : public std::runtime_error {
 public:
  explicit LibraryError(const std::string& sentences) : std::runtime_error(sentences) {}
};

/// A name or an identifier as sentences show it: between double quotes, as it is, but for a NUL, which would end the
/// sentence and is shown as U+FFFD.
std::string quoted(std::string_view name);

/// Why the system refused, as the end of a sentence that began with "… could not be …, because ": a clause about "it"
/// without a full stop.
std::string reason(const std::error_code& error);

/// `happened` (as in "\"Talk.md\" could not be read"), why, and what to do about it where there is something to do.
LibraryError failure(std::string_view happened, const std::error_code& error);

/// The same for a text that is larger than a script may be (WholeFile.h); `what` is "it" or "the new text".
LibraryError tooLarge(std::string_view happened, std::string_view what);

}  // namespace quorvel
