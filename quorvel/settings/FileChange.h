#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "quorvel/library/SystemCalls.h"

/// Reading and changing a small file of the person's that other programs may change too: settings, the configuration of
/// an AI client.
namespace quorvel {

/// A file could not be read or changed: `what()` is complete sentences that name it.
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Makes a folder and those above it that are missing, for their owner only. Throws FileError.
void makeFolder(const std::filesystem::path& folder);

/// The file's bytes; nothing when there is no file, or a link that leads to none. Links are followed.
/// Throws FileError when it is no file or cannot be read.
std::optional<std::string> readFile(const std::filesystem::path& file);

/// Makes a file for its owner only, and returns when it is on the disk; false when something has its name already.
/// Throws FileError: there is no such file then.
bool makeFile(const std::filesystem::path& file, std::string_view text,
              const SystemCalls& calls = SystemCalls::ofTheSystem());

/// Puts a file with this text, for its owner only, under a name in one step, in the place of the file or link that has
/// it already, and returns when it is on the disk. Throws FileError: what had the name has it still.
void putPrivateFile(const std::filesystem::path& file, std::string_view text,
                    const SystemCalls& calls = SystemCalls::ofTheSystem());

/// What a file's text is to become: the new text, or nothing to leave it. It gets nothing when there is no file.
using FileEdit = std::function<std::optional<std::string>(const std::optional<std::string>& text)>;

/// What is done with the old text of a file that is there, when all else is ready for the new one.
using FileKeeper = std::function<void(const std::string& text)>;

/// Changes a file's whole text, and returns when the new one is on the disk for good; false when the edit leaves the
/// text as it is.
///
///  1. Symbolic links are followed to the file; they stay.
///  2. The file is read and edited, once no program has it open for writing, where the system can tell. A new file is
///  for
///     its owner only; an old one must be writable to us.
///  3. A temporary file beside it gets the new text and the old one's owner, mode and access lists, and is flushed.
///  4. The old text is kept, if there is a file and a keeper.
///  5. The two change places in one step, and what came back is read. If that is not the text that was edited, another
///     program wrote it in between: the two change back, and everything starts over, three times at most.
///  6. The temporary file goes, and the folder is flushed.
///
/// A process that dies in between leaves the file with the old or the new text whole, and at most a hidden temporary
/// file. Where the system lacks the exchange, the file is read once more instead and then renamed over, so that what
/// another program writes in that moment is lost. Hard links are broken.
///
/// Throws FileError, or what the edit or the keeper throws; the file is as it was then, unless the sentence says
/// otherwise. Both are called anew at each start.
bool changeFile(const std::filesystem::path& file, const FileEdit& edit,
                const SystemCalls& calls = SystemCalls::ofTheSystem());
bool changeFile(const std::filesystem::path& file, const FileEdit& edit, const FileKeeper& keep,
                const SystemCalls& calls = SystemCalls::ofTheSystem());

}  // namespace quorvel
