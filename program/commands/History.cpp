#include <charconv>
#include <chrono>
#include <filesystem>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Unicode.h"
#include "program/Moments.h"
#include "program/Process.h"
#include "program/ScriptVersion.h"
#include "program/Table.h"
#include "program/Terminal.h"
#include "program/Wording.h"
#include "program/commands/Commands.h"
#include "quorvel/files/LibraryError.h"
#include "quorvel/files/SystemReason.h"
#include "scripttools/Resolution.h"

namespace kelvane::commands {
namespace {

constexpr Option mostOption = {"-n", "At most this many versions.", "N", "a number"};
constexpr Option sinceOption = {
    "--since", "Only what was saved since then, such as \"2 hours\", yesterday or 2026-11-21.", "WHEN", "a time"};
constexpr Option utcOption = {"--utc", "Tell and take times in UTC instead of your time zone."};
constexpr Option options[] = {mostOption, sinceOption, utcOption, libraryOption, jsonOption};

/// What is asked for.
struct Wanted {
  std::size_t most = std::numeric_limits<std::size_t>::max();
  std::chrono::system_clock::time_point since = {};
  TimeZone zone = TimeZone::local;
  bool asJSON = false;
};

Wanted wanted(const Arguments& arguments) {
  Wanted wanted;
  wanted.asJSON = arguments.has(jsonOption);
  if (arguments.has(utcOption)) wanted.zone = TimeZone::utc;
  if (arguments.has(mostOption)) {
    const std::string typed = arguments.value(mostOption);
    const auto [end, error] = std::from_chars(typed.data(), typed.data() + typed.size(), wanted.most);
    if (error != std::errc() || end != typed.data() + typed.size() || wanted.most == 0) {
      throw UsageError(quorvel::inQuotes(typed) + " is not a number of versions. Type -n 10, for example.");
    }
  }
  if (arguments.has(sinceOption)) wanted.since = typedMoment(arguments.value(sinceOption), wanted.zone);
  return wanted;
}

std::string difference(std::size_t now, std::size_t before) {
  return now < before ? "-" + std::to_string(before - now) : "+" + std::to_string(now - before);
}

JSON::Object encoded(const std::string& identifier, const quorvel::HistoryEntry& entry) {
  return {
      {"id", identifier},     {"version", entry.version.text()},           {"saved", encodedMoment(entry.saved)},
      {"label", entry.label}, {"words", static_cast<double>(entry.words)}, {"bytes", static_cast<double>(entry.size)}};
}

void printTable(const std::string& heading, const std::vector<TableRow>& rows, std::size_t columnsOfNumbers) {
  const std::size_t width = outputIsTerminal() ? terminalWidth() : 0;
  printPages(heading + table(rows, columnsOfNumbers, width));
}

/// The text that a script has now, as the newest row of its list.
struct PresentText {
  std::chrono::system_clock::time_point saved;
  std::size_t words = 0;
  std::size_t size = 0;
  bool isReadable = true;
};

std::optional<PresentText> presentText(const FoundScript& script, const OpenedLibrary& opened) {
  if (!script.item) return std::nullopt;
  std::string text;
  bool isReadable = true;
  try {
    text = opened.library->read(*script.item);
  } catch (const quorvel::LibraryError&) {  // its versions are listed all the same
    isReadable = false;
  }
  const auto changed = std::filesystem::last_write_time(pathOf(script.identifier, *opened.library));
  return PresentText{
      std::chrono::time_point_cast<std::chrono::system_clock::duration>(std::chrono::file_clock::to_sys(changed)),
      unicode::wordCount(text), text.size(), isReadable};
}

/// A version in a list, with the one below it, from which its change is counted; null for a script's first.
struct ListedVersion {
  const quorvel::HistoryEntry* entry;
  const quorvel::HistoryEntry* below;
};

using Histories = std::vector<std::vector<quorvel::HistoryEntry>>;

// Those of earlier scripts are last.
std::vector<ListedVersion> listed(const Histories& histories, const Wanted& wanted) {
  std::vector<ListedVersion> versions;
  for (const auto& entries : histories) {
    for (std::size_t i = 0; i < entries.size() && versions.size() < wanted.most; ++i) {
      if (entries[i].saved < wanted.since) continue;
      versions.push_back({&entries[i], i + 1 < entries.size() ? &entries[i + 1] : nullptr});
    }
  }
  return versions;
}

int listVersions(const std::string& typed, const Wanted& wanted, const OpenedLibrary& opened) {
  const FoundScript script = findScript(typed, opened);
  const std::string name = quorvel::inQuotes(script.identifier);
  const auto now = presentText(script, opened);
  Histories histories;
  std::int64_t count = 0;
  for (const quorvel::HistoryOfScript& each : opened.history->scripts(script.identifier)) {
    histories.push_back(opened.history->entries(script.identifier, each.earlier));
    count += static_cast<std::int64_t>(histories.back().size());
  }
  const std::vector<ListedVersion> versions = listed(histories, wanted);
  if (wanted.asJSON) {
    JSON::Array array;
    for (const ListedVersion& each : versions) array.append(encoded(script.identifier, *each.entry));
    print(JSON(array).encoded() + '\n');
    return done;
  }
  if (histories.empty()) {
    say(name + " has no saved versions yet.");
    return done;
  }
  std::vector<TableRow> rows = {{"version", "saved", "words", "bytes", "change", "label"}};
  if (now && !now->isReadable) {
    rows.push_back({"now", "cannot be read"});
  } else if (now) {
    const bool hasVersions = histories.front().front().version.earlier == 0;
    rows.push_back({"now", shown(now->saved, wanted.zone), std::to_string(now->words), std::to_string(now->size),
                    hasVersions ? difference(now->size, histories.front().front().size) : ""});
  }
  for (const auto& [entry, below] : versions) {
    rows.push_back({entry->version.text(), shown(entry->saved, wanted.zone), std::to_string(entry->words),
                    std::to_string(entry->size), below != nullptr ? difference(entry->size, below->size) : "",
                    onOneLine(entry->label)});
  }
  printTable(
      onOneLine(counted(count, "version") + " of " + name + (now ? "" : ", which is gone") + ", newest first") + "\n\n",
      rows, 5);
  return done;
}

int listTimeLine(const Wanted& wanted, const OpenedLibrary& opened) {
  const std::vector<quorvel::TimeLineEntry> entries = opened.history->timeLine(wanted.since, wanted.most);
  if (wanted.asJSON) {
    JSON::Array array;
    for (const auto& each : entries) array.append(encoded(each.identifier, each.entry));
    print(JSON(array).encoded() + '\n');
    return done;
  }
  if (entries.empty()) {
    say(wanted.since == decltype(wanted.since)() ? "This library has no saved versions yet."
                                                 : "Nothing was saved since then.");
    return done;
  }
  std::vector<TableRow> rows = {{"saved", "version", "words", "change", "script", "label"}};
  std::map<std::string, bool> isThere;
  for (const auto& [identifier, entry, wordsBefore] : entries) {
    const auto [known, isNew] = isThere.try_emplace(identifier);
    if (isNew) known->second = isFileAt(identifier, opened);
    const bool isGone = entry.version.earlier > 0 || !known->second;
    rows.push_back({shown(entry.saved, wanted.zone), entry.version.text(), std::to_string(entry.words),
                    wordsBefore ? difference(entry.words, *wordsBefore) : "",
                    onOneLine(identifier) + (isGone ? " (gone)" : ""), onOneLine(entry.label)});
  }
  printTable("", rows, 4);
  return done;
}

int run(const Arguments& arguments) {
  const Wanted what = wanted(arguments);
  const OpenedLibrary opened = openLibraryOf(arguments);
  const std::string script = arguments.word(0);
  return script.empty() ? listTimeLine(what, opened) : listVersions(script, what, opened);
}

constexpr Word words[] = {scriptWord};

}  // namespace

constinit const Command historyCommand = {
    .name = "history",
    .summary = "List what was saved, of a script or of all.",
    .about =
        "Lists the saved versions of a script, newest first, below the text that it has now. Without a script, lists "
        "those of all scripts. A script itself may be gone.",
    .usage = "[SCRIPT]",
    .mostWords = 1,
    .words = words,
    .options = options,
    .notes =
        "A version keeps its number whatever is added later. \"kelvane diff\", \"kelvane show\" and \"kelvane "
        "restore\" take it. \"change\" compares with the version before it: bytes for one script, words for all. The "
        "versions of an earlier script of the same name have numbers with a dot: 1.1, 1.2 and so on for the first such "
        "script.",
    .run = run,
};

}  // namespace kelvane::commands
