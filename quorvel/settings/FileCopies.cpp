#include "quorvel/settings/FileCopies.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <system_error>
#include <utility>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/SystemCalls.h"
#include "quorvel/files/SystemReason.h"
#include "quorvel/files/TemporaryFile.h"
#include "quorvel/files/WholeFile.h"
#include "quorvel/settings/FileReading.h"

namespace quorvel {
namespace {

Descriptor openFolder(const std::filesystem::path& folder) {
  return Descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

bool isCopyOf(int folder, const std::string& name, const std::string& text) {
  const auto file = openToRead(folder, name);
  struct stat status;
  if (!file || ::fstat(file->get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  if (status.st_uid != ::geteuid() || (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) return false;
  return static_cast<std::size_t>(status.st_size) == text.size() && readToEnd(file->get()) == text;
}

}  // namespace

FileCopies::FileCopies(std::filesystem::path file, std::string_view ending)
    : FileCopies(std::move(file), ending, [](const std::string&) { return true; }) {
}

FileCopies::FileCopies(std::filesystem::path file, std::string_view ending, IsWanted isWanted, const SystemCalls& calls)
    : file_(std::move(file)),
      firstName_(file_.filename().native() + std::string(ending)),
      isWanted_(std::move(isWanted)),
      calls_(calls) {
}

void FileCopies::save(const std::string& text) {
  last_.reset();
  made_.reset();
  if (!isWanted_(text)) return;
  const Descriptor folder = openFolder(folderOf(file_));
  if (!folder) throw notWritten(firstName_, lastError());
  Found found = find(folder.get(), text);
  try {
    if (!found.isThere) make(text, folder.get(), found);
  } catch (const std::system_error& error) {
    throw notWritten(found.name, error.code());
  }
  last_ = pathOf(found.name);
  if (calls_.flushFolder(folder.get()) == 0) return;
  const std::error_code error = lastError();
  takeBack();
  throw notWritten(found.name, error);
}

void FileCopies::make(const std::string& text, int folder, Found& found) {
  const auto copy = TemporaryFile::make(calls_, folder, file_.filename().native());
  copy->write(text);
  copy->flush();
  made_ = copy->identity();
  // Other programs may take a name between the look and the naming; a disk may not know what it has.
  constexpr int mostAttempts = 100;
  for (int attempt = 0; attempt < mostAttempts; ++attempt) {
    if (copy->takeFreeName(found.name)) return;
    found = find(folder, text);
    if (found.isThere) return;  // another change of ours saved the same text at the same moment
  }
  throw FileError(inQuotes(pathOf(firstName_).native()) +
                  " could not be written, because each name that was free was taken when it was to be used. Check the "
                  "disk and try again.");
}

void FileCopies::trySaving(const std::string& text) const {
  if (!isWanted_(text)) return;
  const Descriptor folder = openFolder(folderOf(file_));
  if (!folder) throw notWritten(firstName_, lastError());
  const Found found = find(folder.get(), text);
  if (found.isThere) return;
  if (const auto tried = tryMakingFile(calls_, folder.get()); !tried) throw notWritten(found.name, tried.error());
}

void FileCopies::takeBack() noexcept {
  if (made_ && last_ && identityOf(AT_FDCWD, last_->native()) == *made_) calls_.unlink(AT_FDCWD, last_->c_str());
  made_.reset();
  last_.reset();
}

bool FileCopies::hold(const std::string& text) const {
  try {
    const Descriptor folder = openFolder(folderOf(file_));
    return folder && find(folder.get(), text).isThere;
  } catch (const FileError&) {
    return false;
  }
}

FileCopies::Found FileCopies::find(int folder, const std::string& text) const {
  constexpr int mostCopies = 10'000;  // more than a person makes, and few enough to look at
  std::string name = firstName_;
  for (int number = 2; number <= mostCopies; ++number) {
    if (isCopyOf(folder, name, text)) return {name, true};
    if (const std::error_code error = identityOf(folder, name).error()) {
      if (error == std::errc::no_such_file_or_directory) return {name, false};
      throw notWritten(name, error);
    }
    name = firstName_ + "-" + std::to_string(number);
  }
  throw FileError("There are too many copies like " + inQuotes(pathOf(firstName_).native()) +
                  ". Move those that you no longer need away and try again.");
}

std::filesystem::path FileCopies::pathOf(const std::string& name) const {
  return file_.parent_path() / name;
}

FileError FileCopies::notWritten(const std::string& name, const std::error_code& error) const {
  return fileError(pathOf(name), "written", error);
}

}  // namespace quorvel
