#include <limits>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "program/ChangeLabel.h"
#include "program/Moments.h"
#include "program/Process.h"
#include "program/Restoring.h"
#include "program/Wording.h"
#include "program/commands/Commands.h"
#include "quorvel/files/SystemReason.h"
#include "scripttools/Resolution.h"

/// The latest change is found by the labels of versions, newest first. A change that was undone already, or that a
/// person has gone back behind by restoring a version, is not undone again: everything from that version on is passed
/// over. So undoing twice undoes two changes.
namespace kelvane::commands {
namespace {

/// Passes over what was undone, script by script.
class Candidates {
 public:
  /// Whether a tool replaced the text of this version, and that change still counts. To be asked for the versions of a
  /// script from the newest to the oldest.
  bool isChangeByTool(const std::string& identifier, const quorvel::HistoryEntry& entry) {
    std::int64_t& above = oldestUndone_.try_emplace({identifier, entry.version.earlier}, most).first->second;
    if (entry.version.number >= above) return false;
    const ChangeLabel label = readLabel(entry.label);
    if (label.restored && label.restored->earlier == entry.version.earlier) above = label.restored->number;
    return !label.change.empty() && !label.restored;
  }

 private:
  static constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();

  std::map<std::pair<std::string, std::int64_t>, std::int64_t> oldestUndone_;
};

// Whether the script has another text now. A script that is gone has none, and is not created again by an undo.
bool differsFromPresent(const std::string& identifier, quorvel::VersionNumber version, const OpenedLibrary& opened) {
  if (!isFileAt(identifier, opened)) return false;
  const FoundScript script = findScript(identifier, opened);
  return script.item && opened.library->read(*script.item) != textOf(version, script, opened);
}

std::optional<quorvel::TimeLineEntry> latestChange(const std::optional<std::string>& onlyIn,
                                                   const OpenedLibrary& opened) {
  Candidates candidates;
  constexpr std::size_t all = std::numeric_limits<std::size_t>::max();
  for (quorvel::TimeLineEntry& each : opened.history->timeLine({}, all)) {
    if (each.entry.version.earlier > 0 || (onlyIn && each.identifier != *onlyIn)) continue;
    if (!candidates.isChangeByTool(each.identifier, each.entry)) continue;
    if (differsFromPresent(each.identifier, each.entry.version, opened)) return std::move(each);
  }
  return std::nullopt;
}

int run(const Arguments& arguments) {
  const OpenedLibrary opened = openLibraryOf(arguments);
  const auto lock = opened.library->lock();
  std::optional<std::string> onlyIn;
  if (!arguments.word(0).empty()) onlyIn = findScript(arguments.word(0), opened).identifier;
  const auto change = latestChange(onlyIn, opened);
  if (!change) {
    const std::string where = onlyIn ? " of " + quorvel::inQuotes(*onlyIn) : std::string();
    say("There is no change" + where + " to undo. To list what was saved, run: kelvane history");
    return failed;
  }
  const quorvel::HistoryEntry& entry = change->entry;
  const FoundScript script = findScript(change->identifier, opened);
  const Restored restored = restore(script, entry.version, undoingLabel(entry.version), opened, *lock);
  const std::string name = quorvel::inQuotes(change->identifier);
  say("Undone: the change \"" + std::string(readLabel(entry.label).change) + "\" of " + name + ", made " +
      shown(entry.saved) + ".");
  say("The text is version " + entry.version.text() + " again.");
  if (restored.saved) {
    say("To take this back, run: kelvane restore " + name + " " + restored.saved->text());
  } else {
    say("What it replaced was empty.");
  }
  return done;
}

constexpr Word words[] = {{"SCRIPT", "Only a change of this script. The \".md\" is optional."}};

}  // namespace

constinit const Command undoCommand = {
    .name = "undo",
    .summary = "Undo the latest change by a tool.",
    .about =
        "Puts back the text that the latest change by a tool replaced, in the whole library or in one script. The text "
        "that it replaces is saved first, so this can be taken back. The next undo goes one change further back.",
    .usage = "[SCRIPT]",
    .mostWords = 1,
    .words = words,
    .options = onlyLibraryOption,
    .notes =
        "A script that was created, renamed or deleted stays as it is. The exit status is 1 if there is nothing "
        "to undo.",
    .run = run,
};

}  // namespace kelvane::commands
