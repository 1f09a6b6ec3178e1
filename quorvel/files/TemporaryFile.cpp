#include "quorvel/files/TemporaryFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace quorvel {
namespace {

std::system_error systemError(int error) {
  return {error, std::generic_category()};
}

}  // namespace

// Somebody may clear the file away between its creation and the lock; then another one is made.
std::unique_ptr<TemporaryFile> TemporaryFile::make(const SystemCalls& calls, int folder, std::string_view name) {
  constexpr int mostAttempts = 100;  // nobody clears away so many, so it is the disk that cannot do this
  for (int attempt = 0; attempt < mostAttempts; ++attempt) {
    TemporaryName parts = TemporaryName::fresh(name);
    Descriptor file(::openat(folder, parts.text().c_str(), O_RDONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                             S_IRUSR | S_IWUSR));
    if (!file) throw systemError(errno);
    std::unique_ptr<TemporaryFile> made(new TemporaryFile(calls, folder, parts, std::move(file)));
    made->identity_ = identityOf(made->file());
    if (!made->identity_) throw systemError(errno);
    parts.inode = made->identity_->number;
    if (::flock(made->file(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) continue;
    try {
      made->moveTo(parts);
      return made;
    } catch (const std::system_error& error) {
      if (error.code() != std::errc::no_such_file_or_directory) throw;
    }
  }
  throw systemError(EBUSY);
}

TemporaryFile::TemporaryFile(const SystemCalls& calls, int folder, const TemporaryName& parts, Descriptor file)
    : calls_(calls), folder_(folder), parts_(parts), name_(parts.text()), file_(std::move(file)) {
}

TemporaryFile::~TemporaryFile() {
  if (name_.empty() || isLeft_ || !identity_) return;
  if (identityOf(folder_, name_) == identity_) remove();
}

// A second descriptor writes, and what the disk reports when it is closed is heard. The first is open for reading only:
// whoever asks whether the file has writers does not find ourselves.
void TemporaryFile::write(std::string_view text) const {
  Descriptor writing(::openat(folder_, name_.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!writing) throw systemError(errno);
  if (identityOf(writing.get()) != identity_) throw systemError(EBUSY);
  while (!text.empty()) {
    const long written = calls_.write(writing.get(), text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) throw systemError(written < 0 ? errno : EIO);
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  if (::close(writing.release()) != 0) throw systemError(errno);
}

void TemporaryFile::flush() const {
  if (calls_.flush(file()) != 0) throw systemError(errno);
}

void TemporaryFile::renameTo(const std::string& name) {
  if (calls_.rename(folder_, name_.c_str(), name.c_str()) != 0) {
    const int error = errno;
    if (identityOf(folder_, name) != identity_) throw systemError(error);
  }
  name_.clear();
}

bool TemporaryFile::takeFreeName(const std::string& name) {
  if (calls_.renameToFreeName(folder_, name_.c_str(), name.c_str()) == 0) {
    name_.clear();
    return true;
  }
  if (errno != EEXIST && calls_.link(folder_, name_.c_str(), name.c_str()) == 0) {
    remove();
    return true;
  }
  if (errno != EEXIST) throw systemError(errno);
  return false;
}

void TemporaryFile::markTaken() {
  moveTo(parts_.ofTakenFile());
}

void TemporaryFile::remove() noexcept {
  calls_.unlink(folder_, name_.c_str());
  name_.clear();
}

void TemporaryFile::moveTo(const TemporaryName& parts) {
  std::string name = parts.text();
  if (calls_.rename(folder_, name_.c_str(), name.c_str()) != 0) throw systemError(errno);
  parts_ = parts;
  name_ = std::move(name);
}

std::optional<Descriptor> tryMakingFile(int folder) {
  // Only such a file tells whether an owner and a group can be kept, so KELVANE_PORTABLE changes nothing here.
#ifdef O_TMPFILE
  Descriptor file(::openat(folder, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (file) return file;
  // A system that does not know the flag takes it for the opening of a folder.
  if (!SystemCalls::isLacking(errno) && errno != EISDIR && errno != ENOENT) return std::nullopt;
#endif
  if (::faccessat(folder, ".", W_OK | X_OK, AT_EACCESS) != 0) return std::nullopt;
  return Descriptor();
}

}  // namespace quorvel
