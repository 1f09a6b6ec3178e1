#include "quorvel/library/Replacement.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <optional>

#include "quorvel/library/Descriptor.h"
#include "quorvel/library/FileAttributes.h"
#include "quorvel/library/LibraryError.h"
#include "quorvel/library/OpenWriters.h"
#include "quorvel/library/TemporaryName.h"
#include "quorvel/library/WholeFile.h"

namespace quorvel {
namespace {

bool lacksTheCall(int error) {
  return error == ENOSYS || error == EINVAL || error == EOPNOTSUPP || error == EPERM;
}

class Replacement {
 public:
  Replacement(const SystemCalls& calls, const ReplacedFile& file, const KeepTakenText& keep)
      : calls_(calls), file_(file), keep_(keep) {}

  ~Replacement() { discard(); }

  void make(std::string_view text) {
    const Descriptor old = openOld();
    createTemporary();
    fill(text);
    if (!copyAttributes(old.get(), fresh_.get()))
      throw failure(happened() + " without changing who may read and write it", errno);
    flushTemporary();
    if (calls_.exchange(file_.folder, temporary_.c_str(), file_.name.c_str()) == 0) {
      lookAtWhatCameBack();
    } else if (lacksTheCall(errno)) {
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
    while (true) {
      TemporaryName name = TemporaryName::fresh(file_.name);
      temporary_ = name.text();
      fresh_ = Descriptor(::openat(file_.folder, temporary_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                   S_IRUSR | S_IWUSR));
      if (!fresh_) throw failed(errno);
      struct stat status;
      if (::fstat(fresh_.get(), &status) != 0) throw failed(errno);
      name.inode = status.st_ino;
      if (::flock(fresh_.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) continue;
      if (calls_.rename(file_.folder, temporary_.c_str(), name.text().c_str()) == 0) {
        temporary_ = name.text();
        return;
      }
      if (errno != ENOENT) throw failed(errno);
    }
  }

  void fill(std::string_view text) {
    while (!text.empty()) {
      const long written = calls_.write(fresh_.get(), text.data(), text.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) throw failed(errno);
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
      const Descriptor cameBack = openFile(temporary_);
      if (!waitForWriters(cameBack.get(), patienceWithWriters)) throw beingWritten();
      keepTextOf(cameBack);
    } catch (...) {
      undo();
      throw;
    }
    // Should this fail, the next writer clears it away.
    calls_.unlink(file_.folder, temporary_.c_str());
  }

  void keepTextOf(const Descriptor& taken) const {
    if (::lseek(taken.get(), 0, SEEK_SET) != 0) throw failed(errno);
    const std::optional<std::string> text = readToEnd(taken.get());
    if (!text) throw failed(errno);
    if (!text->empty()) keep_(*text);
  }

  // Puts back what came back. If another program has put a file of its own in place of ours meanwhile, that one is in
  // our hands then; it goes back to where it was put, and what came back first waits for the next writer.
  void undo() {
    if (calls_.exchange(file_.folder, temporary_.c_str(), file_.name.c_str()) != 0) throw notKeptYet();
    if (isSame(fresh_, temporary_)) {
      inPlace_ = false;
    } else {
      calls_.exchange(file_.folder, temporary_.c_str(), file_.name.c_str());
    }
  }

  LibraryError notKeptYet() const {
    return LibraryError("The new text of " + quorvel::quoted(file_.shownName) +
                        " is in its place, but what another program had "
                        "saved there just before could not be put into the version history. It is in a hidden file "
                        "beside the script, and the next change of the script takes it into the history.");
  }

  void renameOver() {
    const Descriptor old = openFile(file_.name);
    if (!waitForWriters(old.get(), patienceWithWriters)) throw beingWritten();
    keepTextOf(old);
    TemporaryName name = TemporaryName::fresh(file_.name);
    name.inode = 0;  // no file's number: what has this name was taken out of the script's place
    const std::string aside = name.text();
    // Some disks have no second names; the old file is then in our hands by its descriptor alone.
    const bool linked = calls_.link(file_.folder, file_.name.c_str(), aside.c_str()) == 0;
    const auto forgetAside = [&] {
      if (linked) calls_.unlink(file_.folder, aside.c_str());
    };
    if (!isSame(old, file_.name)) {
      forgetAside();
      throw beingWritten();
    }
    if (calls_.rename(file_.folder, temporary_.c_str(), file_.name.c_str()) != 0) {
      const int error = errno;
      forgetAside();
      throw failed(error);
    }
    inPlace_ = true;
    try {
      keepTextOf(old);
    } catch (...) {
      throw notKeptYet();
    }
    forgetAside();
  }

  void flushFolder() const {
    // EINVAL is how a file system says that its folders need no flushing.
    if (calls_.flush(file_.folder) == 0 || errno == EINVAL) return;
    throw LibraryError("The new text of " + quorvel::quoted(file_.shownName) +
                       " is in its place, but it may not outlast a power "
                       "failure, because " +
                       reason(errno) + ". Check the disk, then write the text again.");
  }

  bool isSame(const Descriptor& file, const std::string& name) const {
    struct stat opened;
    struct stat named;
    return ::fstat(file.get(), &opened) == 0 &&
           ::fstatat(file_.folder, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
  }

  // Removes the temporary file, unless it holds anything but the text that was to be written.
  void discard() {
    if (fresh_ && !inPlace_ && isSame(fresh_, temporary_)) calls_.unlink(file_.folder, temporary_.c_str());
  }

  const SystemCalls& calls_;
  const ReplacedFile& file_;
  const KeepTakenText& keep_;
  Descriptor fresh_;
  std::string temporary_;
  bool inPlace_ = false;  // the new text is what the file's name leads to
};

}  // namespace

void replaceFile(const SystemCalls& calls, const ReplacedFile& file, std::string_view text, const KeepTakenText& keep) {
  Replacement(calls, file, keep).make(text);
}

}  // namespace quorvel
