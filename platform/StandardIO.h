#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kelvane {

/// Reads lines from a file descriptor, however the bytes are cut into chunks.
///
///     LineReader lines(STDIN_FILENO);
///     while (const auto line = lines.next()) handle(*line);
///
/// A line ends in LF or CR LF, which is not part of it. Bytes after the last line break are a line too. Bytes that are
/// not UTF-8 are replaced by U+FFFD, one for each maximal ill-formed part (The Unicode Standard, section 3.9, "U+FFFD
/// Substitution of Maximal Subparts"), so every line is valid UTF-8. A line may have any length and may contain NUL.
///
/// Takes time linear in the bytes read, and memory proportional to the longest recent line. Belongs to one thread.
class LineReader {
 public:
  /// The caller keeps the descriptor open while the reader is in use, and closes it.
  explicit LineReader(int descriptor) noexcept;

  /// The next line; std::nullopt at the end of the input. The view is valid until the next call. An interrupted read is
  /// repeated, and a non-blocking descriptor is waited for.
  ///
  /// Throws std::system_error if the descriptor cannot be read, and std::bad_alloc.
  std::optional<std::string_view> next();

  /// Frees the memory that only the lines returned so far needed, if it is much. Without this, `next` does it when it
  /// reads again. The last line's view becomes invalid.
  void release();

 private:
  struct Free {
    void operator()(char* memory) const noexcept { std::free(memory); }
  };

  bool fill();
  void resize(std::size_t size);

  int descriptor_;
  bool atEnd_ = false;
  std::unique_ptr<char, Free> buffer_;  // what was read: lines that were returned, then lines to come
  std::size_t size_ = 0;                // of the buffer
  std::size_t begin_ = 0;               // where the next line starts in the buffer
  std::size_t filled_ = 0;              // how many bytes of the buffer were read; the rest is room for the next read
  std::string replaced_;                // the last line, if bytes had to be replaced
};

/// Writes all bytes to a file descriptor: in one write if the system accepts them at once, otherwise in as many as it
/// needs. Returns when the system has all of them. A non-blocking descriptor is waited for.
///
/// Throws std::system_error if they cannot be written, with EPIPE if the reader has gone away and SIGPIPE is ignored.
/// Some of the bytes may have been written then.
void writeAll(int descriptor, std::string_view bytes);

}  // namespace kelvane
