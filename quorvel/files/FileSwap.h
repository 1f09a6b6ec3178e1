#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "quorvel/files/FileIdentity.h"
#include "quorvel/files/SystemCalls.h"
#include "quorvel/files/TemporaryFile.h"

namespace quorvel {

/// Swaps a temporary file and the file beside it in one step, and swaps them back.
///
///     FileSwap swap(calls, folder, "Talk.md", *fresh, text);
///     if (const auto error = swap.make()) …        // both are as they were
///     … look at what now has fresh->name() …
///     fresh->remove();                             // or swap.undo()
///
/// A process that dies in between leaves both files whole, and the temporary file's name records that its content was
/// once in the other file's place (TemporaryName.h). Not thread-safe. The arguments must outlive the object.
class FileSwap {
 public:
  /// `text` is what the temporary file was filled with, `name` the other file's name in the folder.
  FileSwap(const SystemCalls& calls, int folder, std::string_view name, TemporaryFile& fresh, std::string_view text);

  /// Swaps the two for the first time. An error means that both are as they were. If SystemCalls::isLacking
  /// is true of it, the disk cannot swap files. After success, what has the temporary name stays when the temporary
  /// file's object ends.
  std::error_code make();

  /// What `undo` did.
  struct Undone {
    enum {
      done,             ///< What came out is in its place again, and the new file is deleted.
      savedMeanwhile,   ///< Another program saved, or opened the file to save it. The newer content, possibly still
                        ///< the new text, is in place; the temporary name has what was there before.
      savedAllTheTime,  ///< Other programs did not stop saving. The temporary name has what was saved last.
      notTakenOut,      ///< The new file is in its place, and the temporary name has what came out.
      unclear           ///< The new file is out, but nobody can tell what has the temporary name, or put it back.
    } how;
    std::error_code error = {};  ///< The reason for the last two.
  };

  /// Puts what came out back in its place, on the disk for good. If another program saved there meanwhile, onto the new
  /// file or by a file of its own, the swap is repeated until it brings out exactly what the previous swap put in. The
  /// file then has the text saved last. Swaps at most nine times, and reads what came out each time. Where there is no
  /// memory for that, the reason is ENOMEM. Called once, after `make`.
  Undone undo() noexcept;

 private:
  /// What has the temporary name.
  struct Content {
    std::optional<FileIdentity> file;
    std::optional<std::string> text;  // empty while another program writes it, or with an error
    std::error_code error;
  };

  std::error_code exchange(const std::optional<FileIdentity>& goingIn) const noexcept;
  Content look() const noexcept;

  const SystemCalls& calls_;
  const int folder_;
  const std::string name_;
  TemporaryFile& fresh_;
  const std::string_view text_;
};

}  // namespace quorvel
