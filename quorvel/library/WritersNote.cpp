#include "quorvel/library/WritersNote.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string_view>
#include <utility>

// Three rules make every moment right at which a process can die, or the disk fail.
//
// A folder is added behind what is there, and taken off by making the file as short as before. Neither changes what is
// noted besides. A folder that was added in part ends without a NUL, which makes the note void.
//
// Anything else makes the file empty first, and writes the name of the run last. So a note is never mixed from two.
//
// What cannot be written is not needed if the file can be made empty instead, which a full disk does not prevent.

namespace quorvel {
namespace {

using Folders = std::optional<std::vector<PathBeneath>>;

// Longer notes are not written. There are as many folders in one as processes that died, at most.
constexpr std::size_t longestNote = std::size_t{16} << 10;

// Linux names each run of the system at random. Elsewhere this process gets a name of its own, because the system runs
// for as long as the process does. Empty if there is neither.
std::string nameOfThisRun() {
  char name[64];
  const Descriptor file(::open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
  if (file) {
    const long size = ::read(file.get(), name, sizeof name);
    const std::string_view read(name, size > 0 ? static_cast<std::size_t>(size) : 0);
    if (read.ends_with('\n')) return std::string(read.substr(0, read.size() - 1));
  }
  std::uint64_t number = 0;
  if (::getentropy(&number, sizeof number) != 0) return {};
  return std::string(name, std::to_chars(name, name + sizeof name, number, 16).ptr);
}

const std::string& thisRun() {
  static const std::string name = nameOfThisRun();
  return name;
}

std::string entry(std::string_view text) {
  return std::string(text).append(1, '\0');
}

Folders parse(std::string_view note) {
  const std::string run = entry(thisRun());
  if (run.size() == 1 || !note.starts_with(run) || !note.ends_with('\0')) return std::nullopt;
  std::vector<PathBeneath> folders;
  for (note.remove_prefix(run.size()); !note.empty();) {
    const std::string_view path = note.substr(0, note.find('\0'));
    auto folder = PathBeneath::of(path);
    if (!folder || folder->string() != path) return std::nullopt;
    folders.push_back(*std::move(folder));
    note.remove_prefix(path.size() + 1);
  }
  return folders;
}

// Whether a writer has written that, whole or in part. Before the name of the run is written, zeros are in its place;
// a power failure may leave such, too. Anything else is somebody's file that was put there.
bool isOurs(std::string_view bytes) {
  if (bytes.empty()) return true;
  const std::size_t end = bytes.find_first_not_of("0123456789abcdef-");
  if (end > 0) return end != std::string_view::npos && bytes[end] == '\0';
  const std::string_view place = bytes.substr(0, thisRun().size() + 1);
  return bytes.size() <= longestNote && place.find_first_not_of('\0') == std::string_view::npos;
}

// What this thread holds: one for each library that it has locked.
std::vector<std::weak_ptr<WritersNote>>& heldHere() {
  thread_local std::vector<std::weak_ptr<WritersNote>> held;
  std::erase_if(held, [](const auto& each) { return each.expired(); });
  return held;
}

}  // namespace

std::shared_ptr<WritersNote> WritersNote::hold(const SystemCalls& calls, std::shared_ptr<const OpenedRoot> root,
                                               Descriptor lockFile, bool mayBeWritten) {
  auto note = std::make_shared<WritersNote>(calls, std::move(root), std::move(lockFile));
  if (mayBeWritten) heldHere().push_back(note);
  return note;
}

std::shared_ptr<WritersNote> WritersNote::of(const OpenedRoot& root) {
  for (const std::weak_ptr<WritersNote>& each : heldHere()) {
    auto note = each.lock();
    if (note && note->root_.get() == &root) return note->isNote() ? note : nullptr;
  }
  return nullptr;
}

bool WritersNote::isNote() {
  folders();
  return isNote_;
}

const Folders& WritersNote::folders() {
  if (std::exchange(isRead_, true)) return folders_;
  char bytes[longestNote + 1];
  const long size = calls_.readAt(file_.get(), bytes, sizeof bytes, 0);
  if (size < 0) {
    unreadable_ = lastError();
    return folders_;
  }
  const std::string_view note(bytes, static_cast<std::size_t>(size));
  isNote_ = isOurs(note);
  if (note.size() > longestNote) return folders_;
  folders_ = parse(note);
  size_ = size;
  return folders_;
}

void WritersNote::replace(const Folders& folders) {
  if (this->folders() == folders || unreadable_ || !forget() || !folders) return;
  std::string paths;
  for (const PathBeneath& folder : *folders) paths += entry(folder.string());
  const std::string run = entry(thisRun());
  size_ = static_cast<off_t>(run.size());
  if (append(paths) && write(run, 0)) {
    folders_ = folders;
  } else {
    forget();
  }
}

std::error_code WritersNote::begin(const PathBeneath& folder) {
  folders();
  sizeBefore_.reset();
  if (unreadable_) return unreadable_;
  if (!folders_ || std::find(folders_->begin(), folders_->end(), folder) != folders_->end()) return {};
  const off_t before = size_;
  if (!append(entry(folder.string()))) return forget() ? std::error_code() : lastError();
  folders_->push_back(folder);
  sizeBefore_ = before;
  return {};
}

void WritersNote::end() noexcept {
  if (!sizeBefore_ || calls_.truncate(file_.get(), *sizeBefore_) != 0) return;
  size_ = *std::exchange(sizeBefore_, std::nullopt);
  folders_->pop_back();
}

std::error_code WritersNote::forgetIfIn(const PathBeneath& folder) {
  folders();
  if (unreadable_) return unreadable_;
  const std::string below = folder.string() + '/';
  const auto isIn = [&](const PathBeneath& path) { return path == folder || path.string().starts_with(below); };
  if (!folders_ || std::none_of(folders_->begin(), folders_->end(), isIn)) return {};
  return forget() ? std::error_code() : lastError();
}

// From now on nothing is known.
bool WritersNote::forget() noexcept {
  if (calls_.truncate(file_.get(), 0) != 0) return false;
  folders_.reset();
  sizeBefore_.reset();
  size_ = 0;
  return true;
}

bool WritersNote::append(const std::string& bytes) noexcept {
  if (static_cast<std::size_t>(size_) + bytes.size() > longestNote) return false;
  if (!write(bytes, size_)) return false;
  size_ += static_cast<off_t>(bytes.size());
  return true;
}

bool WritersNote::write(const std::string& bytes, off_t at) noexcept {
  return calls_.writeAt(file_.get(), bytes.data(), bytes.size(), at) == static_cast<long>(bytes.size());
}

}  // namespace quorvel
