#include <gtest/gtest.h>

#include <string>

#include "platform/QuorvelCore.h"
#include "tests/quorvel/core/EditTable.h"

namespace quorvel {
namespace {

using tests::edited;
using tests::shown;

struct Row {
  const char* description;
  std::string script;
  std::size_t chapter;
  std::string text;
  std::string edited;
};

TEST(ReplaceChapterText, keepsTheHeadingAndEveryOtherChapter) {
  const Row rows[] = {
      {"the only chapter", "# A\n\na\n", 0, "x", "# A\n\nx\n"},
      {"the first", "# A\n\na\n\n# B\n\nb\n", 0, "x", "# A\n\nx\n\n# B\n\nb\n"},
      {"the first, behind text", "p\n# A\n\na\n\n# B\n", 0, "x", "p\n# A\n\nx\n\n# B\n"},
      {"the last", "# A\n\na\n\n# B\n\nb\n", 1, "x", "# A\n\na\n\n# B\n\nx\n"},
      {"without a final line break", "# A\n\na", 0, "x", "# A\n\nx"},
      {"empty lines at the end", "# A\n\na\n\n\n", 0, "x", "# A\n\nx\n"},
      {"a close chapter gets its empty lines", "# A\na\n# B\nb\n# C\n", 1, "x", "# A\na\n# B\n\nx\n\n# C\n"},
      {"wide ones are not kept", "# A\n\n\n\na\n\n\n\n# B\n", 0, "x", "# A\n\nx\n\n# B\n"},
      {"an empty chapter", "# A\n# B\n", 0, "x", "# A\n\nx\n\n# B\n"},
      {"an empty chapter at the end", "# A\n", 0, "x", "# A\n\nx\n"},
      {"a heading without a line break", "# A", 0, "x", "# A\n\nx"},
      {"a heading without a title", "# \n# B\n", 0, "x", "# \n\nx\n\n# B\n"},
      {"a heading without a title or line break", "# ", 0, "x", "# \n\nx"},
      {"the heading's spaces stay", "#  A \na\n", 0, "x", "#  A \n\nx\n"},
      {"one of equal chapters", "# A\n\na\n\n# A\n\na\n", 0, "x", "# A\n\nx\n\n# A\n\na\n"},
      {"bytes that are not UTF-8", "\xFF\n# \xC3\n\xFE\n# B\n\x80", 0, "\xE3", "\xFF\n# \xC3\n\n\xE3\n\n# B\n\x80"},
      {"empty lines around the text", "# A\n\na\n\n# B\n", 0, "\n\n  x\n\n\ny\n\n\n", "# A\n\n  x\n\n\ny\n\n# B\n"},
      {"a text of white space", "# A\n\na\n\n# B\n", 0, " \n ", "# A\n\n# B\n"},
      {"a text of white space at the end", "# A\n\na\n", 0, "\n", "# A\n"},
      {"a text of white space without a final line break", "# A\n\na", 0, "", "# A\n"},
      {"headings in the text", "# A\n\na\n\n# B\n", 0, "# X\nx\n# ", "# A\n\n# X\nx\n# \n\n# B\n"},
  };
  for (const Row& row : rows) {
    tests::expectWithEveryLineBreak(row.description, row.script, row.edited, [&](auto given) {
      return [&row, given](const Script& script) {
        return ChapterEdits::replaceText(row.chapter, given(row.text), script);
      };
    });
  }
}

TEST(ReplaceChapterText, changesNothingForThePresentText) {
  const Row rows[] = {
      {"as it is read", "# A\n\na\nb\n\n# B\n", 0, "a\nb", ""},
      {"as it is read, in a close chapter", "# A\na\n# B\n", 0, "a", ""},
      {"as it is read, in a wide chapter", "# A\n\n\n\na\n\n\n\n# B\n", 0, "a", ""},
      {"as it is read, from an indented line", "# A\n\n  a\n\n# B\n", 0, "a", ""},
      {"as it is read, from a line with spaces after it", "# A\n\na  \n\n# B\n", 0, "a", ""},
      {"as it stands", "# A\n\n\n  a\n# B\n", 0, "\n\n  a\n", ""},
      {"without a final line break", "# A\na", 0, "a", ""},
      {"with a final line break", "# A\na", 0, "a\n", ""},
      {"white space for white space", "# A\n\n\n# B\n", 0, " ", ""},
      {"white space for a heading without a line break", "# A", 0, "\n", ""},
      {"bytes that are not UTF-8", "# A\n\xFF\n", 0, "\xFF", ""},
  };
  for (const Row& row : rows) {
    tests::expectWithEveryLineBreak(row.description, row.script, row.script, [&](auto given) {
      return [&row, given](const Script& script) {
        return ChapterEdits::replaceText(row.chapter, given(row.text), script);
      };
    });
  }
}

TEST(ReplaceChapterText, dropsTheChaptersOwnHeadingLine) {
  const Row rows[] = {
      {"above an empty line", "# A\n\na\n\n# B\n", 0, "# A\n\nx\n", "# A\n\nx\n\n# B\n"},
      {"without one", "# A\n\na\n\n# B\n", 0, "# A\nx", "# A\n\nx\n\n# B\n"},
      {"with more", "# A\n\na\n\n# B\n", 0, "# A\n\n \n\nx", "# A\n\nx\n\n# B\n"},
      {"below empty lines", "# A\n\na\n", 0, "\n \n# A\n\nx", "# A\n\nx\n"},
      {"white space around its title", "# A\n\na\n", 0, "#  \tA \nx", "# A\n\nx\n"},
      {"white space around the script's, which stays", "#   A \n\na\n", 0, "# A\nx", "#   A \n\nx\n"},
      {"alone: the text goes", "# A\n\na\n\n# B\n", 0, "# A\n", "# A\n\n# B\n"},
      {"alone, in the last chapter", "# A\n\na\n", 0, "# A", "# A\n"},
      {"in a heading without a line break", "# A", 0, "# A\nx", "# A\n\nx"},
      {"the heading without a title", "# \n\na\n", 0, "# \nx", "# \n\nx\n"},
      {"a title that begins with the marker", "# # A\n\na\n", 0, "# # A\nx", "# # A\n\nx\n"},
      {"a title that is canonically equivalent", "# \xC3\xA9\n", 0, "# e\xCC\x81\nx", "# \xC3\xA9\n\nx\n"},
      {"a title that is not UTF-8", "# \xFF\n", 0, "# \xFF\nx", "# \xFF\n\nx\n"},
      {"above the text that is there", "# A\n\n  a\nb\n\n\n# B\n", 0, "# A\na\nb", "# A\n\n  a\nb\n\n\n# B\n"},
      {"only once", "# A\n\na\n", 0, "# A\n# A\nx", "# A\n\n# A\nx\n"},
      {"and other chapters follow", "# A\n\na\n", 0, "# A\nx\n# A\ny", "# A\n\nx\n# A\ny\n"},
      {"not further down", "# A\n\na\n", 0, "x\n# A\ny", "# A\n\nx\n# A\ny\n"},
      {"not that of another chapter", "# A\n\na\n\n# B\n", 0, "# B\nx", "# A\n\n# B\nx\n\n# B\n"},
      {"not one in other letter case", "# A\n\na\n", 0, "# a\nx", "# A\n\n# a\nx\n"},
      {"not one of another kind", "# A\n\na\n", 0, "## A\nx", "# A\n\n## A\nx\n"},
      {"not one that is indented", "# A\n\na\n", 0, " # A\nx", "# A\n\n # A\nx\n"},
      {"not one behind a byte-order mark", "# A\n", 0, "\xEF\xBB\xBF# A\nx", "# A\n\n\xEF\xBB\xBF# A\nx\n"},
      {"not the text as it is read that looks like it", "# A\n\n # A\nx\n", 0, "# A\nx", "# A\n\n # A\nx\n"},
  };
  for (const Row& row : rows) {
    tests::expectWithEveryLineBreak(row.description, row.script, row.edited, [&](auto given) {
      return [&row, given](const Script& script) {
        return ChapterEdits::replaceText(row.chapter, given(row.text), script);
      };
    });
  }
}

TEST(ReplaceChapterText, changesAnIndentationThatTheClientSends) {
  EXPECT_EQ(edited("# A\n\na\n", [](const Script& s) { return ChapterEdits::replaceText(0, "  a", s); }),
            shown("# A\n\n  a\n"));
}

TEST(ReplaceChapterText, writesTheScriptsOwnLineBreaks) {
  const Row rows[] = {
      {"LF into CR LF takes CR LF", "# A\r\na\r\n# B\r\n", 0, "x\ny\n", "# A\r\n\r\nx\r\ny\r\n\r\n# B\r\n"},
      {"LF and CR LF into CR LF stay", "# A\r\n", 0, "x\r\ny\nz", "# A\r\n\r\nx\r\ny\nz\r\n"},
      {"CR LF in the heading line alone counts", "# A\r\n", 0, "# A\r\nx\ny", "# A\r\n\r\nx\ny\r\n"},
      {"LF that is there amid CR LF stays", "# A\r\na\nb\r\n", 0, "a\nb", "# A\r\na\nb\r\n"},
      {"new LF amid CR LF does not", "# A\r\na\nb\r\n", 0, "a\nb\nc", "# A\r\n\r\na\r\nb\r\nc\r\n"},
      {"CR LF into LF", "# A\na\n# B\n", 0, "x\r\ny\r\n", "# A\n\nx\r\ny\n\n# B\n"},
      {"the heading's own stays", "# A\na\r\nb\r\n# B\r\n", 0, "x", "# A\n\r\nx\r\n\r\n# B\r\n"},
      {"the heading's own stays amid LF", "# A\r\na\nb\n# B\n", 0, "x", "# A\r\n\nx\n\n# B\n"},
      {"a heading that ends in a CR", "# A\r", 0, "x", "# A\r\n\nx"},
      {"a text that ends in a CR", "# A\n\na\n\n# B\n", 0, "x\r", "# A\n\nx\n\n# B\n"},
      {"a text with a CR inside", "# A\n\na\n\n# B\n", 0, "x\r# y", "# A\n\nx\r# y\n\n# B\n"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.description);
    EXPECT_EQ(edited(row.script, [&](const Script& s) { return ChapterEdits::replaceText(row.chapter, row.text, s); }),
              shown(row.edited));
  }
}

}  // namespace
}  // namespace quorvel
