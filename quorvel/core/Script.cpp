#include <cstddef>
#include <string_view>
#include <utility>

#include "platform/QuorvelCore.h"
#include "platform/Unicode.h"
#include "quorvel/core/Lines.h"

/// A script is analysed once, when it is made: one pass over its lines finds the headings, and the words between two
/// headings are counted when the second one is found. Only where a heading is and how many words come before it is
/// kept; ScriptChapters.cpp derives the chapters from that.
namespace quorvel {

const std::string_view ScriptHeadings::marker = "# ";

Script::Script(std::string text) : text_(std::move(text)) {
  const std::string_view all = text_;
  std::size_t readAloud = byteOrderMarkSize(all);  // where the text after the last heading begins
  const auto countWordsUpTo = [&](std::size_t end) {
    wordCount_ += kelvane::unicode::wordCount(all.substr(readAloud, end - readAloud));
  };
  for (std::size_t line = readAloud; line < all.size();) {
    const std::size_t next = lineEnd(all, line);
    if (all.substr(line).starts_with(ScriptHeadings::marker)) {
      countWordsUpTo(line);
      headings_.push_back({{line, next}, wordCount_});
      readAloud = next;
    }
    line = next;
  }
  countWordsUpTo(all.size());
}

std::string_view trimmingWhitespace(std::string_view text) {
  return kelvane::unicode::trimmingWhiteSpace(text);
}

}  // namespace quorvel
