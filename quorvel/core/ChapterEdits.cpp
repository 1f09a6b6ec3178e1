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

/// How the edits are computed.
///
/// Each edit replaces one range of the text. What is outside the range cannot change, whatever bytes it holds.
///
/// A chapter is seen as three parts:
///
///     # Title\n         the heading line
///     \nSome text.      the text: through the last line that is not empty, without its line break
///     \n\n              the separator: everything from there to the next heading
///
/// - `add` inserts a heading and a text between two chapters, with the separators that are missing.
/// - `rename` replaces the title within the heading line, and keeps the white space around it.
/// - `replaceText` replaces everything below the heading line.
/// - `move` rotates the first two parts of the chapters between the old and the new index. The separators keep their
///   order, so the script's spacing stays, and a script without a final line break stays without one.
/// - `remove` deletes the three parts, or only the heading line.
///
/// New separators make one empty line. Existing ones are never tidied. At the end of the script, a final line break is
/// written if the script has one, and not otherwise.
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

/// How many line breaks to write after new text: two before a heading, which make an empty line. At the end of the
/// script one if the script ends in a line break or is empty, otherwise none.
std::size_t breaksAfter(bool atEnd, std::string_view script) {
  if (!atEnd) return 2;
  return finalBreakSize(script) > 0 || script.size() == byteOrderMarkSize(script) ? 1 : 0;
}

/// What follows a heading's title: a line break, an empty line and the passage, then `breaks` line breaks. Only the
/// latter for an empty passage. Empty, or starts with a line break.
std::string afterTitle(std::string_view passage, std::string_view lineBreak, std::size_t breaks) {
  std::string written;
  if (!passage.empty()) written.append(repeated(lineBreak, 2)).append(passage);
  return written.append(repeated(lineBreak, breaks));
}

/// The given text without the chapter's own heading line, if that is its first line that is not empty: clients send the
/// heading along with the text below it.
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
  const std::size_t offset = before ? script.headings()[*before].range.begin : all.size();
  std::string chapter = repeated(lineBreak, missingBreaks(all.substr(0, offset)));
  chapter += ScriptHeadings::marker;
  chapter += written;
  chapter += afterTitle(passage(given), lineBreak, breaksAfter(!before, all));
  return TextEdit{{offset, offset}, std::move(chapter)};
}

std::optional<TextEdit> ChapterEdits::rename(std::size_t chapter, std::string_view title, const Script& script) {
  const std::string_view all = script.text();
  const ScriptHeading& heading = script.headings()[chapter];
  const TextRange content = headingContent(all, heading);
  const TextRange present = titleRange(all, heading);
  // The present title given again stays, even if it begins with the marker.
  if (titleOnOneLine(title) == part(all, present)) return TextEdit{{present.begin, present.begin}, ""};
  std::string written = writableTitle(title);
  if (written == part(all, present)) return TextEdit{{present.begin, present.begin}, ""};

  // The white space around the old title stays, unless it would join the ends of the new title into other characters.
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
  // A client reads the text without white space at its ends. Sent back like that, it changes nothing either.
  const auto isPresent = [&](std::string_view given) {
    return passage(given) == passage(present) || given == trimmingWhitespace(present);
  };
  for (const std::string_view given : {text, std::string_view(converted)}) {
    if (isPresent(given) || isPresent(belowOwnHeading(given, title))) return TextEdit{{range.begin, range.begin}, ""};
  }

  const std::string_view written = passage(belowOwnHeading(converted, title));
  std::string below = afterTitle(written, lineBreak, breaksAfter(isLast(chapter, script), all));
  const bool headingHasBreak = finalBreakSize(part(all, heading)) > 0;
  if (headingHasBreak) below.erase(0, lineBreak.size());
  return TextEdit{range, std::move(below)};
}

std::optional<TextEdit> ChapterEdits::move(std::size_t chapter, std::size_t to, const Script& script) {
  if (chapter == to) return std::nullopt;
  const std::string_view all = script.text();
  const auto block = [&](std::size_t index) { return withoutEmptyLinesAtEnd(part(all, chapterRange(index, script))); };
  const std::size_t first = std::min(chapter, to);
  const std::size_t last = std::max(chapter, to);
  const std::size_t begin = chapterRange(first, script).begin;
  const std::size_t end = chapterRange(last, script).begin + block(last).size();

  std::string moved;
  moved.reserve(end - begin);
  for (std::size_t index = first; index <= last; ++index) {
    moved += block(index == to ? chapter : chapter < to ? index + 1 : index - 1);
    if (index < last) moved += part(all, chapterRange(index, script)).substr(block(index).size());
  }
  return TextEdit{{begin, end}, std::move(moved)};
}

std::optional<TextEdit> ChapterEdits::remove(std::size_t chapter, bool keepingText, const Script& script) {
  const std::string_view all = script.text();
  TextRange range = chapterRange(chapter, script);
  if (keepingText) {
    const TextRange heading = script.headings()[chapter].range;
    range.end = heading.end;
    // A byte-order mark that moved to the start of the script would no longer be part of its line, and what follows it
    // could become a heading.
    const bool markWouldLead = range.begin == 0 && byteOrderMarkSize(all.substr(range.end)) > 0;
    if (markWouldLead) range.end -= finalBreakSize(part(all, heading));
  } else if (isLast(chapter, script)) {
    // The empty line that adding the chapter wrote above its heading goes too, so that the text ends as it did before.
    const auto breakBefore = [&] { return finalBreakSize(all.substr(0, range.begin)); };
    const std::size_t emptyLine = breakBefore();
    if (finalBreakSize(all.substr(0, range.begin - emptyLine)) > 0) {
      range.begin -= emptyLine;
      if (finalBreakSize(all) == 0) range.begin -= breakBefore();
    }
  }
  return TextEdit{range, ""};
}

}  // namespace quorvel
