#include "tests/quorvel/core/ScriptParts.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/QuorvelCore.h"
#include "platform/Unicode.h"
#include "tests/quorvel/core/Texts.h"

namespace quorvel::tests {
namespace {

constexpr std::array<std::string_view, 25> whiteSpace = {
    " ",
    "\t",
    "\n",
    "\v",
    "\f",
    "\r",
    "\xC2\x85",
    "\xC2\xA0",
    "\xE1\x9A\x80",
    "\xE2\x80\x80",
    "\xE2\x80\x81",
    "\xE2\x80\x82",
    "\xE2\x80\x83",
    "\xE2\x80\x84",
    "\xE2\x80\x85",
    "\xE2\x80\x86",
    "\xE2\x80\x87",
    "\xE2\x80\x88",
    "\xE2\x80\x89",
    "\xE2\x80\x8A",
    "\xE2\x80\xA8",
    "\xE2\x80\xA9",
    "\xE2\x80\xAF",
    "\xE2\x81\x9F",
    "\xE3\x80\x80",
};

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines(1);
  for (const char byte : text) {
    lines.back() += byte;
    if (byte == '\n') lines.emplace_back();
  }
  return lines;
}

std::string withSpacesForBreaks(std::string title) {
  for (const std::string lineBreak : {"\r\n", "\n", "\r", "\v", "\f", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"}) {
    for (std::size_t at; (at = title.find(lineBreak)) != std::string::npos;) title.replace(at, lineBreak.size(), " ");
  }
  return title;
}

}  // namespace

std::string ChapterParts::title() const {
  return std::string(trimmingWhitespace(heading.substr(2)));
}

std::string ScriptParts::text() const {
  std::string text = preamble;
  for (const ChapterParts& chapter : chapters) text += chapter.text();
  return text;
}

std::vector<std::string> ScriptParts::titles() const {
  std::vector<std::string> titles;
  for (const ChapterParts& chapter : chapters) titles.push_back(chapter.title());
  return titles;
}

ScriptParts partsOf(std::string_view text) {
  ScriptParts parts;
  if (text.starts_with(byteOrderMark)) {
    parts.preamble = byteOrderMark;
    text.remove_prefix(byteOrderMark.size());
  }
  for (const std::string& line : linesOf(text)) {
    if (line.starts_with("# ")) {
      parts.chapters.push_back({line, ""});
    } else {
      (parts.chapters.empty() ? parts.preamble : parts.chapters.back().body) += line;
    }
  }
  return parts;
}

bool isEmptyLine(std::string_view line) {
  while (!line.empty()) {
    const auto one = std::find_if(whiteSpace.begin(), whiteSpace.end(), [&](auto s) { return line.starts_with(s); });
    if (one == whiteSpace.end()) return false;
    line.remove_prefix(one->size());
  }
  return true;
}

std::string withoutEmptyLinesAtEnd(std::string_view text) {
  std::vector<std::string> lines = linesOf(text);
  while (!lines.empty() && isEmptyLine(lines.back())) lines.pop_back();
  std::string kept;
  for (const std::string& line : lines) kept += line;
  if (kept.ends_with('\n')) kept.pop_back();
  return kept.substr(0, kept.find_last_not_of('\r') + 1);
}

std::string passageOf(std::string_view text) {
  std::string passage;
  for (const std::string& line : linesOf(withoutEmptyLinesAtEnd(text))) {
    if (!passage.empty() || !isEmptyLine(line)) passage += line;
  }
  return passage;
}

std::string ownBreakOf(std::string_view text) {
  std::size_t withReturn = 0, without = 0;
  for (const std::string& line : linesOf(text)) {
    if (line.ends_with('\n')) ++(line.ends_with("\r\n") ? withReturn : without);
  }
  return withReturn > without ? "\r\n" : "\n";
}

std::string inBreaksOf(std::string_view script, std::string_view given) {
  const bool isConverted = given.find("\r\n") == std::string_view::npos && ownBreakOf(script) == "\r\n";
  return isConverted ? withCRLF(given) : std::string(given);
}

std::string belowHeading(std::string_view given, std::string_view title) {
  std::vector<std::string> lines = linesOf(passageOf(given));
  const ScriptParts first = partsOf("\n" + lines.front());  // a byte-order mark here is part of the line
  if (first.chapters.empty() || !kelvane::unicode::equivalent(first.titles().front(), title)) return std::string(given);
  lines.erase(lines.begin());
  std::string below;
  for (const std::string& line : lines) below += line;
  return passageOf(below);
}

bool isChaptersText(std::string_view given, const ChapterParts& chapter, std::string_view script) {
  const std::string converted = inBreaksOf(script, given);
  const std::string ways[] = {std::string(given), converted, belowHeading(given, chapter.title()),
                              belowHeading(converted, chapter.title())};
  return std::any_of(std::begin(ways), std::end(ways), [&](const std::string& way) {
    return passageOf(way) == passageOf(chapter.body) || way == trimmingWhitespace(chapter.body);
  });
}

std::string onOneLine(std::string title) {
  return std::string(trimmingWhitespace(withSpacesForBreaks(std::move(title))));
}

std::string withoutMarkers(std::string title) {
  std::string line = withSpacesForBreaks(std::move(title)) + "|";  // so that only white space at the start is trimmed
  do {
    line = trimmingWhitespace(line);
  } while (line.starts_with("# ") && (line.erase(0, 2), true));
  line.pop_back();
  return std::string(trimmingWhitespace(line));
}

}  // namespace quorvel::tests
