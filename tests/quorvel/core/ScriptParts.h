#pragma once

#include <string>
#include <string_view>
#include <vector>

/// A second chapter model, slow and simple, for tests to compare with. It uses lists of chapters instead of ranges.
namespace quorvel::tests {

struct ChapterParts {
  std::string heading;  ///< The line, its line break included.
  std::string body;

  std::string text() const { return heading + body; }
  std::string title() const;

  bool operator==(const ChapterParts&) const = default;
};

/// A script in parts: the text before the first heading, including a byte-order mark, and the chapters.
struct ScriptParts {
  std::string preamble;
  std::vector<ChapterParts> chapters;

  std::string text() const;
  std::vector<std::string> titles() const;
};

ScriptParts partsOf(std::string_view text);

/// Whether every scalar is white space.
bool isEmptyLine(std::string_view line);

/// The text through its last line that is not empty, without that line's break.
std::string withoutEmptyLinesAtEnd(std::string_view text);

/// A given text as it is expected in a script: without empty lines at its start and end.
std::string passageOf(std::string_view text);

/// The line break of most lines of the text; LF on a tie.
std::string ownBreakOf(std::string_view text);

/// A given text with the line breaks that it is expected to have in a script.
std::string inBreaksOf(std::string_view script, std::string_view given);

/// A given text without a first line that repeats the chapter's heading.
std::string belowHeading(std::string_view given, std::string_view title);

/// Whether the chapter already has the given text: as it is or as a client reads it, with or without its heading line,
/// with the sent line breaks or with the script's.
bool isChaptersText(std::string_view given, const ChapterParts& chapter, std::string_view script);

/// A given title on one line, and as it is expected in a heading, where the marker is not repeated.
std::string onOneLine(std::string title);
std::string withoutMarkers(std::string title);

}  // namespace quorvel::tests
