#pragma once

#include <filesystem>
#include <stdexcept>
#include <string_view>

namespace kelvane {

/// The exit status: the program did what was asked, failed, or did not understand the arguments.
enum ExitStatus : int { done = 0, failed = 1, wrongUsage = 2 };

/// What was typed does not fit the program: `what()` is complete sentences that say what to type instead.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Must be called first, before any file is opened.
///
/// After it, a write to a reader that went away, or beyond the largest file that the system allows, fails and does not
/// end the process. Standard input, output and error are open, so no file of ours gets one of their numbers: a closed
/// input has ended, a closed output has no reader, and what is written to a closed error is dropped.
void prepareProcess();

/// The absolute path of the file that this process runs, its links resolved. Throws an error with a complete sentence
/// if it is unknown, or the file no longer exists.
std::filesystem::path ownExecutable();

/// Writes to standard output, byte for byte. Throws std::system_error if that fails.
void print(std::string_view text);

/// Writes sentences and a line feed to standard output. The names and paths in them are other people's, so the
/// sentences are shown on one line (program/Wording.h). Throws std::system_error if that fails.
void say(std::string_view sentences);

/// Does the same to standard error, and ignores failures.
void complain(std::string_view sentences) noexcept;

/// Writes lines to standard error as they are, and ignores failures.
void printError(std::string_view lines) noexcept;

}  // namespace kelvane
