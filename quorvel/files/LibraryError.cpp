#include "quorvel/files/LibraryError.h"

#include "quorvel/files/WholeFile.h"

namespace quorvel {

std::string reason(const std::error_code& error) {
  return SystemReason::of(error).reason;
}

LibraryError failure(std::string_view happened, const std::error_code& error) {
  return LibraryError(because(happened, error, "List the library again to see what is there now."));
}

LibraryError tooLarge(std::string_view happened, std::string_view what) {
  return LibraryError(std::string(happened) + ", because " + std::string(what) + " is larger than " +
                      largestTextInWords + ", the largest size of a script. Split it into several scripts.");
}

}  // namespace quorvel
