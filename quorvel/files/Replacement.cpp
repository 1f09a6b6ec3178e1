#include "quorvel/files/Replacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <system_error>
#include <utility>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/FileAttributes.h"
#include "quorvel/files/FileIdentity.h"
#include "quorvel/files/FileSwap.h"
#include "quorvel/files/LibraryError.h"
#include "quorvel/files/TemporaryFile.h"
#include "quorvel/files/WaitForWriters.h"
#include "quorvel/files/WholeFile.h"

// Nothing is lost, because at each moment the old text has a name, and what was in the file's place when the new one
// came is looked at afterwards, not before: a look before the swap could miss what another program saves in between.
// What came out is kept if it is not known, or put back if it cannot be kept. So the swap comes first and the questions
// follow; every failure after it goes through `undo`, whose answers are the sentences below. `renameOver` is for disks
// that cannot swap: there the looks are as close to the renaming as they can be, on both sides of it.

namespace quorvel {
namespace {

class Replacement {
 public:
  Replacement(const SystemCalls& calls, const ReplacedFile& file, std::string_view text, const KeepReplacedText& keep)
      : calls_(calls), file_(file), text_(text), keep_(keep) {}

  bool make() {
    prepare(openOld());
    FileSwap swap(calls_, file_.folder, file_.name, *fresh_, text_);
    const std::error_code error = swap.make();
    if (!error) {
      lookAtWhatCameBack(swap);
    } else if (SystemCalls::isLacking(error)) {
      renameOver();
    } else {
      throw failed(error);
    }
    flushFolder();
    return !isAnythingLeft_;
  }

 private:
  std::string happened() const { return inQuotes(file_.shownName) + " could not be written"; }
  LibraryError failed(const std::error_code& error) const { return failure(happened(), error); }

  struct OpenedFile {
    Descriptor file;
    struct stat status;
  };

  // Opens what has a name in the folder, if it is a file, once nobody has it open for writing. Throws the failure of
  // the write otherwise.
  OpenedFile openFile(const std::string& name) const {
    auto opened = openToRead(file_.folder, name);
    if (!opened) throw failed(opened.error());
    if (!waitForWriters(opened->get(), file_.patience))
      throw LibraryError(happened() +
                         ", because another program has it open for writing. Save and close it there, then try again.");
    struct stat status;
    if (::fstat(opened->get(), &status) != 0) throw failed(lastError());
    if (S_ISDIR(status.st_mode)) throw failed(std::make_error_code(std::errc::is_a_directory));
    if (!S_ISREG(status.st_mode))
      throw LibraryError(happened() + ", because what is there now is not a file. Move it away and try again.");
    return {*std::move(opened), status};
  }

  OpenedFile openOld() const {
    OpenedFile old = openFile(file_.name);
    if (::faccessat(file_.folder, file_.name.c_str(), W_OK, AT_EACCESS) != 0) throw failed(lastError());
    return old;
  }

  // The new text, flushed and with the old file's attributes, beside it.
  void prepare(const OpenedFile& old) try {
    fresh_ = TemporaryFile::make(calls_, file_.folder, file_.name);
    fresh_->write(text_);
    if (const CopiedAttributes copied = copyAttributes(old.file.get(), old.status, fresh_->file(), fresh_->status());
        !copied)
      throw failure(happened() + " without changing who may read and write it", copied.error);
    fresh_->flush();
  } catch (const std::system_error& error) {
    if (fresh_ || error.code() != std::errc::device_or_resource_busy) throw failed(error.code());
    throw LibraryError(happened() +
                       ", because the temporary files that it needs are taken away again and again. Close other "
                       "programs that tidy up this folder, check the disk, and try again.");
  }

  void lookAtWhatCameBack(FileSwap& swap) {
    try {
      requireFolderInPlace();
      // Keeping takes long enough for the folder to be moved away meanwhile.
      if (keepTextOf(openFile(fresh_->name()))) requireFolderInPlace();
    } catch (const std::exception& failure) {
      undo(swap, failure);
      throw;
    }
    isAnythingLeft_ = !fresh_->remove();
  }

  // The file is read from where it stands. Returns whether the history changed.
  bool keepTextOf(const OpenedFile& replaced) {
    auto text = readToEnd(replaced.file.get(), replaced.status.st_size, calls_);
    if (!text && text.error() == std::errc::file_too_large)
      throw tooLarge(happened(), "what another program has saved there");
    if (!text) throw failed(text.error());
    if (text->empty() || *text == kept_) return false;
    const bool isChanged = keep_(*text);
    kept_ = *std::move(text);
    return isChanged;
  }

  // Returns if all is as it was before. Where other programs have saved meanwhile, what they saved before the last
  // waits for the next writer; `cause` is what the undoing is for.
  void undo(FileSwap& swap, const std::exception& cause) const {
    const FileSwap::Undone undone = swap.undo();
    switch (undone.how) {
      case FileSwap::Undone::done:
        return;
      case FileSwap::Undone::savedMeanwhile:
        throw LibraryError(sentencesOn(cause) + " Another program has opened " + inQuotes(file_.shownName) +
                           " to save it meanwhile, so what it saved, or the new text, is in its place. What was there "
                           "just before" +
                           nextChange);
      case FileSwap::Undone::savedAllTheTime:
        throw LibraryError(
            sentencesOn(cause) + " Other programs keep " + inQuotes(file_.shownName) +
            " open to save it, so nobody can tell which text is the last. One is in its place. The other" + nextChange);
      case FileSwap::Undone::notTakenOut:
        throw notTakenOut(undone.error);
      case FileSwap::Undone::unclear:
        throw hidden(undone.error);
    }
  }

  std::string sentencesOn(const std::exception& cause) const {
    const bool isMemory = dynamic_cast<const std::bad_alloc*>(&cause) != nullptr;
    return isMemory ? failed(std::make_error_code(std::errc::not_enough_memory)).what() : cause.what();
  }

  std::string inPlace() const { return "The new text of " + inQuotes(file_.shownName) + " is in its place"; }

  static constexpr const char* nextChange =
      " is in a hidden file beside the script, and the next change of the script takes it into the version history.";

  LibraryError notTakenOut(const std::error_code& error) const {
    return LibraryError(failure(inPlace() + " and could not be taken out again", error).what() +
                        std::string(" What was there just before") + nextChange);
  }

  LibraryError hidden(const std::error_code& error) const {
    return LibraryError(failed(error).what() +
                        std::string(" What another program may have saved there at the same moment") + nextChange);
  }

  LibraryError notKeptYet() const {
    return LibraryError(inPlace() + ", but what was there just before could not be put into the version history. It" +
                        nextChange);
  }

  LibraryError lost() const {
    return LibraryError(inPlace() +
                        ", but what another program may have saved there just before could not be put into the version "
                        "history and is lost. If that program still shows it, save it there again under another name.");
  }

  // What a program that had the file open wrote into it after it was read.
  void keepLastTextOf(OpenedFile& old) {
    if (!waitForWriters(old.file.get(), file_.patience) || ::lseek(old.file.get(), 0, SEEK_SET) != 0 ||
        ::fstat(old.file.get(), &old.status) != 0)
      throw failed(lastError());
    keepTextOf(old);
  }

  void requireFolderInPlace() const {
    if (!file_.isInPlace()) throw failed(std::make_error_code(std::errc::no_such_file_or_directory));
  }

  void renameOver() {
    requireFolderInPlace();
    OpenedFile old = openFile(file_.name);
    keepTextOf(old);
    const std::string aside = fresh_->markedName();
    // Some disks have no second names; the old file is then in our hands by its descriptor alone.
    const bool linked = calls_.link(file_.folder, file_.name.c_str(), aside.c_str()) == 0;
    if (!linked && !SystemCalls::isLacking(lastError())) throw failed(lastError());
    const auto forgetAside = [&] { isAnythingLeft_ = linked && calls_.unlink(file_.folder, aside.c_str()) != 0; };
    const auto present = identityOf(file_.folder, file_.name);
    if (!(present == FileIdentity{old.status.st_dev, old.status.st_ino})) {
      forgetAside();
      if (!present) throw failed(present.error());
      throw LibraryError(happened() + ", because another program saved it at the same moment. Try again.");
    }
    try {
      fresh_->renameTo(file_.name);
    } catch (const std::system_error& error) {
      forgetAside();
      throw failed(error.code());
    }
    try {
      keepLastTextOf(old);
    } catch (...) {
      throw linked ? notKeptYet() : lost();
    }
    forgetAside();
  }

  void flushFolder() const {
    if (calls_.flushFolder(file_.folder) == 0) return;
    throw LibraryError(inPlace() + ", but it may not outlast a power failure, because " + reason(lastError()) +
                       ". Check the disk, then write the text again.");
  }

  const SystemCalls& calls_;
  const ReplacedFile& file_;
  const std::string_view text_;
  const KeepReplacedText& keep_;
  std::string kept_;  // the text that was kept last
  bool isAnythingLeft_ = false;
  std::unique_ptr<TemporaryFile> fresh_;
};

}  // namespace

bool replaceFile(const SystemCalls& calls, const ReplacedFile& file, std::string_view text,
                 const KeepReplacedText& keep) {
  return Replacement(calls, file, text, keep).make();
}

}  // namespace quorvel
