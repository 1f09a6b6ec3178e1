#include "quorvel/files/TemporaryFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <system_error>
#include <utility>

namespace quorvel {
namespace {

void require(bool succeeded) {
  if (!succeeded) throw std::system_error(lastError());
}

std::system_error failed(std::errc error) {
  return std::system_error(std::make_error_code(error));
}

}  // namespace

// Somebody may clear the file away between its creation and the lock; then another one is made.
std::unique_ptr<TemporaryFile> TemporaryFile::make(const SystemCalls& calls, int folder, std::string_view name) {
  constexpr int mostAttempts = 100;  // nobody clears away so many, so it is the disk that cannot do this
  for (int attempt = 0; attempt < mostAttempts; ++attempt) {
    TemporaryName parts = TemporaryName::fresh(name);
    Descriptor file(::openat(folder, parts.text().c_str(), O_RDONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                             S_IRUSR | S_IWUSR));
    require(static_cast<bool>(file));
    std::unique_ptr<TemporaryFile> made(new TemporaryFile(calls, folder, parts, std::move(file)));
    struct stat status;
    require(::fstat(made->file(), &status) == 0);
    made->status_ = status;
    parts.inode = status.st_ino;
    if (::flock(made->file(), LOCK_EX | LOCK_NB) != 0 && lastError() == std::errc::operation_would_block) continue;
    try {
      made->moveTo(parts);
      return made;
    } catch (const std::system_error& error) {
      if (error.code() != std::errc::no_such_file_or_directory) throw;
    }
  }
  throw failed(std::errc::device_or_resource_busy);
}

TemporaryFile::TemporaryFile(const SystemCalls& calls, int folder, const TemporaryName& parts, Descriptor file)
    : calls_(calls), folder_(folder), parts_(parts), name_(parts.text()), file_(std::move(file)) {
}

TemporaryFile::~TemporaryFile() {
  if (name_.empty() || isLeft_ || !status_) return;
  if (identityOf(folder_, name_) == identity()) remove();
}

// A second descriptor writes, and what the disk reports when it is closed is heard. The first is open for reading only:
// whoever asks whether the file has writers does not find ourselves.
void TemporaryFile::write(std::string_view text) const {
  Descriptor writing(::openat(folder_, name_.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  require(static_cast<bool>(writing));
  const auto opened = identityOf(writing.get());
  if (!opened) throw std::system_error(opened.error());
  if (*opened != identity()) throw failed(std::errc::device_or_resource_busy);
  while (!text.empty()) {
    const long written = calls_.write(writing.get(), text.data(), text.size());
    // Each retry is caused by a signal that was handled, so they end when the signals do.
    if (written < 0 && lastError() == std::errc::interrupted) continue;
    require(written >= 0);
    if (written == 0) throw failed(std::errc::io_error);
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  require(::close(writing.release()) == 0);
}

void TemporaryFile::flush() const {
  require(calls_.flush(file()) == 0);
}

void TemporaryFile::renameTo(const std::string& name) {
  if (calls_.rename(folder_, name_.c_str(), name.c_str()) != 0) {
    const std::error_code error = lastError();
    if (!(identityOf(folder_, name) == identity())) throw std::system_error(error);
  }
  name_.clear();
}

bool TemporaryFile::takeFreeName(const std::string& name) {
  if (calls_.renameToFreeName(folder_, name_.c_str(), name.c_str()) == 0) {
    name_.clear();
    return true;
  }
  if (lastError() != std::errc::file_exists && calls_.link(folder_, name_.c_str(), name.c_str()) == 0) {
    remove();
    return true;
  }
  require(lastError() == std::errc::file_exists);
  return false;
}

void TemporaryFile::markReplaced() {
  moveTo(parts_.ofReplacedFile());
}

bool TemporaryFile::remove() noexcept {
  const bool isRemoved = calls_.unlink(folder_, name_.c_str()) == 0;
  name_.clear();
  return isRemoved;
}

void TemporaryFile::moveTo(const TemporaryName& parts) {
  std::string name = parts.text();
  require(calls_.rename(folder_, name_.c_str(), name.c_str()) == 0);
  parts_ = parts;
  name_ = std::move(name);
}

Expected<Descriptor> tryMakingFile([[maybe_unused]] const SystemCalls& calls, int folder) {
#if defined(O_TMPFILE) && !defined(KELVANE_PORTABLE)
  Descriptor file(calls.open(folder, ".", O_TMPFILE | O_WRONLY, S_IRUSR | S_IWUSR));
  if (file) return file;
  // A system that does not know the flag takes it for the opening of a folder.
  const std::error_code error = lastError();
  if (!SystemCalls::isLacking(error) && error != std::errc::is_a_directory &&
      error != std::errc::no_such_file_or_directory)
    return error;
#endif
  if (::faccessat(folder, ".", W_OK | X_OK, AT_EACCESS) != 0) return lastError();
  return Descriptor();
}

}  // namespace quorvel
