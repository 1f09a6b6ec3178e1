#include "quorvel/files/Leftovers.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <unordered_map>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/FolderEntries.h"
#include "quorvel/files/FoundTemporaryFile.h"
#include "quorvel/files/TemporaryName.h"
#include "quorvel/files/WaitForWriters.h"
#include "quorvel/files/WholeFile.h"

namespace quorvel {
namespace {

class Sweep {
 public:
  Sweep(const SystemCalls& calls, int folder, const KeepLeftover& keep, const RememberedScripts& remembered)
      : calls_(calls), folder_(folder), keep_(keep), remembered_(remembered) {}

  std::vector<std::uint64_t> run() {
    std::vector<std::uint64_t> staying;
    for (const std::string& name : leftovers_) {
      if (!isCleared(name)) staying.push_back(scriptOf(name));
    }
    return staying;
  }

 private:
  static std::uint64_t scriptOf(const std::string& leftover) { return TemporaryName::parse(leftover)->script; }

  // False when it is a text that once was the script's, and stays.
  bool isCleared(const std::string& leftover) {
    const auto found = FoundTemporaryFile::open(folder_, leftover);
    if (!found) return true;
    const bool wasTheScript = TemporaryName::parse(leftover)->inode && !found->isAsMade;
    if (found->hasLivingWriter) return !wasTheScript;
    if (wasTheScript && !isKept(found->file, scriptOf(leftover), found->hasAnotherName)) return false;
    calls_.unlink(folder_, leftover.c_str());
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
    for (const std::string& leftover : leftovers_) names_[scriptOf(leftover)];
    std::size_t unknown = names_.size();
    const auto find = [&](std::string_view name) {
      const auto wanted = names_.find(TemporaryName::hash(name));
      if (wanted == names_.end() || !wanted->second.empty()) return;
      wanted->second = name;
      --unknown;
    };
    FolderEntries entries(calls_, folder_);
    while (const FolderEntry* entry = entries.next().value_or(nullptr)) find(entry->name);
    if (unknown == 0) return;
    for (const std::string& name : remembered_()) find(name);
  }

  const SystemCalls& calls_;
  const int folder_;
  const KeepLeftover& keep_;
  const RememberedScripts& remembered_;
  const std::vector<std::string> leftovers_ = temporaryFilesIn(calls_, folder_);
  std::unordered_map<std::uint64_t, std::string> names_;  // by their hashes
};

}  // namespace

std::vector<std::uint64_t> sweepLeftovers(const SystemCalls& calls, int folder, const KeepLeftover& keep,
                                          const RememberedScripts& remembered) {
  return Sweep(calls, folder, keep, remembered).run();
}

}  // namespace quorvel
