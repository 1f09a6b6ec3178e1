#include "quorvel/library/Leftovers.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <vector>

#include "quorvel/library/Descriptor.h"
#include "quorvel/library/TemporaryName.h"
#include "quorvel/library/WholeFile.h"

namespace quorvel {
namespace {

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

// Hands over each entry's name. The descriptor given keeps its place among the entries.
template <class Take>
void forEachName(int folder, Take take) {
  Descriptor opened(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened) return;
  const std::unique_ptr<DIR, CloseFolder> stream(::fdopendir(opened.get()));
  if (!stream) return;
  opened.release();
  while (const dirent* entry = ::readdir(stream.get())) take(std::string_view(entry->d_name));
}

std::optional<std::string> scriptWithHash(int folder, std::uint64_t hash) {
  std::optional<std::string> found;
  forEachName(folder, [&](std::string_view name) {
    if (TemporaryName::hash(name) == hash) found = name;
  });
  return found;
}

void sweep(const SystemCalls& calls, int folder, const std::string& leftover, const TemporaryName& name,
           const KeepLeftover& keep) {
  const Descriptor file(::openat(folder, leftover.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status;
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return;
  if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return;
  if (name.inode && *name.inode != status.st_ino) {
    const auto script = scriptWithHash(folder, name.script);
    const auto text = readToEnd(file.get());
    if (!script || !text) return;
    if (!text->empty()) keep(*script, *text);
  }
  calls.unlink(folder, leftover.c_str());
}

}  // namespace

void sweepLeftovers(const SystemCalls& calls, int folder, const KeepLeftover& keep) {
  std::vector<std::string> leftovers;
  forEachName(folder, [&](std::string_view name) {
    if (name.starts_with(TemporaryName::prefix)) leftovers.emplace_back(name);
  });
  for (const std::string& leftover : leftovers) {
    if (const auto name = TemporaryName::parse(leftover)) sweep(calls, folder, leftover, *name, keep);
  }
}

}  // namespace quorvel
