#include "program/changes/TextChanges.h"

#include <algorithm>
#include <iterator>

#include "program/changes/SequenceDiff.h"

/// Lines are compared first. Where lines go and others come in their place, the words of both are compared as two
/// sequences, so that a word is found again even if the lines were broken in other places.
namespace kelvane {
namespace {

// Letters and digits, of any script.
bool isInWord(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte >= 0x80 || (byte >= '0' && byte <= '9') || ((byte | 0x20) >= 'a' && (byte | 0x20) <= 'z');
}

// Words, and each character between them by itself, so that a word is the same with a comma behind it.
void appendWords(std::string_view line, Pieces& words) {
  while (!line.empty()) {
    const auto end = std::find_if_not(line.begin(), line.end(), isInWord);
    const auto size = std::max<std::size_t>(1, static_cast<std::size_t>(end - line.begin()));
    words.push_back(line.substr(0, size));
    line.remove_prefix(size);
  }
}

bool isSpace(std::string_view word) {
  return word == " " || word == "\n" || word == "\t" || word == "\r";
}

class Changes {
 public:
  Changes(std::string_view old, std::string_view fresh) : steps_(stepsBetween(linesOf(old), linesOf(fresh))) {}

  std::vector<TextLine> lines() {
    for (std::size_t at = 0; at < steps_.size();) {
      if (steps_[at].sign == ' ') {
        add(steps_[at++], {});
        continue;
      }
      const std::size_t comes = endOf('-', at);
      const std::size_t end = endOf('+', comes);
      addChange(at, comes, end);
      at = end;
    }
    return std::move(lines_);
  }

 private:
  std::size_t endOf(char sign, std::size_t at) const {
    while (at < steps_.size() && steps_[at].sign == sign) ++at;
    return at;
  }

  // The parts of a line are consecutive views of it; empty if the line is one part.
  void add(const Step& step, std::vector<LinePart> parts) {
    const bool isCutOff = !step.piece.ends_with('\n');
    if (parts.empty()) parts.push_back({step.piece, false});
    if (!isCutOff) {
      parts.back().text.remove_suffix(1);
      if (parts.back().text.empty() && parts.size() > 1) parts.pop_back();
    }
    if (parts.size() == 1) parts.front().isChanged = false;  // the sign says it of the whole line
    if (step.sign != '+') ++old_;
    if (step.sign != '-') ++fresh_;
    lines_.push_back({step.sign, step.sign == '-' ? old_ : fresh_, std::move(parts), isCutOff});
  }

  void addChange(std::size_t goes, std::size_t comes, std::size_t end) {
    Pieces old;
    Pieces fresh;
    for (std::size_t at = goes; at < comes; ++at) appendWords(steps_[at].piece, old);
    for (std::size_t at = comes; at < end; ++at) appendWords(steps_[at].piece, fresh);
    std::vector<Step> words;
    if (!old.empty() && !fresh.empty()) words = stepsBetween(old, fresh, comparisons_);
    if (!isMostlyKept(words, std::max(old.size(), fresh.size()))) words.clear();
    addLines('-', goes, comes, words);
    addLines('+', comes, end, words);
  }

  // Whether so much stays that it helps to see what changes. Spaces do not count: every sentence has them.
  static bool isMostlyKept(const std::vector<Step>& words, std::size_t most) {
    const auto kept = std::count_if(words.begin(), words.end(),
                                    [](const Step& each) { return each.sign == ' ' && !isSpace(each.piece); });
    return static_cast<std::size_t>(kept) * 5 >= most;
  }

  // The lines [begin, end), divided into what stays and what changes.
  void addLines(char sign, std::size_t begin, std::size_t end, const std::vector<Step>& words) {
    auto word = words.begin();
    for (std::size_t at = begin; at < end; ++at) {
      std::vector<LinePart> parts;
      std::size_t size = 0;
      while (!words.empty() && size < steps_[at].piece.size()) {
        word = std::find_if(word, words.end(), [&](const Step& each) { return each.sign == ' ' || each.sign == sign; });
        const bool isChanged = word->sign != ' ';
        const std::size_t length = word->piece.size();
        if (parts.empty() || parts.back().isChanged != isChanged) {
          parts.push_back({steps_[at].piece.substr(size, length), isChanged});
        } else {
          parts.back().text = {parts.back().text.data(), parts.back().text.size() + length};
        }
        size += length;
        ++word;
      }
      add(steps_[at], std::move(parts));
    }
  }

  std::vector<Step> steps_;
  std::vector<TextLine> lines_;
  Comparisons comparisons_;  // of words, in all changes together
  std::size_t old_ = 0;      // the number of the last line of the old text
  std::size_t fresh_ = 0;    // and of the new one
};

}  // namespace

std::vector<TextLine> textChanges(std::string_view old, std::string_view fresh) {
  return Changes(old, fresh).lines();
}

std::vector<bool> linesToShow(const std::vector<TextLine>& lines, std::size_t around) {
  return nearChanges(lines, around);
}

}  // namespace kelvane
