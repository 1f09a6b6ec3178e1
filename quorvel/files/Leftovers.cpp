#include "quorvel/files/Leftovers.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <optional>
#include <unordered_map>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/FolderEntries.h"
#include "quorvel/files/OpenWriters.h"
#include "quorvel/files/TemporaryName.h"
#include "quorvel/files/WholeFile.h"

namespace quorvel {
namespace {

class Sweep {
 public:
  Sweep(const SystemCalls& calls, int folder, const KeepLeftover& keep, const RememberedScripts& remembered)
      : calls_(calls), folder_(folder), keep_(keep), remembered_(remembered) {}

  std::vector<std::uint64_t> run() {
    forEachName([this](std::string_view name) {
      if (const auto leftover = TemporaryName::parse(name)) leftovers_.push_back({std::string(name), *leftover});
    });
    std::vector<std::uint64_t> staying;
    for (const Leftover& leftover : leftovers_) {
      if (!isCleared(leftover)) staying.push_back(leftover.name.script);
    }
    return staying;
  }

 private:
  struct Leftover {
    std::string file;
    TemporaryName name;
  };

  // The descriptor given keeps its place among the entries.
  template <class Take>
  void forEachName(Take take) const {
    FolderEntries entries(calls_, Descriptor(::openat(folder_, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
    if (!entries) return;
    while (const dirent* entry = entries.next()) take(std::string_view(entry->d_name));
  }

  // False when it is a text that once was the script's, and stays.
  bool isCleared(const Leftover& leftover) {
    const Descriptor file(
        ::openat(folder_, leftover.file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status;
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return true;
    const bool wasTheScript = leftover.name.inode && *leftover.name.inode != status.st_ino;
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return !wasTheScript;
    if (wasTheScript && !isKept(file, leftover.name.script, status.st_nlink > 1)) return false;
    calls_.unlink(folder_, leftover.file.c_str());
    return true;
  }

  bool isKept(const Descriptor& file, std::uint64_t script, bool hasAnotherName) {
    if (!waitForWriters(file.get(), std::chrono::milliseconds(0))) return false;
    const std::string& name = nameOf(script);
    if (name.empty()) return hasAnotherName;
    const auto text = readToEnd(file.get(), calls_);
    if (!text) return false;
    if (!text->empty()) keep_(name, *text);
    return true;
  }

  // The name of the script with that hash; empty when nobody knows it.
  const std::string& nameOf(std::uint64_t script) {
    if (names_.empty()) findNames();
    return names_[script];
  }

  void findNames() {
    for (const Leftover& leftover : leftovers_) names_[leftover.name.script];
    std::size_t unknown = names_.size();
    const auto find = [&](std::string_view name) {
      const auto wanted = names_.find(TemporaryName::hash(name));
      if (wanted == names_.end() || !wanted->second.empty()) return;
      wanted->second = name;
      --unknown;
    };
    forEachName(find);
    if (unknown == 0) return;
    for (const std::string& name : remembered_()) find(name);
  }

  const SystemCalls& calls_;
  const int folder_;
  const KeepLeftover& keep_;
  const RememberedScripts& remembered_;
  std::vector<Leftover> leftovers_;
  std::unordered_map<std::uint64_t, std::string> names_;  // by their hashes
};

}  // namespace

std::vector<std::uint64_t> sweepLeftovers(const SystemCalls& calls, int folder, const KeepLeftover& keep,
                                          const RememberedScripts& remembered) {
  return Sweep(calls, folder, keep, remembered).run();
}

}  // namespace quorvel
