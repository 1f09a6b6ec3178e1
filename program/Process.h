#pragma once

#include <filesystem>
#include <stdexcept>
#include <string_view>

namespace kelvane {

/// How the program ends.
enum ExitStatus : int { done = 0, failed = 1, wrongUsage = 2 };

/// What was typed is no use of the program: `what()` is complete sentences that say what to type instead.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// To be called before anything else, and before any file is opened.
///
/// A reader that goes away, and a file that grows beyond what the system allows, are failed writes from then on and not
/// the end of the process. Standard input, output and
/// error are open, so that no file of ours gets one of their numbers: a closed input has ended, a closed output is one
/// whose reader is gone, and what is written to a closed error is dropped.
void prepareProcess();

/// The absolute path of the file that this process runs, its links resolved. Throws an error with a complete sentence
/// when it cannot be known, or the file is not there any more.
std::filesystem::path ownExecutable();

/// Writes to standard output. Throws std::system_error when it cannot be written.
void print(std::string_view text);

/// Writes sentences and a line feed to standard error, as far as they can be written. The names and paths that they
/// quote are other people's, so the sentences are shown on one line (program/Wording.h).
void complain(std::string_view sentences) noexcept;

/// Writes lines to standard error as they are, as far as they can be written.
void printError(std::string_view lines) noexcept;

}  // namespace kelvane
