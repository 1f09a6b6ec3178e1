#pragma once

#include <functional>
#include <optional>
#include <string>

#include "quorvel/settings/FileCopies.h"

/// Changes a small file that other programs may change at the same time: settings, the configuration of an AI client.
namespace quorvel {

/// Makes the new text of a file from the old one. `text` is empty if there is no file. An empty result leaves the file
/// as it is. It may be called several times for one change, so it must not rely on an earlier call.
using FileEdit = std::function<std::optional<std::string>(const std::optional<std::string>& text)>;

/// Changes the whole text of the file that `copies` belongs to. Returns true when the new text is on the disk, and
/// false if the edit leaves the text as it is.
///
///     FileCopies copies("/home/ada/.codex/config.toml", ".before-kelvane");
///     changeFile(copies, [](const auto& text) { return text.value_or("") + "[tools]\n"; });
///
///  1. Symbolic links are followed to the file. They stay links.
///  2. Files that interrupted changes left beside it are deleted, if that loses nothing (FileLeftovers.h).
///  3. The file is read and edited. If another program has it open for writing, as far as the system tells, this waits
///     up to two seconds. We must be permitted to write an existing file. A new one is for its owner only.
///  4. A temporary file beside it gets the new text and the old file's owner, mode and access lists. It is flushed.
///  5. The old text is saved in a copy, if there is a file.
///  6. The two files change places in one step, and the one that came out is read. If its text is not the text that was
///     edited, another program saved the file in between. Then the two change back until the text that the program
///     saved last is in place, the copy is deleted, and everything starts over, at most three times.
///  7. The temporary file is deleted, and the folder is flushed.
///
/// Throws FileError, or what the edit throws. The file is then unchanged and there is no new copy, unless the sentences
/// say otherwise.
///
/// If the process dies, the file has the old or the new text, whole. At most a copy and temporary files are left over
/// for the next change. Takes time linear in the text and in the folder's entries. Changes of one file may run in
/// several threads and processes at once, each with FileCopies of its own.
///
/// Not promised: if the disk cannot swap files, the file is read once more and then renamed over, and what another
/// program saves between the two is lost. Other names of the file (hard links) keep the old text.
bool changeFile(FileCopies& copies, const FileEdit& edit);

/// Throws what `changeFile` would throw, as far as that can be told, and changes nothing. Calls the edit at most once.
void tryChangingFile(const FileCopies& copies, const FileEdit& edit);

}  // namespace quorvel
