#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace kelvane {

/// A part of a line.
struct LinePart {
  std::string_view text;
  bool isChanged = false;  ///< Whether it differs from the other text, in a line of which other parts do not.

  bool operator==(const LinePart&) const = default;
};

/// A line of the old text, of the new one, or of both.
struct TextLine {
  char sign = ' ';              ///< '-' goes, '+' comes, ' ' stays.
  std::size_t number = 0;       ///< Its number in the new text, or in the old one if it goes. The first line is 1.
  std::vector<LinePart> parts;  ///< Its text, without the line feed.
  bool isCutOff = false;        ///< It is the last line and has no line feed.

  bool operator==(const TextLine&) const = default;
};

/// What changes between two texts, by lines and by words within them. The lines of a change that go stand before those
/// that come. In prose a line is often a whole paragraph, so the words that differ are marked, unless the lines have
/// little in common, or the changes before them took all the time that there is for words.
///
///     for (const TextLine& line : textChanges("one two\n", "one three\n")) …  // "-one [two]", "+one [three]"
///
/// The views are those of the arguments. Takes time and memory linear in the texts; if they have little in common, more
/// may be shown as changed than necessary.
std::vector<TextLine> textChanges(std::string_view old, std::string_view fresh);

/// Which of the lines a person needs to see: the changes, and up to `around` lines before and after each.
std::vector<bool> linesToShow(const std::vector<TextLine>& lines, std::size_t around);

}  // namespace kelvane
