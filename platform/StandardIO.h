#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kelvane {

/// Reads lines from a file descriptor, in whatever chunks the bytes arrive.
///
/// A line ends in LF or CR LF, which is not part of it; what is left after the last one is a line too, unless it is
/// empty. Bytes that are not UTF-8 come out as U+FFFD, one for each maximal ill-formed part (The Unicode Standard,
/// section 3.9, "U+FFFD Substitution of Maximal Subparts"). Memory is linear in the longest line seen of late.
/// Not for use from two threads at once.
class LineReader {
 public:
  /// Does not own the descriptor.
  explicit LineReader(int descriptor) noexcept;

  /// The next line, or nothing at the end of the input. The view lives until the next call. Interrupted reads are
  /// taken up again, and a descriptor that does not block is waited for.
  /// Throws std::system_error when the descriptor cannot be read.
  std::optional<std::string_view> next();

 private:
  bool fill();

  int descriptor_;
  bool atEnd_ = false;
  std::string buffer_;      // what was read: lines handed out, then lines to come
  std::size_t begin_ = 0;   // where the next line starts in buffer_
  std::size_t filled_ = 0;  // how much of buffer_ holds bytes read
  std::string replaced_;    // the last line, when it had to be changed
};

/// Writes all the bytes to a file descriptor: one write where the system takes them at once, as many as it needs where
/// it does not. Throws std::system_error when they cannot be written (EPIPE when the reader is gone and SIGPIPE is
/// ignored); how many went out before that is not told.
void writeAll(int descriptor, std::string_view bytes);

}  // namespace kelvane
