#include "quorvel/settings/FileChange.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>
#include <utility>

#include "quorvel/library/Descriptor.h"
#include "quorvel/library/FileAttributes.h"
#include "quorvel/library/LibraryError.h"
#include "quorvel/library/OpenWriters.h"
#include "quorvel/library/TemporaryName.h"
#include "quorvel/library/WholeFile.h"

namespace quorvel {
namespace {

constexpr int mostNewStarts = 3;

FileError failed(const std::filesystem::path& file, std::string_view what, int error) {
  const std::string happened = quorvel::quoted(file.native()) + " could not be " + std::string(what);
  switch (error) {
    case ENOENT:
      return FileError(happened + ", because there is no such folder.");
    case ENOTDIR:
      return FileError(happened + ", because what should be a folder on the way to it is none.");
    case ELOOP:
      return FileError(happened + ", because the links there lead in a circle.");
    case EISDIR:
      return FileError(happened + ", because a folder has its name. Move it away and try again.");
    default:
      return FileError(failure(happened, error).what());
  }
}

FileError beingWritten(const std::filesystem::path& file) {
  return FileError(quorvel::quoted(file.native()) +
                   " was left as it is, because another program has it open for writing. Close it there, then try "
                   "again.");
}

/// Where a path leads when the last piece's symbolic links are followed, whether or not a file is there; its folder is
/// free of links. Nothing, with the reason in `error`, where there is no such folder.
std::filesystem::path followed(const std::filesystem::path& file, std::error_code& error) {
  constexpr int mostLinks = 40;
  std::filesystem::path place = std::filesystem::absolute(file, error);
  for (int links = 0; !error; ++links) {
    const std::filesystem::path folder = std::filesystem::canonical(place.parent_path(), error);
    if (error) break;
    place = folder / place.filename();
    std::error_code isNoLink;
    const std::filesystem::path target = std::filesystem::read_symlink(place, isNoLink);
    if (isNoLink) return place;
    if (links == mostLinks) error = std::make_error_code(std::errc::too_many_symbolic_link_levels);
    place = folder / target;
  }
  return {};
}

/// Opens what has a name in a folder, links not followed; none where nothing has it.
Descriptor openFile(int folder, const char* name, const std::filesystem::path& shown) {
  Descriptor file(::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file && errno == ENOENT) return file;
  struct stat status;
  if (!file || ::fstat(file.get(), &status) != 0) throw failed(shown, "read", errno);
  if (!S_ISREG(status.st_mode))
    throw FileError(quorvel::quoted(shown.native()) + " is not a file. Move it away and try again.");
  return file;
}

std::string textOf(const Descriptor& file, const std::filesystem::path& shown) {
  auto text = ::lseek(file.get(), 0, SEEK_SET) == 0 ? readToEnd(file.get()) : std::nullopt;
  if (!text) throw failed(shown, "read", errno);
  return *std::move(text);
}

/// Writes a text to a new file and sees it to the disk.
void finish(Descriptor file, std::string_view text, const std::filesystem::path& shown, const SystemCalls& calls) {
  while (!text.empty()) {
    const long written = calls.write(file.get(), text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) throw failed(shown, "written", errno);
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  if (calls.flush(file.get()) != 0 || ::close(file.release()) != 0) throw failed(shown, "written", errno);
}

std::filesystem::path folderOf(const std::filesystem::path& file) {
  return file.has_parent_path() ? file.parent_path() : ".";
}

/// Sees what has which name in a file's folder to the disk. False, with the reason in errno, when it may not be there.
bool flushFolderOf(const std::filesystem::path& file, const SystemCalls& calls) {
  const Descriptor folder(::open(folderOf(file).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return folder && calls.flushFolder(folder.get()) == 0;
}

/// Makes a file for its owner only, whose name is not on the disk yet; false when something has the name already.
bool makeUnflushed(const std::filesystem::path& file, std::string_view text, const std::filesystem::path& shown,
                   const SystemCalls& calls) {
  Descriptor made(::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!made && errno == EEXIST) return false;
  if (!made) throw failed(shown, "written", errno);
  try {
    finish(std::move(made), text, shown, calls);
  } catch (...) {
    ::unlink(file.c_str());
    throw;
  }
  return true;
}

/// Keeps other changes of ours out of a folder for as long as the result lives. Of two that change places with one file
/// each finds out about the other; of three, not always. Nobody waits long: who holds a folder for longer is no change.
Descriptor lockedForAWhile(const std::filesystem::path& folder) {
  Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int attempt = 0; attempt < 2000 && ::flock(opened.get(), LOCK_EX | LOCK_NB) != 0; ++attempt) {
    if (errno != EWOULDBLOCK && errno != EINTR) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return opened;
}

class Change {
 public:
  Change(const std::filesystem::path& file, const SystemCalls& calls) : calls_(calls), shown_(file) {
    std::error_code error;
    const std::filesystem::path place = followed(file, error);
    if (error) throw notWritten(error.value());
    folderPath_ = place.parent_path();
    name_ = place.filename();
    folder_ = Descriptor(::open(folderPath_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder_) throw notWritten(errno);
  }

  ~Change() { discard(); }

  enum class Outcome { done, nothingToDo, startOver };

  Outcome make(const FileEdit& edit, const FileKeeper& keep) {
    const Descriptor old = openFile(folder_.get(), name_.c_str(), shown_);
    std::optional<std::string> before;
    if (old && !waitForWriters(old.get(), patienceWithWriters)) throw beingWritten(shown_);
    if (old) before = textOf(old, shown_);
    const std::optional<std::string> after = edit(before);
    if (!after || after == before) return Outcome::nothingToDo;
    if (old && ::faccessat(folder_.get(), name_.c_str(), W_OK, AT_EACCESS) != 0) throw notWritten(errno);
    prepare(*after, old);
    if (old) keep(*before);
    const Descriptor lock = lockedForAWhile(folderPath_);
    if (!(old ? replaces(*before, *after) : takesFreeName())) return Outcome::startOver;
    if (calls_.flushFolder(folder_.get()) != 0) {
      throw FileError("The new text of " + quorvel::quoted(shown_.native()) +
                      " is in its place, but it may not outlast a power failure, because " + reason(errno) +
                      ". Check the disk.");
    }
    return Outcome::done;
  }

 private:
  FileError notWritten(int error) const { return failed(shown_, "written", error); }

  void prepare(std::string_view text, const Descriptor& old) {
    temporary_ = TemporaryName::fresh(name_).text();
    Descriptor fresh(::openat(folder_.get(), temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                              S_IRUSR | S_IWUSR));
    if (!fresh) {
      temporary_.clear();
      throw notWritten(errno);
    }
    if (old && !copyAttributes(old.get(), fresh.get())) throw notWritten(errno);
    finish(std::move(fresh), text, shown_, calls_);
  }

  // False when another program put something else there.
  bool replaces(const std::string& before, const std::string& after) {
    if (exchange() == 0) {
      if (holds(temporary_, before)) return true;
      if (exchange() == 0 && holds(temporary_, after)) return false;
      throw FileError("Another program wrote " + quorvel::quoted(shown_.native()) +
                      " at the same moment. What it wrote is now in " +
                      quorvel::quoted((folderPath_ / std::exchange(temporary_, {})).native()) +
                      "; put it back from there.");
    }
    if (!holds(name_, before)) return false;
    if (calls_.rename(folder_.get(), temporary_.c_str(), name_.c_str()) != 0) throw notWritten(errno);
    temporary_.clear();
    return true;
  }

  // The same for a file that is not there yet.
  bool takesFreeName() {
    if (calls_.renameToFreeName(folder_.get(), temporary_.c_str(), name_.c_str()) == 0) {
      temporary_.clear();
      return true;
    }
    if (errno != EEXIST && calls_.link(folder_.get(), temporary_.c_str(), name_.c_str()) == 0) return true;
    if (errno == EEXIST) return false;
    throw notWritten(errno);
  }

  int exchange() const { return calls_.exchange(folder_.get(), temporary_.c_str(), name_.c_str()); }

  bool holds(const std::string& name, const std::string& text) const {
    try {
      const Descriptor file = openFile(folder_.get(), name.c_str(), shown_);
      return file && waitForWriters(file.get(), patienceWithWriters) && textOf(file, shown_) == text;
    } catch (const FileError&) {
      return false;  // a folder, or a file that we may not read: not what we know
    }
  }

  void discard() {
    if (!temporary_.empty()) calls_.unlink(folder_.get(), temporary_.c_str());
  }

  const SystemCalls& calls_;
  const std::filesystem::path& shown_;
  std::filesystem::path folderPath_;
  std::string name_;
  Descriptor folder_;
  std::string temporary_;  // the name of the file that is to go in the end
};

}  // namespace

void makeFolder(const std::filesystem::path& folder) {
  if (::mkdir(folder.c_str(), S_IRWXU) == 0) return;
  if (errno == ENOENT && folder.has_relative_path()) {
    makeFolder(folder.parent_path());
    if (::mkdir(folder.c_str(), S_IRWXU) == 0) return;
  }
  const int error = errno;
  std::error_code ignored;
  if (error == EEXIST && std::filesystem::is_directory(folder, ignored)) return;
  const std::string happened = "The folder " + quorvel::quoted(folder.native()) + " could not be made";
  if (error == EEXIST) throw FileError(happened + ", because something that is no folder has its name. Move it away.");
  throw FileError(failure(happened, error).what());
}

std::optional<std::string> readFile(const std::filesystem::path& file) {
  std::error_code error;
  const std::filesystem::path place = followed(file, error);
  if (error == std::errc::no_such_file_or_directory) return std::nullopt;
  if (error) throw failed(file, "read", error.value());
  const Descriptor opened = openFile(AT_FDCWD, place.c_str(), file);
  return opened ? std::optional(textOf(opened, file)) : std::nullopt;
}

bool makeFile(const std::filesystem::path& file, std::string_view text, const SystemCalls& calls) {
  if (!makeUnflushed(file, text, file, calls)) return false;
  if (flushFolderOf(file, calls)) return true;
  const int error = errno;
  ::unlink(file.c_str());
  throw failed(file, "written", error);
}

void putPrivateFile(const std::filesystem::path& file, std::string_view text, const SystemCalls& calls) {
  const std::filesystem::path temporary = folderOf(file) / TemporaryName::fresh(file.filename().native()).text();
  if (!makeUnflushed(temporary, text, file, calls)) throw failed(file, "written", EEXIST);
  if (calls.rename(AT_FDCWD, temporary.c_str(), file.c_str()) != 0) {
    const int error = errno;
    calls.unlink(AT_FDCWD, temporary.c_str());
    throw failed(file, "written", error);
  }
  if (!flushFolderOf(file, calls)) throw failed(file, "written", errno);
}

bool changeFile(const std::filesystem::path& file, const FileEdit& edit, const SystemCalls& calls) {
  const auto nothingIsKept = [](const std::string&) {};
  return changeFile(file, edit, nothingIsKept, calls);
}

bool changeFile(const std::filesystem::path& file, const FileEdit& edit, const FileKeeper& keep,
                const SystemCalls& calls) {
  for (int start = 0; start <= mostNewStarts; ++start) {
    const Change::Outcome outcome = Change(file, calls).make(edit, keep);
    if (outcome != Change::Outcome::startOver) return outcome == Change::Outcome::done;
  }
  throw FileError(quorvel::quoted(file.native()) +
                  " was left as it is, because another program keeps writing it. Close that "
                  "program and try again.");
}

}  // namespace quorvel
