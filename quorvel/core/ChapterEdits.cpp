#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/QuorvelCore.h"
#include "platform/Unicode.h"
#include "quorvel/core/Lines.h"
#include "quorvel/core/Titles.h"

/// How the edits lay out a script, so that they change no byte that they need not:
/// - What is written anew has one blank line between a heading and its text and one before a heading. What stands there
///   already is never tidied. At its end the script keeps a final line break, or does without one, as it did before.
/// - Text that a client gives is written as it is but for blank lines around it. Line breaks are of the script's own
///   kind: those that an edit adds, and those of a given text that has no CR LF, since most clients know LF only.
/// - What separates chapters, from the line break behind the last line that is not blank, stays at its place when
///   chapters change theirs.
namespace quorvel {
namespace {

std::string_view part(std::string_view text, TextRange range) {
  return text.substr(range.begin, range.end - range.begin);
}

bool isLast(std::size_t chapter, const Script& script) {
  return chapter + 1 == script.headings().size();
}

TextRange chapterRange(std::size_t chapter, const Script& script) {
  const std::size_t end = isLast(chapter, script) ? script.text().size() : script.headings()[chapter + 1].range.begin;
  return {script.headings()[chapter].range.begin, end};
}

std::string repeated(std::string_view text, std::size_t times) {
  std::string result;
  for (std::size_t written = 0; written < times; ++written) result += text;
  return result;
}

/// How many line breaks come behind what is written: before a heading those that make a blank line, at the end of the
/// script one where the script ends in one or is empty.
std::size_t breaksBehind(bool atEnd, std::string_view script) {
  if (!atEnd) return 2;
  return finalBreakSize(script) > 0 || script.size() == byteOrderMarkSize(script) ? 1 : 0;
}

/// What comes behind a heading's title: its line break, the passage below a blank line, and the breaks behind that.
/// Empty, or starts with a line break.
std::string behindTitle(std::string_view passage, std::string_view lineBreak, std::size_t breaks) {
  std::string written;
  if (!passage.empty()) written.append(repeated(lineBreak, 2)).append(passage);
  return written.append(repeated(lineBreak, breaks));
}

/// The given text without the chapter's own heading line, where that is its first line that is not blank: clients send
/// the heading along with the text below it.
std::string_view belowOwnHeading(std::string_view given, std::string_view title) {
  const std::string_view written = passage(given);
  if (!written.starts_with(ScriptHeadings::marker)) return given;
  const std::size_t end = lineEnd(written, 0);
  if (!kelvane::unicode::equivalent(part(written, titleRange(written, {{0, end}, 0})), title)) return given;
  return passage(written.substr(end));
}

}  // namespace

std::optional<TextEdit> ChapterEdits::add(std::string_view title, std::string_view text,
                                          std::optional<std::size_t> before, const Script& script) {
  const std::string written = writableTitle(title);
  if (written.empty()) return std::nullopt;
  const std::string_view all = script.text();
  const std::string_view lineBreak = ownLineBreak(all);
  const std::string given = inLineBreaks(text, lineBreak);
  const std::size_t place = before ? script.headings()[*before].range.begin : all.size();
  std::string chapter = repeated(lineBreak, missingBreaks(all.substr(0, place)));
  chapter += ScriptHeadings::marker;
  chapter += written;
  chapter += behindTitle(passage(given), lineBreak, breaksBehind(!before, all));
  return TextEdit{{place, place}, std::move(chapter)};
}

std::optional<TextEdit> ChapterEdits::rename(std::size_t chapter, std::string_view title, const Script& script) {
  const std::string_view all = script.text();
  const ScriptHeading& heading = script.headings()[chapter];
  const TextRange content = headingContent(all, heading);
  const TextRange present = titleRange(all, heading);
  // A title that is there already stays, even one that begins with the marker.
  if (titleOnOneLine(title) == part(all, present)) return TextEdit{{present.begin, present.begin}, ""};
  std::string written = writableTitle(title);
  if (written == part(all, present)) return TextEdit{{present.begin, present.begin}, ""};

  // The white space around the old title stays, unless it and the new one's ends would join to other characters.
  const std::string line =
      TextEdit{{present.begin - content.begin, present.end - content.begin}, written}.applied(part(all, content));
  const bool fits = !written.empty() && trimmingWhitespace(line) == written;
  return TextEdit{fits ? present : content, std::move(written)};
}

std::optional<TextEdit> ChapterEdits::replaceText(std::size_t chapter, std::string_view text, const Script& script) {
  const std::string_view all = script.text();
  const TextRange heading = script.headings()[chapter].range;
  const TextRange range = {heading.end, chapterRange(chapter, script).end};
  const std::string_view present = part(all, range);
  const std::string_view title = part(all, titleRange(all, script.headings()[chapter]));
  const std::string_view lineBreak = ownLineBreak(all);
  const std::string converted = inLineBreaks(text, lineBreak);
  // Also the text as it is read to a client, without white space at its ends, changes nothing when it is sent back.
  const auto isThere = [&](std::string_view given) {
    return passage(given) == passage(present) || given == trimmingWhitespace(present);
  };
  for (const std::string_view given : {text, std::string_view(converted)}) {
    if (isThere(given) || isThere(belowOwnHeading(given, title))) return TextEdit{{range.begin, range.begin}, ""};
  }

  const std::string_view written = passage(belowOwnHeading(converted, title));
  std::string behind = behindTitle(written, lineBreak, breaksBehind(isLast(chapter, script), all));
  const bool headingHasBreak = finalBreakSize(part(all, heading)) > 0;
  if (headingHasBreak) behind.erase(0, lineBreak.size());
  return TextEdit{range, std::move(behind)};
}

std::optional<TextEdit> ChapterEdits::move(std::size_t chapter, std::size_t to, const Script& script) {
  if (chapter == to) return std::nullopt;
  const std::string_view all = script.text();
  const auto block = [&](std::size_t index) { return withoutBlankLinesAtEnd(part(all, chapterRange(index, script))); };
  const std::size_t first = std::min(chapter, to);
  const std::size_t last = std::max(chapter, to);
  const std::size_t begin = chapterRange(first, script).begin;
  const std::size_t end = chapterRange(last, script).begin + block(last).size();

  std::string moved;
  moved.reserve(end - begin);
  for (std::size_t place = first; place <= last; ++place) {
    moved += block(place == to ? chapter : chapter < to ? place + 1 : place - 1);
    if (place < last) moved += part(all, chapterRange(place, script)).substr(block(place).size());
  }
  return TextEdit{{begin, end}, std::move(moved)};
}

std::optional<TextEdit> ChapterEdits::remove(std::size_t chapter, bool keepingText, const Script& script) {
  const std::string_view all = script.text();
  TextRange range = chapterRange(chapter, script);
  if (keepingText) {
    const TextRange heading = script.headings()[chapter].range;
    range.end = heading.end;
    // A byte-order mark that came to stand at the start of the script would no longer be part of its line, and what
    // follows it could become a heading.
    const bool markWouldLead = range.begin == 0 && byteOrderMarkSize(all.substr(range.end)) > 0;
    if (markWouldLead) range.end -= finalBreakSize(part(all, heading));
  } else if (isLast(chapter, script)) {
    // The text then ends as it did: the blank line that adding the chapter had put above it goes too.
    const auto breakBefore = [&] { return finalBreakSize(all.substr(0, range.begin)); };
    const std::size_t blankLine = breakBefore();
    if (finalBreakSize(all.substr(0, range.begin - blankLine)) > 0) {
      range.begin -= blankLine;
      if (finalBreakSize(all) == 0) range.begin -= breakBefore();
    }
  }
  return TextEdit{range, ""};
}

}  // namespace quorvel
