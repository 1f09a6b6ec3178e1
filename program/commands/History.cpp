#include <algorithm>
#include <string>
#include <vector>

#include "platform/Unicode.h"
#include "program/Process.h"
#include "program/ScriptVersion.h"
#include "program/Wording.h"
#include "program/commands/Commands.h"
#include "quorvel/files/SystemReason.h"

namespace kelvane::commands {
namespace {

using Row = std::vector<std::string>;

// Columns of numbers end under each other, the last column is as long as it is.
std::string table(const std::vector<Row>& rows, std::size_t columnsOfNumbers) {
  std::vector<std::size_t> widths;
  for (const Row& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], unicode::characterCount(row[i]));
  }
  std::string text;
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string padding(widths[i] - unicode::characterCount(row[i]), ' ');
      if (i > 0) text.append("  ");
      if (i < columnsOfNumbers) text.append(padding);
      text.append(row[i]);
      if (i >= columnsOfNumbers && i + 1 < row.size()) text.append(padding);
    }
    text.append("\n");
  }
  return text;
}

std::string signedDifference(std::size_t size, std::size_t below) {
  return size < below ? "-" + std::to_string(below - size) : "+" + std::to_string(size - below);
}

void append(const std::vector<quorvel::HistoryEntry>& entries, std::vector<Row>& rows) {
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const quorvel::HistoryEntry& entry = entries[i];
    const bool isOldest = i + 1 == entries.size();
    rows.push_back({entry.version.text(), shown(entry.saved), std::to_string(entry.words), std::to_string(entry.size),
                    isOldest ? "" : signedDifference(entry.size, entries[i + 1].size), onOneLine(entry.label)});
  }
}

int listVersions(const std::string& typed, const OpenedLibrary& opened) {
  const FoundScript script = findScript(typed, opened);
  const std::string name = quorvel::inQuotes(script.identifier);
  const std::vector<quorvel::HistoryOfScript> histories = opened.history->scripts(script.identifier);
  if (histories.empty()) {
    say(name + " has no saved versions yet.");
    return done;
  }
  std::vector<Row> rows = {{"version", "saved", "words", "bytes", "change", "label"}};
  for (const quorvel::HistoryOfScript& each : histories) {
    append(opened.history->entries(script.identifier, each.earlier), rows);
  }
  const auto count = static_cast<std::int64_t>(rows.size()) - 1;
  say(counted(count, "version") + " of " + name + (script.item ? "" : ", which is gone") + ", newest first");
  print("\n" + table(rows, 5));
  return done;
}

int listScripts(const OpenedLibrary& opened) {
  std::vector<Row> rows = {{"versions", "newest", "script"}};
  for (const quorvel::HistoryOfScript& each : opened.history->scripts()) {
    std::string name = onOneLine(each.identifier);
    if (each.earlier > 0) {
      name += " (an earlier script of this name: version " + std::to_string(each.earlier) + ".1 and up)";
    } else if (!isFileAt(each.identifier, opened)) {
      name += " (gone)";
    }
    rows.push_back({std::to_string(each.versions), shown(each.newest), name});
  }
  print(rows.size() == 1 ? std::string("This library has no saved versions yet.\n") : table(rows, 1));
  return done;
}

int run(const Arguments& arguments) {
  const OpenedLibrary opened = openLibraryOf(arguments);
  const std::string script = arguments.word(0);
  return script.empty() ? listScripts(opened) : listVersions(script, opened);
}

constexpr Word words[] = {scriptWord};

}  // namespace

constinit const Command historyCommand = {
    .name = "history",
    .summary = "List the saved versions of a script.",
    .about =
        "Lists the saved versions of a script, newest first. Without a script, lists all scripts that have some. The "
        "script itself may be gone.",
    .usage = "[SCRIPT]",
    .mostWords = 1,
    .words = words,
    .options = onlyLibraryOption,
    .notes =
        "A version keeps its number whatever is added later. \"kelvane show\" and \"kelvane restore\" take it. "
        "\"change\" is how many bytes it has more or less than the version below it. The versions of an earlier "
        "script of the same name have numbers with a dot: 1.1, 1.2 and so on for the first such script.",
    .run = run,
};

}  // namespace kelvane::commands
