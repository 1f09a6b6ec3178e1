#include "tests/quorvel/core/ScriptParts.h"

#include <algorithm>
#include <array>

#include "platform/QuorvelCore.h"
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

bool isBlank(std::string_view line) {
  while (!line.empty()) {
    const auto one = std::find_if(whiteSpace.begin(), whiteSpace.end(), [&](auto s) { return line.starts_with(s); });
    if (one == whiteSpace.end()) return false;
    line.remove_prefix(one->size());
  }
  return true;
}

std::string withoutBlankLinesAtEnd(std::string_view text) {
  std::vector<std::string> lines = linesOf(text);
  while (!lines.empty() && isBlank(lines.back())) lines.pop_back();
  std::string kept;
  for (const std::string& line : lines) kept += line;
  if (kept.ends_with('\n')) kept.pop_back();
  return kept.substr(0, kept.find_last_not_of('\r') + 1);
}

std::string passageOf(std::string_view text) {
  std::string passage;
  for (const std::string& line : linesOf(withoutBlankLinesAtEnd(text))) {
    if (!passage.empty() || !isBlank(line)) passage += line;
  }
  return passage;
}

}  // namespace quorvel::tests
