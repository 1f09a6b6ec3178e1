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
std::string withoutBlankLinesAtEnd(std::string_view text);

/// A given text as it is expected in a script: without blank lines at its start and its end.
std::string passageOf(std::string_view text);

}  // namespace quorvel::tests
