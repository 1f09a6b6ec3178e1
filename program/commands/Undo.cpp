#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "program/ChangeLabel.h"
#include "program/Moments.h"
#include "program/Process.h"
#include "program/Restoring.h"
#include "program/ShellWords.h"
#include "program/Wording.h"
#include "program/commands/Commands.h"
#include "quorvel/files/LibraryError.h"
#include "quorvel/files/SystemReason.h"
#include "scripttools/Resolution.h"

/// The latest change is found by the labels of versions. A change that was undone already, or that a person has gone
/// back behind by restoring a version, is not undone again: everything from that version on is passed over. So undoing
/// twice undoes two changes.
///
/// Labels can be imitated by a client's note. So a version is taken for the trace of an undo only if the text that came
/// after it is the one that the undo put back.
namespace kelvane::commands {
namespace {

/// The versions of one script, and its present text.
class Changes {
 public:
  /// `entries` are its versions, newest first.
  Changes(std::string identifier, std::vector<quorvel::HistoryEntry> entries, const OpenedLibrary& opened)
      : identifier_(std::move(identifier)), entries_(std::move(entries)), opened_(opened) {}

  /// The newest version whose text a tool replaced by another one; null if there is none.
  const quorvel::HistoryEntry* latestByTool() const {
    std::int64_t above = std::numeric_limits<std::int64_t>::max();
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      if (entries_[i].version.number >= above) continue;
      const ChangeLabel label = readLabel(entries_[i].label);
      if (label.change.empty()) continue;
      if (label.restored && textAfter(i) == textOf(*label.restored)) {
        above = label.restored->number;
      } else if (textOf(entries_[i].version) != present()) {
        return &entries_[i];
      }
    }
    return nullptr;
  }

 private:
  std::optional<std::string> textOf(quorvel::VersionNumber version) const {
    return opened_.history->text(identifier_, version);
  }

  std::optional<std::string> textAfter(std::size_t index) const {
    return index == 0 ? present() : textOf(entries_[index - 1].version);
  }

  const std::string& present() const {
    if (!present_) present_ = opened_.library->read(*findScript(identifier_, opened_).item);
    return *present_;
  }

  std::string identifier_;
  std::vector<quorvel::HistoryEntry> entries_;
  const OpenedLibrary& opened_;
  mutable std::optional<std::string> present_;
};

/// A change that can be undone.
struct Change {
  std::string identifier;
  quorvel::HistoryEntry entry;
};

std::optional<Change> latestChangeOf(const std::string& identifier, const OpenedLibrary& opened) try {
  if (!isFileAt(identifier, opened)) return std::nullopt;  // a script that is gone is not created again by an undo
  const Changes changes(identifier, opened.history->entries(identifier), opened);
  const quorvel::HistoryEntry* entry = changes.latestByTool();
  return entry != nullptr ? std::optional(Change{identifier, *entry}) : std::nullopt;
} catch (const quorvel::LibraryError& error) {
  throw std::runtime_error(std::string(error.what()) + " To undo a change of another script, run: kelvane undo SCRIPT");
}

// The scripts are asked in the order of their newest versions, so that most are never read: a script cannot have a
// change that is newer than its newest version.
std::optional<Change> latestChange(const OpenedLibrary& opened) {
  std::vector<quorvel::HistoryOfScript> scripts = opened.history->scripts();
  std::sort(scripts.begin(), scripts.end(),
            [](const auto& left, const auto& right) { return left.newest > right.newest; });
  std::optional<Change> latest;
  for (const quorvel::HistoryOfScript& each : scripts) {
    if (latest && each.newest <= latest->entry.saved) break;
    if (each.earlier > 0) continue;
    auto change = latestChangeOf(each.identifier, opened);
    if (change && (!latest || change->entry.saved > latest->entry.saved)) latest = std::move(change);
  }
  return latest;
}

std::optional<Change> changeToUndo(const std::optional<std::string>& script, const OpenedLibrary& opened) {
  return script ? latestChangeOf(*script, opened) : latestChange(opened);
}

// Whether somebody edited the script once the tool had written it, which takes much less time than this.
bool wasEditedAfter(const Change& change, const OpenedLibrary& opened) {
  const auto edited = std::filesystem::last_write_time(pathOf(change.identifier, *opened.library));
  return std::chrono::file_clock::to_sys(edited) > change.entry.saved + std::chrono::seconds(2);
}

int run(const Arguments& arguments) {
  const OpenedLibrary opened = openLibraryOf(arguments);
  std::optional<std::string> onlyIn;
  if (!arguments.word(0).empty()) onlyIn = findScript(arguments.word(0), opened).identifier;
  const auto nothing = [&] {
    const std::string where = onlyIn ? " of " + quorvel::inQuotes(*onlyIn) : std::string();
    complain("There is no change" + where + " to undo. To list what was saved, run: kelvane history");
    return failed;
  };
  if (!changeToUndo(onlyIn, opened)) return nothing();  // and takes no lock
  const auto lock = opened.library->lock();
  const auto change = changeToUndo(onlyIn, opened);
  if (!change) return nothing();
  const bool isEdited = wasEditedAfter(*change, opened);
  const FoundScript script = findScript(change->identifier, opened);
  const quorvel::VersionNumber version = change->entry.version;
  const Restored restored = restore(script, version, undoingLabel(version), opened, *lock);
  const std::string name = quorvel::inQuotes(change->identifier);
  say("Undone: the change \"" + std::string(readLabel(change->entry.label).change) + "\" of " + name + ", made " +
      shown(change->entry.saved) + ".");
  say("The text is version " + version.text() + " again.");
  if (!restored.saved) {
    say("What it replaced was empty.");
    return done;
  }
  const std::string saved = restored.saved->text();
  if (isEdited) say("What was edited after that change is undone, too. It is in version " + saved + ".");
  say("To take this back, run: " + restoreCommandFor(change->identifier, saved, opened));
  return done;
}

constexpr Word words[] = {{"SCRIPT", "Only a change of this script. The \".md\" is optional."}};

}  // namespace

constinit const Command undoCommand = {
    .name = "undo",
    .summary = "Undo the latest change by an AI client.",
    .about =
        "Puts back the text that the latest change by an AI client replaced, in the whole library or in one script. "
        "The "
        "text that it replaces is saved first, so this can be taken back. The next undo goes one change further back.",
    .usage = "[SCRIPT]",
    .mostWords = 1,
    .words = words,
    .options = onlyLibraryOption,
    .notes =
        "A script that was created, renamed or deleted stays as it is, and so does a text that was put into an empty "
        "script, because there was nothing to save. What a person edited after the change is undone with it, and "
        "saved. "
        "The exit status is 1 if there is nothing to undo.",
    .run = run,
};

}  // namespace kelvane::commands
