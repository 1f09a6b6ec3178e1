#include "quorvel/files/Replacement.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <optional>
#include <utility>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/FileAttributes.h"
#include "quorvel/files/FileIdentity.h"
#include "quorvel/files/LibraryError.h"
#include "quorvel/files/OpenWriters.h"
#include "quorvel/files/TemporaryName.h"
#include "quorvel/files/WholeFile.h"

namespace quorvel {
namespace {

class Replacement {
 public:
  Replacement(const SystemCalls& calls, const ReplacedFile& file, std::string_view text, const KeepTakenText& keep)
      : calls_(calls), file_(file), text_(text), keep_(keep) {}

  ~Replacement() { discard(); }

  void make() {
    const Descriptor old = openOld();
    createTemporary();
    fill();
    if (!copyAttributes(old.get(), fresh_.get()))
      throw failure(happened() + " without changing who may read and write it", errno);
    flushTemporary();
    if (exchange()) {
      lookAtWhatCameBack();
    } else if (SystemCalls::isLacking(errno)) {
      renameOver();
    } else {
      throw failed(errno);
    }
    flushFolder();
  }

 private:
  std::string happened() const { return quorvel::quoted(file_.shownName) + " could not be written"; }
  LibraryError failed(int error) const { return failure(happened(), error); }

  LibraryError beingWritten() const {
    return LibraryError(happened() +
                        ", because another program has it open for writing. Save and close it there, then "
                        "try again.");
  }

  // Opens what has a name in the folder, if it is a file. Throws the failure of the write otherwise.
  Descriptor openFile(const std::string& name) const {
    Descriptor opened(::openat(file_.folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!opened) throw failed(errno);
    struct stat status;
    if (::fstat(opened.get(), &status) != 0) throw failed(errno);
    if (S_ISDIR(status.st_mode)) throw failed(EISDIR);
    if (!S_ISREG(status.st_mode))
      throw LibraryError(happened() + ", because what is there now is not a file. Move it away and try again.");
    return opened;
  }

  Descriptor openOld() const {
    Descriptor old = openFile(file_.name);
    if (::faccessat(file_.folder, file_.name.c_str(), W_OK, AT_EACCESS) != 0) throw failed(errno);
    if (!waitForWriters(old.get(), patienceWithWriters)) throw beingWritten();
    return old;
  }

  // The lock on the temporary file shows others that it has a living owner. Somebody may clear the file away between
  // its creation and the lock; then another one is made.
  void createTemporary() {
    constexpr int mostAttempts = 100;  // nobody clears away so many, so it is the disk that cannot do this
    for (int attempt = 0; attempt < mostAttempts; ++attempt, discard()) {
      name_ = TemporaryName::fresh(file_.name);
      temporary_ = name_.text();
      fresh_ = Descriptor(::openat(file_.folder, temporary_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                   S_IRUSR | S_IWUSR));
      if (!fresh_) throw failed(errno);
      const auto made = identityOf(fresh_.get());
      if (!made) throw failed(errno);
      name_.inode = made->number;
      if (::flock(fresh_.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) continue;
      if (renameTemporary(name_)) return;
      if (errno != ENOENT) throw failed(errno);
    }
    throw LibraryError(happened() +
                       ", because the temporary files that it needs are taken away again and again. Close other "
                       "programs that tidy up this folder, check the disk, and try again.");
  }

  bool renameTemporary(const TemporaryName& name) {
    std::string text = name.text();
    if (calls_.rename(file_.folder, temporary_.c_str(), text.c_str()) != 0) return false;
    temporary_ = std::move(text);
    return true;
  }

  void fill() {
    for (std::string_view text = text_; !text.empty();) {
      const long written = calls_.write(fresh_.get(), text.data(), text.size());
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) throw failed(written < 0 ? errno : EIO);
      text.remove_prefix(static_cast<std::size_t>(written));
    }
  }

  // Some disks report what went wrong with a file when it is closed, which a second descriptor can be without letting
  // go of the lock.
  void flushTemporary() {
    if (calls_.flush(fresh_.get()) != 0) throw failed(errno);
    const int second = ::fcntl(fresh_.get(), F_DUPFD_CLOEXEC, 0);
    if (second < 0 || ::close(second) != 0) throw failed(errno);
  }

  void lookAtWhatCameBack() {
    inPlace_ = true;
    try {
      requireFolderInPlace();
      keepTextOf(openFile(temporary_));
      requireFolderInPlace();  // for the text that was kept as well
    } catch (...) {
      undo();
      throw;
    }
    // Should this fail, the next writer clears it away.
    calls_.unlink(file_.folder, temporary_.c_str());
  }

  void keepTextOf(const Descriptor& taken) {
    if (!waitForWriters(taken.get(), patienceWithWriters)) throw beingWritten();
    if (::lseek(taken.get(), 0, SEEK_SET) != 0) throw failed(errno);
    std::optional<std::string> text = readToEnd(taken.get(), calls_);
    if (!text && errno == EFBIG) throw tooLarge(happened(), "what another program has saved there");
    if (!text) throw failed(errno);
    if (text->empty() || *text == kept_) return;
    keep_(*text);
    kept_ = std::move(*text);
  }

  // Swaps the temporary file and the script. False, with the reason in errno, when they stand as they stood: a disk
  // over the network may have done what it says that it could not do, so what is there is looked at.
  bool exchange() const {
    const auto before = identityOf(file_.folder, file_.name);
    if (calls_.exchange(file_.folder, temporary_.c_str(), file_.name.c_str()) == 0) return true;
    const int error = errno;
    const bool isDone = before && before == identityOf(file_.folder, temporary_);
    errno = error;
    return isDone;
  }

  // Puts back what came back. From now on either file was to be read in the script's place once, which the temporary
  // name has to say before they change places. Where another program has saved onto ours or put a file of its own there
  // meanwhile, that goes back to where it was saved, and what came back first waits for the next writer.
  void undo() {
    if (!renameTemporary(name_.ofTakenFile()) || !exchange()) throw notTakenOut(errno);
    switch (lookAtOurs()) {
      case Ours::untouched:
        calls_.unlink(file_.folder, temporary_.c_str());
        return;
      case Ours::saved:
        if (exchange()) return;
        throw hidden(errno);
      case Ours::unknown:
        throw hidden(errno);
    }
  }

  enum class Ours { untouched, saved, unknown };

  // Whether the temporary file is the one that we made, as we filled it, and nobody is about to write into it; or what
  // another program has saved. Unknown with the reason in errno.
  Ours lookAtOurs() {
    const auto ours = identityOf(fresh_.get());
    const auto present = ours ? identityOf(file_.folder, temporary_) : std::nullopt;
    if (!present) return Ours::unknown;
    if (present != ours) return Ours::saved;
    const Descriptor file(
        ::openat(file_.folder, temporary_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file) return Ours::unknown;
    fresh_ = Descriptor();  // which is open for writing
    if (!waitForWriters(file.get(), std::chrono::milliseconds(0))) return Ours::saved;
    const auto text = readToEnd(file.get(), calls_);
    if (!text) return errno == EBUSY || errno == EFBIG ? Ours::saved : Ours::unknown;
    return *text == text_ ? Ours::untouched : Ours::saved;
  }

  std::string inPlace() const { return "The new text of " + quorvel::quoted(file_.shownName) + " is in its place"; }

  static constexpr const char* nextChange =
      " is in a hidden file beside the script, and the next change of the script takes it into the version history.";

  LibraryError notTakenOut(int error) const {
    return LibraryError(failure(inPlace() + " and could not be taken out again", error).what() +
                        std::string(" What was there just before") + nextChange);
  }

  LibraryError hidden(int error) const {
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

  void requireFolderInPlace() const {
    if (!file_.isInPlace()) throw failed(ENOENT);
  }

  void renameOver() {
    requireFolderInPlace();
    const Descriptor old = openFile(file_.name);
    keepTextOf(old);
    const std::string aside = name_.ofTakenFile().text();
    // Some disks have no second names; the old file is then in our hands by its descriptor alone.
    const bool linked = calls_.link(file_.folder, file_.name.c_str(), aside.c_str()) == 0;
    if (!linked && !SystemCalls::isLacking(errno)) throw failed(errno);
    const auto forgetAside = [&] {
      if (linked) calls_.unlink(file_.folder, aside.c_str());
    };
    const auto present = identityOf(file_.folder, file_.name);
    if (!present || present != identityOf(old.get())) {
      const int error = errno;
      forgetAside();
      if (!present) throw failed(error);
      throw LibraryError(happened() + ", because another program saved it at the same moment. Try again.");
    }
    const bool isRenamed = calls_.rename(file_.folder, temporary_.c_str(), file_.name.c_str()) == 0;
    const int error = errno;
    // A disk over the network may have done what it says that it could not do.
    if (!isRenamed && !isSame(fresh_, file_.name)) {
      forgetAside();
      throw failed(error);
    }
    inPlace_ = true;
    try {
      keepTextOf(old);
    } catch (...) {
      throw linked ? notKeptYet() : lost();
    }
    forgetAside();
  }

  void flushFolder() const {
    if (calls_.flushFolder(file_.folder) == 0) return;
    throw LibraryError(inPlace() + ", but it may not outlast a power failure, because " + reason(errno) +
                       ". Check the disk, then write the text again.");
  }

  bool isSame(const Descriptor& file, const std::string& name) const {
    const auto opened = identityOf(file.get());
    return opened && opened == identityOf(file_.folder, name);
  }

  // Removes the temporary file, if it never was in the script's place.
  void discard() {
    if (fresh_ && !inPlace_ && isSame(fresh_, temporary_)) calls_.unlink(file_.folder, temporary_.c_str());
  }

  const SystemCalls& calls_;
  const ReplacedFile& file_;
  const std::string_view text_;
  const KeepTakenText& keep_;
  std::string kept_;  // the text that was kept last
  Descriptor fresh_;
  TemporaryName name_;
  std::string temporary_;  // the name that it has
  bool inPlace_ = false;   // the new text was what the file's name leads to
};

}  // namespace

void replaceFile(const SystemCalls& calls, const ReplacedFile& file, std::string_view text, const KeepTakenText& keep) {
  Replacement(calls, file, text, keep).make();
}

}  // namespace quorvel
