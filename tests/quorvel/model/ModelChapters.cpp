#include "tests/quorvel/model/ModelChapters.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/QuorvelCore.h"
#include "platform/Unicode.h"
#include "protocol/JSON.h"
#include "tests/quorvel/core/ScriptParts.h"
#include "tests/quorvel/core/Texts.h"

namespace quorvel::tests {
namespace {

std::string finalBreak(const std::string& text) {
  return text.ends_with("\r\n") ? "\r\n" : text.ends_with('\n') ? "\n" : "";
}

std::string withoutFinalBreak(const std::string& text) {
  return text.substr(0, text.size() - finalBreak(text).size());
}

/// The line breaks that a text lacks for a blank line to stand at its end.
std::string missingBreaks(const std::string& above, const std::string& lineBreak) {
  if (above.empty() || above == byteOrderMark) return "";
  std::string rest = withoutFinalBreak(above);
  if (rest.starts_with(byteOrderMark)) rest.erase(0, byteOrderMark.size());
  const std::string_view lastLine = std::string_view(rest).substr(rest.find_last_of('\n') + 1);
  return repeated(lineBreak, (finalBreak(above).empty() ? 1u : 0u) + (isEmptyLine(lastLine) ? 0u : 1u));
}

/// What stands behind a new title.
std::string behindTitle(const std::string& given, bool atEnd, const std::string& script) {
  const std::string lineBreak = ownBreakOf(script);
  const std::string passage = passageOf(given);
  const bool endsInBreak = !finalBreak(script).empty() || script.empty() || script == byteOrderMark;
  const std::string body = passage.empty() ? "" : lineBreak + lineBreak + passage;
  return body + (!atEnd ? lineBreak + lineBreak : endsInBreak ? lineBreak : "");
}

std::string clock(std::size_t seconds) {
  const auto two = [](std::size_t number) { return (number < 10 ? "0" : "") + std::to_string(number); };
  const std::size_t hours = seconds / 3600, minutes = seconds / 60 % 60;
  return (hours > 0 ? std::to_string(hours) + ":" + two(minutes) : std::to_string(minutes)) + ":" + two(seconds % 60);
}

std::string readAloud(const std::string& preamble) {
  return preamble.starts_with(byteOrderMark) ? preamble.substr(byteOrderMark.size()) : preamble;
}

}  // namespace

std::optional<std::string> withChapterAdded(const std::string& text, const std::string& title, const std::string& given,
                                            std::optional<std::size_t> before, const std::string& old) {
  const std::string written = withoutMarkers(title);
  if (written.empty()) return std::nullopt;
  const ScriptParts parts = partsOf(text);
  std::string above = parts.preamble, below;
  for (std::size_t index = 0; index < parts.chapters.size(); ++index) {
    (before && index >= *before ? below : above) += parts.chapters[index].text();
  }
  return above + missingBreaks(above, ownBreakOf(old)) + "# " + written +
         behindTitle(inBreaksOf(old, given), !before, old) + below;
}

std::string withChapterRenamed(const std::string& text, std::size_t chapter, const std::string& title) {
  ScriptParts parts = partsOf(text);
  std::string& heading = parts.chapters[chapter].heading;
  const std::string line = withoutFinalBreak(heading).substr(2);
  const std::string old(trimmingWhitespace(line)), written = withoutMarkers(title);
  if (written == old || onOneLine(title) == old) return text;
  std::string renamed = line;
  renamed.replace(old.empty() ? 0 : line.find(old), old.size(), written);
  const bool keepsSpaceAround = !written.empty() && trimmingWhitespace(renamed) == written;
  heading = "# " + (keepsSpaceAround ? renamed : written) + finalBreak(heading);
  return parts.text();
}

std::string withChapterRewritten(const std::string& text, std::size_t chapter, const std::string& given) {
  ScriptParts parts = partsOf(text);
  const std::string title = parts.chapters[chapter].title();
  auto& [heading, body] = parts.chapters[chapter];
  if (isChaptersText(given, parts.chapters[chapter], text)) return text;
  const std::string taken = belowHeading(inBreaksOf(text, given), title);
  heading = withoutFinalBreak(heading);
  std::string behind = behindTitle(taken, chapter + 1 == parts.chapters.size(), text);
  const std::string present = finalBreak(partsOf(text).chapters[chapter].heading);
  if (!present.empty()) behind = present + behind.substr(std::min(behind.size(), ownBreakOf(text).size()));
  body = behind;
  return parts.text();
}

std::string withChapterMoved(const std::string& text, std::size_t chapter, std::size_t to) {
  const ScriptParts parts = partsOf(text);
  std::vector<std::string> blocks, separators;
  for (const ChapterParts& part : parts.chapters) {
    blocks.push_back(withoutEmptyLinesAtEnd(part.text()));
    separators.push_back(part.text().substr(blocks.back().size()));
  }
  const std::string moved = blocks[chapter];
  blocks.erase(blocks.begin() + static_cast<std::ptrdiff_t>(chapter));
  blocks.insert(blocks.begin() + static_cast<std::ptrdiff_t>(to), moved);
  std::string result = parts.preamble;
  for (std::size_t index = 0; index < blocks.size(); ++index) result += blocks[index] + separators[index];
  return result;
}

std::string withChapterRemoved(const std::string& text, std::size_t chapter, bool keepingText) {
  ScriptParts parts = partsOf(text);
  const ChapterParts removed = parts.chapters[chapter];
  parts.chapters.erase(parts.chapters.begin() + static_cast<std::ptrdiff_t>(chapter));
  if (keepingText) {
    std::string& above = chapter == 0 ? parts.preamble : parts.chapters[chapter - 1].body;
    const bool markWouldLead = chapter == 0 && above.empty() && removed.body.starts_with(byteOrderMark);
    above += (markWouldLead ? finalBreak(removed.heading) : "") + removed.body;
    return parts.text();
  }
  const std::string rest = parts.text();
  const std::string withoutBlankLine = withoutFinalBreak(rest);
  if (chapter < parts.chapters.size() || finalBreak(withoutBlankLine).empty()) return rest;
  return finalBreak(text).empty() ? withoutFinalBreak(withoutBlankLine) : withoutBlankLine;
}

std::string withTextAppended(const std::string& text, const std::string& added) {
  return text + missingBreaks(text, ownBreakOf(text)) + inBreaksOf(text, added);
}

std::size_t chapterCount(const std::string& text) {
  return partsOf(text).chapters.size();
}

bool hasWords(const std::string& text) {
  const ScriptParts parts = partsOf(text);
  std::size_t words = kelvane::unicode::wordCount(readAloud(parts.preamble));
  for (const ChapterParts& part : parts.chapters) words += kelvane::unicode::wordCount(part.body);
  return words > 0;
}

std::string chapterListing(const std::string& text) {
  const ScriptParts parts = partsOf(text);
  std::size_t wordsBefore = kelvane::unicode::wordCount(readAloud(parts.preamble));
  std::string listing;
  for (std::size_t index = 0; index < parts.chapters.size(); ++index) {
    const ChapterParts& part = parts.chapters[index];
    const std::size_t words = kelvane::unicode::wordCount(part.body);
    listing += std::string(index == 0 ? "" : ",") + "{\"chapter\":" + std::to_string(index + 1) + ",\"starts_at\":\"" +
               clock(wordsBefore * 2 / 5) + "\",\"title\":" + kelvane::JSON(part.title()).encoded() +
               ",\"words\":" + std::to_string(words) + "}";
    wordsBefore += words;
  }
  return "[" + listing + "]";
}

std::string chapterText(const std::string& text, std::size_t chapter) {
  return std::string(trimmingWhitespace(partsOf(text).chapters[chapter].body));
}

}  // namespace quorvel::tests
