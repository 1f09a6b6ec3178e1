#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "program/Process.h"
#include "program/ScriptVersion.h"
#include "program/Terminal.h"
#include "program/Wording.h"
#include "program/changes/TextChanges.h"
#include "program/commands/Commands.h"
#include "quorvel/files/SystemReason.h"

namespace kelvane::commands {
namespace {

constexpr Word words[] = {
    scriptWord,
    {"VERSION", "The version to begin with. Without one: the newest that differs from the present text."},
    {"VERSION", "The version to end with. Without one: the present text."},
};

constexpr std::size_t linesAround = 3;

// How a terminal is told to show text (ECMA-48).
namespace colours {
constexpr std::string_view red = "\x1B[31m";
constexpr std::string_view green = "\x1B[32m";
constexpr std::string_view cyan = "\x1B[36m";
constexpr std::string_view reversed = "\x1B[7m";
constexpr std::string_view notReversed = "\x1B[27m";
constexpr std::string_view none = "\x1B[0m";
}  // namespace colours

std::string shownLine(const TextLine& line, bool isColoured) {
  const std::string_view begin = line.sign == '-' ? colours::red : line.sign == '+' ? colours::green : "";
  const std::string_view open = isColoured ? colours::reversed : line.sign == '-' ? "[-" : "{+";
  const std::string_view close = isColoured ? colours::notReversed : line.sign == '-' ? "-]" : "+}";
  std::string text;
  if (isColoured) text.append(begin);
  text.append(1, line.sign);
  for (const LinePart& part : line.parts) {
    if (part.isChanged) text.append(open);
    text.append(onOneLine(part.text));
    if (part.isChanged) text.append(close);
  }
  if (isColoured && !begin.empty()) text.append(colours::none);
  return text.append(line.isCutOff ? "\n\\ No line break at the end\n" : "\n");
}

std::string shownChanges(const std::vector<TextLine>& lines, bool isColoured) {
  const std::vector<bool> isShown = linesToShow(lines, linesAround);
  std::string text;
  for (std::size_t at = 0; at < lines.size(); ++at) {
    if (!isShown[at]) continue;
    if (at == 0 || !isShown[at - 1]) {
      const std::string heading = "@@ line " + std::to_string(lines[at].number) + " @@";
      text.append(isColoured ? colours::cyan : "").append(heading).append(isColoured ? colours::none : "").append("\n");
    }
    text.append(shownLine(lines[at], isColoured));
  }
  return text;
}

std::optional<quorvel::VersionNumber> versionAt(std::size_t index, const Arguments& arguments) {
  const std::string typed = arguments.word(index);
  if (typed.empty()) return std::nullopt;
  if (const auto number = quorvel::VersionNumber::parse(typed)) return number;
  throw UsageError(quorvel::inQuotes(typed) + " is not a version's number. To list them, run: kelvane history SCRIPT");
}

/// A text to compare, and what it is called.
struct Side {
  std::string name;
  std::string text;
};

Side sideOf(quorvel::VersionNumber version, const FoundScript& script, const OpenedLibrary& opened) {
  return {"version " + version.text(), textOf(version, script, opened)};
}

Side present(const FoundScript& script, const OpenedLibrary& opened) {
  if (script.item) return {"now", opened.library->read(*script.item)};
  throw std::runtime_error(quorvel::inQuotes(script.identifier) +
                           " is gone, so there is no present text. Give two versions. To list them, run: kelvane "
                           "history SCRIPT");
}

// A version that was saved without a change has the present text itself.
std::optional<Side> newestOther(const FoundScript& script, const Side& now, const OpenedLibrary& opened) {
  for (const quorvel::HistoryEntry& entry : opened.history->entries(script.identifier)) {
    Side side = sideOf(entry.version, script, opened);
    if (side.text != now.text) return side;
  }
  return std::nullopt;
}

int compare(const FoundScript& script, const Side& old, const Side& fresh) {
  const std::string heading = onOneLine(script.identifier) + ": " + old.name + " and " + fresh.name;
  if (old.text == fresh.text) {
    print(heading + " are the same.\n");
  } else {
    printPages(heading + "\n" + shownChanges(textChanges(old.text, fresh.text), mayColour()));
  }
  return done;
}

int run(const Arguments& arguments) {
  if (arguments.word(0).empty()) throw UsageError("Say which script, such as \"Talks/Opening\".");
  const auto from = versionAt(1, arguments);
  const auto to = versionAt(2, arguments);
  const OpenedLibrary opened = openLibraryOf(arguments);
  const FoundScript script = findScript(arguments.word(0), opened);
  const Side fresh = to ? sideOf(*to, script, opened) : present(script, opened);
  if (from) return compare(script, sideOf(*from, script, opened), fresh);
  if (const auto old = newestOther(script, fresh, opened)) return compare(script, *old, fresh);
  say(quorvel::inQuotes(script.identifier) + " has no saved version that differs from the present text.");
  return done;
}

}  // namespace

constinit const Command diffCommand = {
    .name = "diff",
    .summary = "Show what changed between two versions.",
    .about =
        "Shows what changed in a script, by lines and by words within them: between two of its versions, or between "
        "one and the present text.",
    .usage = "SCRIPT [VERSION [VERSION]]",
    .mostWords = 3,
    .words = words,
    .options = onlyLibraryOption,
    .notes =
        "At a terminal, removed text is red and added text is green, unless NO_COLOR is set. Elsewhere, changed "
        "words are marked as [-removed-] and {+added+}.",
    .run = run,
};

}  // namespace kelvane::commands
