#include "quorvel/settings/FileLeftovers.h"

#include <fcntl.h>

#include <chrono>
#include <optional>
#include <string_view>
#include <utility>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/FoundTemporaryFile.h"
#include "quorvel/files/TemporaryName.h"
#include "quorvel/files/WaitForWriters.h"
#include "quorvel/files/WholeFile.h"
#include "quorvel/settings/FileReading.h"
#include "quorvel/settings/FolderTurn.h"

namespace quorvel {
namespace {

using Path = std::filesystem::path;

// A change holds the folder's lock while it takes a text out of a file's place. So whoever holds that lock knows that
// all such files are of dead changes. Files that never were in that place are locked by their writers.
class Search {
 public:
  explicit Search(const FileCopies& copies) : copies_(copies) {}

  template <class Take>
  void run(Take take) {
    const Path& file = copies_.file();
    const Path target = followLinks(file).target;
    look(folderOf(file), file.filename().native(), take);
    std::error_code error;
    if (!std::filesystem::equivalent(folderOf(file), folderOf(target), error) || file.filename() != target.filename())
      look(folderOf(target), target.filename().native(), take);
  }

 private:
  template <class Take>
  void look(const Path& folder, std::string_view name, Take take) {
    const std::vector<std::string> names = temporaryNames(folder, TemporaryName::hash(name));
    if (names.empty()) return;
    const Descriptor turn = takeTurn(folder, std::chrono::milliseconds(0));
    if (!turn) return;
    for (const std::string& temporary : names) {
      const auto found = FoundTemporaryFile::open(turn.get(), temporary);
      if (!found || found->hasLivingWriter) continue;
      if (const auto isElsewhere = judge(*found)) take(turn.get(), FileLeftover{folder / temporary, *isElsewhere});
    }
  }

  std::vector<std::string> temporaryNames(const Path& folder, std::uint64_t hash) const {
    const Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::vector<std::string> names = temporaryFilesIn(copies_.calls(), opened.get()).names;
    std::erase_if(names, [&](const std::string& name) { return TemporaryName::parse(name)->script != hash; });
    return names;
  }

  // Whether a leftover's text is elsewhere. Empty if it cannot be read.
  std::optional<bool> judge(const FoundTemporaryFile& found) const {
    if (found.isAsMade) return true;
    if (!waitForWriters(found.file.get(), std::chrono::milliseconds(0))) return false;
    const auto text = readToEnd(found.file.get());
    if (!text) return std::nullopt;
    return text->empty() || isPresent(*text) || copies_.hold(*text);
  }

  bool isPresent(const std::string& text) const {
    try {
      return readFile(copies_.file()) == text;
    } catch (const FileError&) {
      return false;
    }
  }

  const FileCopies& copies_;
};

}  // namespace

std::vector<FileLeftover> leftoversOf(const FileCopies& copies) {
  std::vector<FileLeftover> found;
  Search(copies).run([&](int, FileLeftover leftover) { found.push_back(std::move(leftover)); });
  return found;
}

std::vector<FileLeftover> sweepLeftoversOf(const FileCopies& copies) {
  std::vector<FileLeftover> staying;
  Search(copies).run([&](int folder, FileLeftover leftover) {
    const bool isGone = leftover.isElsewhere && copies.calls().unlink(folder, leftover.file.filename().c_str()) == 0;
    if (!isGone) staying.push_back(std::move(leftover));
  });
  return staying;
}

}  // namespace quorvel
