#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/QuorvelCore.h"
#include "quorvel/core/Titles.h"

namespace quorvel {
namespace {

// The speed of a calm speaker. Starting times are rounded down to whole seconds.
constexpr std::size_t wordsPerMinute = 150;
constexpr std::size_t secondsPerMinute = 60;

}  // namespace

std::vector<ScriptChapter> ScriptChapters::chapters(const Script& script) {
  const std::string_view text = script.text();
  const std::vector<ScriptHeading>& headings = script.headings();
  std::vector<ScriptChapter> chapters;
  chapters.reserve(headings.size());
  for (std::size_t index = 0; index < headings.size(); ++index) {
    const ScriptHeading& heading = headings[index];
    // A chapter ends, in bytes and in words, where the next one begins.
    const bool isLast = index + 1 == headings.size();
    const TextRange title = titleRange(text, heading);

    ScriptChapter chapter;
    chapter.index = index;
    chapter.title = text.substr(title.begin, title.end - title.begin);
    chapter.range = {heading.range.begin, isLast ? text.size() : headings[index + 1].range.begin};
    chapter.words = {heading.wordsBefore, isLast ? script.wordCount() : headings[index + 1].wordsBefore};
    chapter.startSecond = static_cast<std::int64_t>(heading.wordsBefore * secondsPerMinute / wordsPerMinute);
    chapters.push_back(std::move(chapter));
  }
  return chapters;
}

}  // namespace quorvel
