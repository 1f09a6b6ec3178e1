#include "quorvel/settings/FileChange.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <new>
#include <string>
#include <system_error>
#include <utility>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/FileAttributes.h"
#include "quorvel/files/FileSwap.h"
#include "quorvel/files/SystemCalls.h"
#include "quorvel/files/SystemReason.h"
#include "quorvel/files/TemporaryFile.h"
#include "quorvel/files/WaitForWriters.h"
#include "quorvel/settings/FileLeftovers.h"
#include "quorvel/settings/FileReading.h"
#include "quorvel/settings/FolderTurn.h"

namespace quorvel {
namespace {

constexpr int mostNewStarts = 3;

// If two changes of ours swap with the same file at once, each detects the other; with three, not always, so they take
// turns. A change takes far less time than this: whoever holds the folder for longer is something else.
constexpr std::chrono::seconds patienceWithChanges(2);

/// Takes the last copy back at its end, unless something came true meanwhile.
class TakenBackUnless {
 public:
  TakenBackUnless(FileCopies& copies, const bool& isTrue) : copies_(copies), isTrue_(isTrue) {}
  TakenBackUnless(const TakenBackUnless&) = delete;
  TakenBackUnless& operator=(const TakenBackUnless&) = delete;
  ~TakenBackUnless() {
    if (!isTrue_) copies_.takeBack();
  }

 private:
  FileCopies& copies_;
  const bool& isTrue_;
};

class Change {
 public:
  explicit Change(const std::filesystem::path& file, const SystemCalls& calls) : calls_(calls), shown_(file) {
    const auto [target, error] = followLinks(file);
    if (error) throw fileError(shown_, "written", error, target);
    folderPath_ = target.parent_path();
    name_ = target.filename();
    folder_ = Descriptor(::open(folderPath_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder_) throw fileError(shown_, "written", lastError(), target);
  }

  enum class Outcome { done, nothingToDo, startOver };

  Outcome make(const FileEdit& edit, FileCopies& copies) {
    if (!isToBeEdited(edit)) return Outcome::nothingToDo;
    prepare();
    {
      // A copy is made and taken back in one turn, so that no other change relies on it in between.
      const Descriptor turn = takeTurn(folderPath_, patienceWithChanges);
      const TakenBackUnless takenBack(copies, isInPlace_);
      if (before_) copies.save(*before_);
      putInPlace();
    }
    if (!isInPlace_) return Outcome::startOver;
    if (calls_.flushFolder(folder_.get()) == 0) return Outcome::done;
    throw FileError(
        because("The new text of " + inQuotes(shown_.native()) + " is in its place, but a power failure may undo that",
                lastError()));
  }

  void tryMaking(const FileEdit& edit, const FileCopies& copies) {
    if (!isToBeEdited(edit)) return;
    const auto unnamed = tryMakingFile(calls_, folder_.get());
    if (!unnamed) throw notWritten(unnamed.error());
    if (old_)
      require(*unnamed ? copyAttributes(old_.get(), unnamed->get()) : tryCopyingOwner(old_.get(), folder_.get()));
    if (before_) copies.trySaving(*before_);
  }

 private:
  FileError notWritten(const std::error_code& error) const { return fileError(shown_, "written", error); }

  // Reads the file and edits its text. False if the text stays as it is.
  bool isToBeEdited(const FileEdit& edit) {
    old_ = openFile(folder_.get(), name_, shown_);
    if (old_ && !waitForWriters(old_.get(), patienceWithWriters)) {
      throw FileError(inQuotes(shown_.native()) +
                      " was not changed, because another program has it open for writing. Close it there and try "
                      "again.");
    }
    if (old_) before_ = textOf(old_, shown_);
    std::optional<std::string> after = edit(before_);
    if (!after || after == before_) return false;
    after_ = *std::move(after);
    if (old_ && ::faccessat(folder_.get(), name_.c_str(), W_OK, AT_EACCESS) != 0) throw notWritten(lastError());
    return true;
  }

  void require(const CopiedAttributes& copied) const {
    if (copied) return;
    // A user whom the system does not know in here is refused as an invalid one.
    const bool isRefused =
        copied.error == std::errc::operation_not_permitted || copied.error == std::errc::invalid_argument;
    const std::string happened = inQuotes(shown_.native()) + " could not be written, because ";
    if (copied.missing == FileAttribute::owner && isRefused)
      throw FileError(happened + "it belongs to another user and would become yours. Run this as its owner.");
    if (copied.missing == FileAttribute::group && isRefused)
      throw FileError(happened + "its group would change. Run this as a member of that group.");
    throw FileError(happened + "who may read and write it would change: " + SystemReason::of(copied.error).reason +
                    ". Check its mode and its access lists.");
  }

  void prepare() try {
    fresh_ = TemporaryFile::make(calls_, folder_.get(), name_);
    fresh_->write(after_);
    if (old_) require(copyAttributes(old_.get(), fresh_->file()));
    fresh_->flush();
  } catch (const std::system_error& error) {
    throw notWritten(error.code());
  }

  void putInPlace() try {
    if (before_) return replace();
    isInPlace_ = fresh_->takeFreeName(name_);
  } catch (const std::system_error& error) {
    throw notWritten(error.code());
  }

  // Leaves the new text in place of the old one, or what another program put there at the same moment.
  void replace() {
    FileSwap swap(calls_, folder_.get(), name_, *fresh_, after_);
    if (swap.make()) return renameOver();
    isInPlace_ = true;
    try {
      if (seenText(fresh_->name()) == before_) {
        fresh_->remove();
        return;
      }
    } catch (const std::bad_alloc&) {
      putBack(swap);
      throw notWritten(std::make_error_code(std::errc::not_enough_memory));
    }
    putBack(swap);
  }

  // What came out is not the old text, or could not be read. What other programs saved last goes back.
  void putBack(FileSwap& swap) {
    using Undone = FileSwap::Undone;
    const Undone undone = swap.undo();
    isInPlace_ = undone.how == Undone::notTakenOut || undone.how == Undone::unclear;  // or may be
    if (undone.how == Undone::done) return;
    if (undone.how == Undone::savedMeanwhile) {
      fresh_->remove();
      return;
    }
    const std::string file = inQuotes(shown_.native());
    const std::string hidden = inQuotes((folderPath_ / fresh_->name()).native());
    if (undone.how == Undone::savedAllTheTime) {
      throw FileError("Another program wrote " + file + " at the same moment. What it wrote is now in " + hidden +
                      ". Put it back from there.");
    }
    throw FileError(because("It is not certain that the right text is in " + file, undone.error) +
                    " Then compare it with " + hidden + ", and put the right one back.");
  }

  void renameOver() {
    if (seenText(name_) != before_) return;
    fresh_->renameTo(name_);
    isInPlace_ = true;
  }

  // A file's text, if it can be read while nobody has it open for writing.
  std::optional<std::string> seenText(const std::string& name) const {
    try {
      const Descriptor file = openFile(folder_.get(), name, shown_);
      if (file && waitForWriters(file.get(), patienceWithWriters)) return textOf(file, shown_);
    } catch (const FileError&) {  // a folder, or a file that we may not read: not what we know
    }
    return std::nullopt;
  }

  const SystemCalls& calls_;
  const std::filesystem::path& shown_;
  std::filesystem::path folderPath_;
  std::string name_;
  Descriptor folder_;
  Descriptor old_;
  std::optional<std::string> before_;
  std::string after_;
  std::unique_ptr<TemporaryFile> fresh_;
  bool isInPlace_ = false;  // the file's name leads to the new text
};

}  // namespace

bool changeFile(FileCopies& copies, const FileEdit& edit) {
  sweepLeftoversOf(copies);
  for (int start = 0; start <= mostNewStarts; ++start) {
    const Change::Outcome outcome = Change(copies.file(), copies.calls()).make(edit, copies);
    if (outcome != Change::Outcome::startOver) return outcome == Change::Outcome::done;
  }
  throw FileError(inQuotes(copies.file().native()) +
                  " was not changed, because another program keeps writing it. Close that program and try again.");
}

void tryChangingFile(const FileCopies& copies, const FileEdit& edit) {
  Change(copies.file(), copies.calls()).tryMaking(edit, copies);
}

}  // namespace quorvel
