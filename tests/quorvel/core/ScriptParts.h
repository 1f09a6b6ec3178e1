#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The chapter model told a second time, and in another way than in the code: by lists of chapters and not by ranges.
/// Slow and simple, for tests to compare with.
namespace quorvel::tests {

struct ChapterParts {
  std::string heading;  ///< The line, its line break included.
  std::string body;

  std::string text() const { return heading + body; }
  std::string title() const;

  bool operator==(const ChapterParts&) const = default;
};

/// A script taken apart: what comes before the first heading, a byte-order mark included, and the chapters.
struct ScriptParts {
  std::string preamble;
  std::vector<ChapterParts> chapters;

  std::string text() const;
  std::vector<std::string> titles() const;
};

ScriptParts partsOf(std::string_view text);

/// Whether there is nothing but white space, scalar by scalar.
bool isBlank(std::string_view line);

/// The text up to the end of its last line that is not blank, without that line's break.
std::string withoutEmptyLinesAtEnd(std::string_view text);

/// A given text as it is expected in a script: without blank lines at its start and its end.
std::string passageOf(std::string_view text);

/// The line break that most lines of the text end in, LF where it is as many.
std::string ownBreakOf(std::string_view text);

/// A given text with the line breaks that it is expected to have in a script.
std::string inBreaksOf(std::string_view script, std::string_view given);

/// A given text without a first line that says the title of the chapter again.
std::string belowHeading(std::string_view given, std::string_view title);

/// Whether a given text is what the chapter of that script has already: as it stands or as it is read to a client, with
/// its heading line or without, as it was sent or with the script's line breaks.
bool isChaptersText(std::string_view given, const ChapterParts& chapter, std::string_view script);

/// A given title on one line; and as it is expected in a heading, where the marker does not come twice.
std::string onOneLine(std::string title);
std::string withoutMarkers(std::string title);

}  // namespace quorvel::tests
