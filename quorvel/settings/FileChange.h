#pragma once

#include <functional>
#include <optional>
#include <string>

#include "quorvel/settings/FileCopies.h"

/// Changing a small file of the person's that other programs may change too: settings, the configuration of an AI
/// client.
namespace quorvel {

/// What a file's text is to become: the new text, or nothing to leave it. It gets nothing when there is no file.
using FileEdit = std::function<std::optional<std::string>(const std::optional<std::string>& text)>;

/// Changes the whole text of the file that the copies are of, and returns when the new one is on the disk for good;
/// false when the edit leaves the text as it is.
///
///  1. Symbolic links are followed to the file; they stay.
///  2. What changes that were cut short left beside it is deleted, if that loses nothing (FileLeftovers.h).
///  3. The file is read and edited, once no program has it open for writing, where the system can tell. A new file is
///     for its owner only; an old one must be writable to us.
///  4. A temporary file beside it gets the new text and the old one's owner, mode and access lists, and is flushed.
///  5. The old text is kept in a copy, if there is a file.
///  6. The two change places in one step, and what came back is read. If that is not the text that was edited, another
///     program wrote it in between: the two change back until what that program wrote last is in its place, the copy
///     is taken back, and everything starts over, three times at most.
///  7. The temporary file goes, and the folder is flushed.
///
/// A process that dies in between leaves the file with the old or the new text whole, and at most a copy and temporary
/// files for the next change. Where the system lacks the exchange, the file is read once more instead and then renamed
/// over, so that what another program writes in that moment is lost. Hard links are broken.
///
/// Throws FileError, or what the edit throws; the file is as it was then and no copy was made, unless the sentence says
/// otherwise. The edit is called anew at each start.
bool changeFile(FileCopies& copies, const FileEdit& edit);

/// Throws what `changeFile` would throw, as far as that can be told while everything stays as it is.
void tryChangingFile(const FileCopies& copies, const FileEdit& edit);

}  // namespace quorvel
