#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <optional>
#include <thread>
#include <utility>

#include "quorvel/files/Beneath.h"
#include "quorvel/files/Expected.h"
#include "quorvel/files/FileIdentity.h"
#include "quorvel/files/Leftovers.h"
#include "quorvel/files/LibraryError.h"
#include "quorvel/files/OpenedRoot.h"
#include "quorvel/files/Renaming.h"
#include "quorvel/files/Replacement.h"
#include "quorvel/files/TemporaryName.h"
#include "quorvel/files/WaitForWriters.h"
#include "quorvel/files/WholeFile.h"
#include "quorvel/library/FolderLibrary.h"
#include "quorvel/library/FreeNumber.h"
#include "quorvel/library/ItemName.h"
#include "quorvel/library/Listing.h"
#include "quorvel/library/LockLibrary.h"

namespace quorvel {
namespace {

using Kind = ScriptItem::Kind;

// The labels of versions that no tool call asked for.
constexpr std::string_view savedMeanwhile = "Before — saved by another program meanwhile";

// What is added to "was made" where a script was to have a text.
constexpr std::string_view stillEmpty = ", still empty";

std::string_view word(Kind kind) {
  return kind == Kind::script ? "script" : "folder";
}

// Whether an entry is there. Throws when the system does not tell; `happened` begins that sentence.
bool isThere(const FolderToChange& folder, const std::string& name, const std::string& happened) {
  const std::error_code error = identityOf(folder.folder.get(), name).error();
  if (error && error != std::errc::no_such_file_or_directory) throw failure(happened, error);
  return !error;
}

// How often a name that was free when it was looked at may turn out to be taken, by other programs or by a disk that
// does not know what it has.
constexpr int mostAttempts = 100;

LibraryError noFreeName(const std::string& happened) {
  return LibraryError(happened + ", because each name that was free was taken when it was to be used. Give another " +
                      "name, and check the disk.");
}

// Why an entry does not have its new name alone; `renamed` is what was to become of it.
LibraryError notRenamed(const RenameResult& result, const ScriptItem& renamed, const std::string& happened) {
  if (result.error == std::errc::operation_not_supported)
    return LibraryError(happened +
                        ", because this disk has no way to rename a file without the danger of replacing another "
                        "one. Rename it in another program.");
  if (result.names == NamesLeft::onlyOld) return failure(happened, result.error);
  const std::string why = happened + ", because " + reason(result.error);
  const std::string name = inQuotes(renamed.identifier);
  if (result.names == NamesLeft::unknown)
    return LibraryError(why + ". The disk does not tell which name it has now: the old one, " + name +
                        " or both, and perhaps a hidden one. Check the disk, then list the library again.");
  if (renamed.kind == Kind::folder)
    return LibraryError(why + ", and an empty folder " + name + " is left. Check the disk, then delete that folder.");
  return LibraryError(why + ", and it has a second name now, " + name +
                      ". Check the disk, then delete the name that you do not want.");
}

std::string requiredName(std::string_view asked, Kind kind) {
  std::string name = cleanedName(asked, kind);
  if (!name.empty()) return name;
  if (isTooLongToCut(asked, kind))
    throw LibraryError(inQuotes(asked) + " cannot be the name of a " + std::string(word(kind)) +
                       ", because its first character alone, with its marks, is longer than a name may be. Give another"
                       " name.");
  throw LibraryError(
      inQuotes(asked) + " cannot be the name of a " + std::string(word(kind)) +
      ", because nothing is left without dots at its start and white space at its ends. Give another name.");
}

// Makes a folder. Returns why it could not be made: EEXIST when the name is taken.
std::error_code makeFolder(const FolderToChange& folder, const std::string& name) {
  return ::mkdirat(folder.folder.get(), name.c_str(), 0777) == 0 ? std::error_code() : lastError();
}

// Makes an empty script in the same way, and tells which file it is, if the system says so.
std::error_code makeScript(const FolderToChange& folder, const std::string& name, std::optional<FileIdentity>& made) {
  const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  const Descriptor file(::openat(folder.folder.get(), name.c_str(), flags, 0666));
  if (!file) return lastError();
  if (const auto identity = identityOf(file.get())) made = *identity;
  return {};
}

void requireInPlace(const OpenedRoot& root, const std::string& happened) {
  const Expected<bool> isInPlace = root.look();
  if (!isInPlace.value_or(false)) throw LibraryError(happened + ", because " + root.whyNotInPlace(isInPlace.error()));
}

// For the end of an operation. `done` begins the sentence as above; all that was done is in the folder that is not in
// its place any more, so its history goes with it.
void requireStillInPlace(const OpenedRoot& root, const std::string& done) {
  const Expected<bool> isInPlace = root.look();
  if (!isInPlace)
    throw LibraryError(done +
                       ", but the system does not tell whether the library folder is still in its place, because " +
                       reason(isInPlace.error()) + ". Check the disk.");
  if (*isInPlace) return;
  throw LibraryError(done + ", but in a folder that is not the library any more, because " + root.whyNotInPlace());
}

// What became of a script that was to be taken away.
struct TakenAway {
  bool isGone = false;
  bool isOpenElsewhere = false;  // another program has it open for writing
  std::string aside;             // the hidden name that it may have
};

// Whether a name leads to the script that was made, and surely nobody uses it: it is empty and not open for writing.
bool isUnused(int folder, const std::string& name, const FileIdentity& made, TakenAway& taken) {
  const auto file = openToRead(folder, name);
  if (!file) return false;
  const std::optional<bool> isOpen = hasWriter(file->get());
  taken.isOpenElsewhere = isOpen.value_or(false);
  struct stat status;
  return isOpen && !*isOpen && ::fstat(file->get(), &status) == 0 &&
         FileIdentity{status.st_dev, status.st_ino} == made && status.st_size == 0;
}

// Takes away a script that was made a moment ago, where the system tells that nobody uses it. Another program may begin
// to at any moment, so it gets a hidden name first, under which nobody opens it, and is looked at again. If somebody
// uses it then, it gets its name back, or keeps the hidden one if something else has the name.
void takeAway(const SystemCalls& calls, const OpenedRoot& root, const EntryToChange& script, const FileIdentity& made,
              TakenAway& taken) try {
  const int folder = script.in.folder.get();
  if (!isUnused(folder, script.name, made, taken)) return;
  if (const auto note = WritersNote::of(root); note && note->begin(script.in.path)) return;
  taken.aside = TemporaryName::fresh(script.name).ofReplacedFile().text();
  if (calls.rename(folder, script.name.c_str(), taken.aside.c_str()) != 0) return;
  if (isUnused(folder, taken.aside, made, taken) && calls.unlink(folder, taken.aside.c_str()) == 0) {
    calls.flushFolder(folder);  // without it, an empty script may be back after a power failure, and that is all
    taken.isGone = true;
    return;
  }
  renameFile(calls, folder, taken.aside, script.name);
} catch (const std::exception&) {  // no random name, or no memory
}

// What a new script is whose text could not be written: a sentence that begins with `isMade`; empty if the error says
// all, because the script is gone or has its text. The size tells what is there, because a disk that fails may still
// tell that.
std::string whatIsThere(const SystemCalls& calls, const EntryToChange& script, const std::optional<FileIdentity>& made,
                        const TakenAway& taken, std::string_view text, const std::string& isMade,
                        std::string_view advice) {
  const int folder = script.in.folder.get();
  const auto present = identityOf(folder, script.name);
  const bool isMadeOne = made && present == *made;
  if (made && !isMadeOne && !taken.aside.empty() && identityOf(folder, taken.aside) == *made)
    return isMade + ", but it has the hidden name " + inQuotes(taken.aside) +
           " now and could not get its own back. Rename it if you need it; the next change there may delete it if it " +
           "is empty.";
  struct stat status;
  if (::fstatat(folder, script.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (lastError() == std::errc::no_such_file_or_directory) return {};
    return (isMade + ", but may be empty. ").append(advice);
  }
  if (status.st_size > 0) {
    const auto file = openToRead(folder, script.name);
    const auto found = file ? readToEnd(file->get(), calls) : Expected<std::string>(file.error());
    const bool isTheirs = isMadeOne || (found && *found != text);
    return isTheirs ? isMade + ", and another program has written into it. Read it before you change it."
                    : std::string();
  }
  if (taken.isOpenElsewhere)
    return isMade +
           ", but is empty, and another program has it open for writing. Save and close it there, then read it before "
           "you write its text again.";
  return (isMade + ", but is empty. ").append(advice);
}

// Whether an error of opening a folder says that it is not there any more.
bool isGone(const std::error_code& error) {
  return error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory ||
         error == std::errc::too_many_symbolic_link_levels;
}

// Call this before a folder gets a path or loses it. A note of that path would lead to another folder then, or nowhere.
void forgetNotesOf(const OpenedRoot& root, const PathBeneath& folder, const std::string& happened) {
  const auto note = WritersNote::of(root);
  if (!note) return;
  if (const std::error_code error = note->forgetIfIn(folder)) throw failure(happened, error);
}

bool isHidden(const PathBeneath& path) {
  const auto pieces = path.pieces();
  return std::any_of(pieces.begin(), pieces.end(), [](std::string_view piece) { return piece.starts_with('.'); });
}

// Lets what was done in a folder outlast a power failure. `done` begins the sentence of the failure, as in "The script
// \"Talk.md\" was made".
void flush(const SystemCalls& calls, const FolderToChange& folder, const std::string& done) {
  if (calls.flushFolder(folder.folder.get()) == 0) return;
  throw LibraryError(done + ", but that may not outlast a power failure, because " + reason(lastError()) +
                     ". Check the disk.");
}

}  // namespace

std::shared_ptr<const OpenedRoot> FolderLibrary::openRootToChange(const std::string& happened) const {
  auto root = openRoot();
  requireInPlace(*root, happened);
  return root;
}

std::unique_ptr<LibraryLock> FolderLibrary::lock() {
  return lockLibrary(options_.calls, root_, options_.patience);
}

std::filesystem::path FolderLibrary::pathOf(std::string_view identifier) const {
  return root_ / identifier;
}

bool FolderLibrary::keepUnlessHeld(std::string_view text, const std::string& identifier, std::string_view label) {
  if (history_->hasVersionWith(text, identifier)) return false;
  history_->snapshot(text, pathOf(identifier), label);
  return true;
}

SweptLeftovers FolderLibrary::sweepFolder(const FolderToChange& folder) {
  const auto keep = [&](const std::string& name, std::string_view text) {
    keepUnlessHeld(text, folder.identifierOf(name), foundLabel);
  };
  const auto remembered = [&] {
    std::vector<std::string> names;
    for (const HistoryOfScript& script : history_->scripts()) {
      std::string name = std::filesystem::path(script.identifier).filename();
      if (script.identifier == folder.identifierOf(name)) names.push_back(std::move(name));
    }
    return names;
  };
  return sweepLeftovers(options_.calls, folder.folder.get(), keep, remembered);
}

// Whether nothing is left in a folder in which nothing is to change. What goes wrong there must not hinder this change.
bool FolderLibrary::sweepAnother(const OpenedRoot& root, const PathBeneath& path) noexcept try {
  auto folder = openBeneath(options_.calls, root.folder().get(), path, O_RDONLY | O_DIRECTORY);
  return folder && sweepFolder({*std::move(folder), path}).areGone;
} catch (const std::exception&) {
  return false;
}

// Clears away what writers left that died: where they noted it; in all folders if nothing is known, or if a noted
// folder has gone, perhaps elsewhere. Looks into `folder` besides if asked, and if it is hidden, because the look into
// all folders leaves such out. Notes what stays. Returns the hashes of scripts with a text that stays in `folder`.
std::vector<std::uint64_t> FolderLibrary::sweep(const OpenedRoot& root, const FolderToChange& folder, Look look) {
  const auto note = WritersNote::of(root);
  if (!note) return sweepFolder(folder).scripts;
  std::vector<PathBeneath> folders = note->folders().value_or(std::vector<PathBeneath>());
  const auto hasGone = [&](const PathBeneath& path) {
    const auto found = openBeneath(options_.calls, root.folder().get(), path, passingFlags());
    return !found && isGone(found.error());
  };
  const auto isIn = [](const std::vector<PathBeneath>& paths, const PathBeneath& path) {
    return std::find(paths.begin(), paths.end(), path) != paths.end();
  };
  bool areAll = true;
  if (std::erase_if(folders, hasGone) > 0 || !note->folders()) {
    FoldersFound found = foldersWithTemporaryFiles(options_.calls, root.folder().get(), folder.path);
    areAll = found.areAll;
    std::erase_if(found.folders, [&](const PathBeneath& path) { return isIn(folders, path); });
    std::move(found.folders.begin(), found.folders.end(), std::back_inserter(folders));
  }
  if ((look == Look::alsoHere || isHidden(folder.path)) && !isIn(folders, folder.path)) folders.push_back(folder.path);
  std::vector<PathBeneath> staying;
  std::vector<std::uint64_t> scripts;
  for (PathBeneath& path : folders) {
    bool isClean = false;
    if (path == folder.path) {
      SweptLeftovers swept = sweepFolder(folder);
      isClean = swept.areGone;
      scripts = std::move(swept.scripts);
    } else {
      isClean = sweepAnother(root, path);
    }
    if (!isClean && !isIn(staying, path)) staying.push_back(std::move(path));
  }
  note->replace(areAll ? std::optional(std::move(staying)) : std::nullopt);
  return scripts;
}

// Call this before a temporary file may be made in a folder. The result is to be told when none is left; null without
// the lock.
std::shared_ptr<WritersNote> FolderLibrary::noted(const OpenedRoot& root, const PathBeneath& folder,
                                                  const std::string& happened) {
  auto note = WritersNote::of(root);
  if (!note) return nullptr;
  if (const std::error_code error = note->begin(folder)) throw failure(happened, error);
  return note;
}

// What is left of a script knows it by the name that it has. So its folder is looked into also where nothing is noted:
// a writer of an earlier version may have died in it, and it may have been moved here.
void FolderLibrary::sweepBeforeRenaming(const OpenedRoot& root, const EntryToChange& script,
                                        const std::string& happened) {
  const auto deadline = std::chrono::steady_clock::now() + options_.patienceWithWriters;
  const std::uint64_t hash = TemporaryName::hash(script.name);
  const auto isSwept = [&] {
    const std::vector<std::uint64_t> staying = sweep(root, script.in, Look::alsoHere);
    return std::find(staying.begin(), staying.end(), hash) == staying.end();
  };
  while (!isSwept()) {
    if (std::chrono::steady_clock::now() > deadline)
      throw LibraryError(
          happened + ", because an earlier text of it is in a hidden file beside it (its name begins with " +
          std::string(TemporaryName::prefix) + "), which another program has open for writing or which " +
          "is larger than " + largestTextInWords + ". Save and close it there, or move it away, then try again.");
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

// A call that replaces a text flushes seven times, and each time keeps a promise that no other one keeps.
//
// Five times for the version of the old text, before the script is touched. What ends them is that the text is in the
// history for good before it is gone from the script:
// 1. the journal's bytes: without them, half a change of the database could not be taken back;
// 2. the folder's entry of the journal: a journal that is not found takes nothing back;
// 3. how many pages the journal holds, which is written only once they are there: otherwise what happened to lie on the
//    disk could be played back into the database as pages;
// 4. the database's pages, before the journal that could take them back is deleted;
// 5. the folder without the journal: one that comes back takes a version back that was acknowledged.
// Twice for the new text:
// 6. the new file's bytes, before it gets the script's name: otherwise the name could lead to an empty file;
// 7. the script's folder: otherwise the old text could be back after the new one was acknowledged.
// The writer's note needs no flush, because the next start of the system makes it void (WritersNote.h).
void FolderLibrary::write(std::string_view text, const ScriptItem& script) {
  const std::string happened = inQuotes(script.identifier) + " could not be written";
  if (text.size() > largestText) throw tooLarge(happened, "the new text");
  const PathBeneath path = pathBeneath(script.identifier, happened);
  const auto root = openRoot();  // which is looked at once the new text is in its place
  const EntryToChange target = entryToChange(options_.calls, root->folder(), path, happened);
  const auto isInPlace = [&] {
    requireInPlace(*root, happened);
    if (target.in.path.isTheFolderItself()) return true;  // the folder is the root
    const auto folder = openBeneath(options_.calls, root->folder().get(), target.in.path, passingFlags());
    if (!folder && isGone(folder.error())) return false;
    const auto present = folder ? identityOf(folder->get()) : Expected<FileIdentity>(folder.error());
    if (!present) throw failure(happened, present.error());
    const auto opened = identityOf(target.in.folder.get());
    if (!opened) throw failure(happened, opened.error());
    return *present == *opened;
  };
  sweep(*root, target.in);
  const ReplacedFile file{target.in.folder.get(), target.name, script.identifier, options_.patienceWithWriters,
                          isInPlace};
  const auto note = noted(*root, target.in.path, happened);
  const bool isNothingLeft = replaceFile(options_.calls, file, text, [&](std::string_view replaced) {
    return keepUnlessHeld(replaced, path.string(), savedMeanwhile);
  });
  if (note && isNothingLeft) note->end();
  requireStillInPlace(*root, "The new text of " + inQuotes(script.identifier) + " was written");
}

ScriptItem FolderLibrary::create(std::string_view name, const std::optional<std::string>& folder) {
  return make(name, folder, Kind::script).item;
}

ScriptItem FolderLibrary::createWithText(std::string_view name, const std::optional<std::string>& folder,
                                         std::string_view text) {
  if (text.size() > largestText) {  // so that no script is made only to be taken away again
    const std::string file = fileName(requiredName(name, Kind::script), Kind::script);
    throw tooLarge(inQuotes(folder && !folder->empty() ? *folder + '/' + file : file) + " could not be written",
                   "the new text");
  }
  Made made = make(name, folder, Kind::script, stillEmpty);
  fill(made, text,
       {"The script " + inQuotes(made.item.identifier) + " was made", "Write its text again, or delete it."});
  return std::move(made.item);
}

ScriptItem FolderLibrary::createFolder(std::string_view name, const std::optional<std::string>& folder) {
  return make(name, folder, Kind::folder).item;
}

void FolderLibrary::fill(const Made& made, std::string_view text, const IfItStays& words) try {
  write(text, made.item);
} catch (const std::exception& error) {
  TakenAway taken;
  if (made.file) takeAway(options_.calls, *made.root, made.target, *made.file, taken);
  if (!taken.isGone) {
    const std::string what =
        whatIsThere(options_.calls, made.target, made.file, taken, text, words.isMade, words.advice);
    if (what.empty()) throw;
    throw LibraryError(std::string(error.what()).append(" ").append(what));
  }
  if (made.wasSetAside) history_->undoSetAside(made.item.identifier);
  throw;
}

// `state` is put behind "was made" in the sentence about an entry that may not stay.
FolderLibrary::Made FolderLibrary::make(std::string_view asked, const std::optional<std::string>& folder, Kind kind,
                                        std::string_view state) {
  const std::string name = requiredName(asked, kind);
  const std::string happened = "The " + std::string(word(kind)) + " " + inQuotes(name) + " could not be made";
  const PathBeneath path = pathBeneath(folder.value_or(std::string()), happened);
  const auto root = openRootToChange(happened);
  FolderToChange target = folderToChange(options_.calls, root->folder(), path, happened);
  const auto fileOf = [&](std::size_t number) { return fileName(numberedName(name, number), kind); };
  if (kind == Kind::script) sweep(*root, target);  // what is left of a script that is gone belongs to its history
  std::size_t first = 1;
  for (int attempt = 0; attempt < mostAttempts; ++attempt) {
    const std::size_t number =
        findFreeNumber(first, [&](std::size_t candidate) { return isThere(target, fileOf(candidate), happened); });
    const std::string file = fileOf(number);
    std::string identifier = target.identifierOf(file);
    if (identifier.size() > longestIdentifier())
      throw failure(happened, std::make_error_code(std::errc::filename_too_long));
    if (kind == Kind::folder) forgetNotesOf(*root, target.path.child(file), happened);
    const bool wasSetAside = kind == Kind::script && history_->setAside(identifier);
    std::optional<FileIdentity> made;
    const std::error_code error = kind == Kind::script ? makeScript(target, file, made) : makeFolder(target, file);
    if (!error) {
      const std::string done =
          ("The " + std::string(word(kind)) + " " + inQuotes(identifier) + " was made").append(state);
      flush(options_.calls, target, done);
      requireStillInPlace(*root, done);
      ScriptItem item{std::move(identifier), numberedName(name, number), kind, std::nullopt};
      return {root, {std::move(target), file}, std::move(item), made, wasSetAside};
    }
    if (wasSetAside) history_->undoSetAside(identifier);
    if (error != std::errc::file_exists) throw failure(happened, error);
    first = number + 1;
  }
  throw noFreeName(happened);
}

// Whether what is in a folder can still be opened by its path when the folder's own gets longer.
bool FolderLibrary::fitsWith(std::size_t moreBytes, const PathBeneath& folder) const {
  const auto root = openRoot();
  const ListingScope below = scope(*root, folder);
  return longestIdentifierBelow(options_.calls, below) + moreBytes <= below.longestIdentifier;
}

ScriptItem FolderLibrary::rename(const ScriptItem& item, std::string_view asked) {
  const std::string happened = inQuotes(item.identifier) + " could not be renamed";
  const PathBeneath path = pathBeneath(item.identifier, happened);
  const auto root = openRootToChange(happened);
  const EntryToChange target = entryToChange(options_.calls, root->folder(), path, happened);
  const auto status = target.status(root->folder(), happened);
  if (!status) throw failure(happened, std::make_error_code(std::errc::no_such_file_or_directory));
  const bool isScript = item.kind == Kind::script;
  if (isScript ? !S_ISREG(status->st_mode) : !S_ISDIR(status->st_mode))
    throw LibraryError(happened + ", because it is not a " + std::string(word(item.kind)) +
                       " any more. List the library again to see what is there now.");

  // Also where the present name is one that cleaning would change.
  if (fileName(asked, item.kind) == target.name) return {path.string(), std::string(asked), item.kind, std::nullopt};
  const std::string name = requiredName(asked, item.kind);
  const auto fileOf = [&](std::size_t number) { return fileName(numberedName(name, number), item.kind); };
  const auto renamed = [&](std::size_t number) {
    return ScriptItem{target.in.identifierOf(fileOf(number)), numberedName(name, number), item.kind, std::nullopt};
  };
  if (isScript) sweepBeforeRenaming(*root, target, happened);
  std::size_t first = 1;
  for (int attempt = 0; attempt < mostAttempts; ++attempt) {
    const std::size_t number = findFreeNumber(first, [&](std::size_t candidate) {
      const std::string file = fileOf(candidate);
      return file != target.name && isThere(target.in, file, happened);
    });
    const std::string file = fileOf(number);
    ScriptItem result = renamed(number);
    if (file == target.name) return result;
    if (result.identifier.size() > longestIdentifier())
      throw failure(happened, std::make_error_code(std::errc::filename_too_long));
    if (!isScript && file.size() > target.name.size() && !fitsWith(file.size() - target.name.size(), path))
      throw LibraryError(
          happened +
          ", because the path of something in it would be too long for the system then. Use a shorter name.");
    if (!isScript) {
      forgetNotesOf(*root, path, happened);
      forgetNotesOf(*root, target.in.path.child(file), happened);
    }
    PendingRename pending = history_->willRename(path.string(), result.identifier);
    const auto note = isScript ? noted(*root, target.in.path, happened) : nullptr;
    const RenameResult renaming =
        (isScript ? renameFile : renameFolder)(options_.calls, target.in.folder.get(), target.name, file);
    if (note && renaming.names == NamesLeft::onlyNew) note->end();
    const bool isHiddenLeft = renaming.names == NamesLeft::newAndHidden;
    if (renaming.names == NamesLeft::onlyNew || isHiddenLeft) {
      const std::string done = inQuotes(item.identifier) + " was renamed to " + inQuotes(result.identifier) +
                               (isHiddenLeft ? ", with a hidden file left beside it" : "");
      flush(options_.calls, target.in, done);
      pending.done();
      requireStillInPlace(*root, done);
      if (isHiddenLeft) throw LibraryError(done + ", because " + reason(renaming.error) + ". Check the disk.");
      return result;
    }
    if (renaming.names != NamesLeft::onlyOld || renaming.error != std::errc::file_exists)
      throw notRenamed(renaming, result, happened);
    first = number + 1;
  }
  throw noFreeName(happened);
}

ScriptItem FolderLibrary::recreate(std::string_view identifier, std::string_view text) {
  const std::string happened = inQuotes(identifier) + " could not be put back";
  if (!identifier.ends_with(scriptSuffix)) throw LibraryError(happened + ", because it is not a script.");
  if (identifier.size() > longestIdentifier())
    throw failure(happened, std::make_error_code(std::errc::filename_too_long));
  const PathBeneath path = pathBeneath(identifier, happened);
  const auto root = openRootToChange(happened);
  const PathBeneath in = path.parent();
  PathBeneath parent;
  for (const std::string_view name : in.pieces()) {
    parent = parent.child(name);
    const EntryToChange folder = entryToChange(options_.calls, root->folder(), parent, happened);
    if (folder.status(root->folder(), happened)) continue;
    forgetNotesOf(*root, parent, happened);
    const std::error_code error = makeFolder(folder.in, folder.name);
    if (error && error != std::errc::file_exists) throw failure(happened, error);
    flush(options_.calls, folder.in, "The folder " + inQuotes(parent.string()) + " was made");
  }
  EntryToChange target = entryToChange(options_.calls, root->folder(), path, happened);
  std::optional<FileIdentity> file;
  if (const std::error_code error = makeScript(target.in, target.name, file)) {
    if (error != std::errc::file_exists) throw failure(happened, error);
    throw LibraryError(happened + ", because something with that name is there.");
  }
  const std::string done = ("The script " + inQuotes(identifier) + " was made").append(stillEmpty);
  flush(options_.calls, target.in, done);
  requireStillInPlace(*root, done);
  ScriptItem item{path.string(), target.name.substr(0, target.name.size() - scriptSuffix.size()), Kind::script,
                  std::nullopt};
  Made made{root, std::move(target), std::move(item), file};
  fill(made, text, {"The script exists again", "Its history is unchanged."});
  return std::move(made.item);
}

}  // namespace quorvel
