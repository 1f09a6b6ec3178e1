#include "quorvel/files/Leftovers.h"

#include <sys/stat.h>

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

  SweptLeftovers run() {
    SweptLeftovers swept{{}, leftovers_.areAll};
    for (const std::string& name : leftovers_.names) {
      const Left left = clear(name);
      if (left == Left::text) swept.scripts.push_back(scriptOf(name));
      if (left != Left::nothing) swept.areGone = false;
    }
    return swept;
  }

 private:
  enum class Left { nothing, file, text };  // a text once was the script's

  static std::uint64_t scriptOf(const std::string& leftover) { return TemporaryName::parse(leftover)->script; }

  Left clear(const std::string& leftover) {
    const auto found = FoundTemporaryFile::open(folder_, leftover);
    if (!found) return FoundTemporaryFile::isNone(found.error()) ? Left::nothing : Left::file;
    const bool wasTheScript = TemporaryName::parse(leftover)->inode && !found->isAsMade;
    if (found->hasLivingWriter) return wasTheScript ? Left::text : Left::file;
    if (wasTheScript && !isKept(found->file, scriptOf(leftover), found->hasAnotherName)) return Left::text;
    const bool isGone =
        calls_.unlink(folder_, leftover.c_str()) == 0 || lastError() == std::errc::no_such_file_or_directory;
    return isGone ? Left::nothing : Left::file;
  }

  bool isKept(const Descriptor& file, std::uint64_t script, bool hasAnotherName) {
    if (!waitForWriters(file.get(), std::chrono::milliseconds(0))) return false;
    const std::string& name = nameOf(script);
    if (name.empty() && hasAnotherName) return true;
    if (name.empty()) return isEmpty(file);
    const auto text = readToEnd(file.get(), calls_);
    if (!text || text->empty()) return text.has_value();
    keep_(name, *text);
    return true;
  }

  static bool isEmpty(const Descriptor& file) {
    struct stat status;
    return ::fstat(file.get(), &status) == 0 && status.st_size == 0;
  }

  // The name of the script with that hash; empty when nobody knows it.
  const std::string& nameOf(std::uint64_t script) {
    if (names_.empty()) findNames();
    return names_[script];
  }

  void findNames() {
    for (const std::string& leftover : leftovers_.names) names_[scriptOf(leftover)];
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
  const TemporaryFileNames leftovers_ = temporaryFilesIn(calls_, folder_);
  std::unordered_map<std::uint64_t, std::string> names_;  // by their hashes
};

}  // namespace

SweptLeftovers sweepLeftovers(const SystemCalls& calls, int folder, const KeepLeftover& keep,
                              const RememberedScripts& remembered) {
  return Sweep(calls, folder, keep, remembered).run();
}

}  // namespace quorvel
