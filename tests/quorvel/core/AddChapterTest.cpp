#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "platform/QuorvelCore.h"
#include "tests/quorvel/core/EditTable.h"

namespace quorvel {
namespace {

using tests::edited;
using tests::shown;

constexpr std::optional<std::size_t> atEnd;

struct Row {
  const char* description;
  std::string script;
  std::string title;
  std::string text;
  std::optional<std::size_t> before;
  std::string edited;
};

TEST(AddChapter, writesEmptyLinesAroundTheChapter) {
  const Row rows[] = {
      {"to an empty script", "", "X", "x", atEnd, "# X\n\nx\n"},
      {"to an empty script, without text", "", "X", "", atEnd, "# X\n"},
      {"at the end", "# A\n\na\n", "X", "x", atEnd, "# A\n\na\n\n# X\n\nx\n"},
      {"at the end, without text", "# A\n\na\n", "X", "", atEnd, "# A\n\na\n\n# X\n"},
      {"at the end without a final line break", "# A\n\na", "X", "x", atEnd, "# A\n\na\n\n# X\n\nx"},
      {"the same without text", "# A\n\na", "X", "", atEnd, "# A\n\na\n\n# X"},
      {"behind a heading at the end", "# A\n", "X", "x", atEnd, "# A\n\n# X\n\nx\n"},
      {"after a heading without a line break", "# A", "X", "x", atEnd, "# A\n\n# X\n\nx"},
      {"behind a heading without a title", "# ", "X", "x", atEnd, "# \n\n# X\n\nx"},
      {"after an empty line at the end", "# A\n\na\n\n", "X", "x", atEnd, "# A\n\na\n\n# X\n\nx\n"},
      {"after more empty lines, which stay", "# A\n\na\n\n\n\n", "X", "x", atEnd, "# A\n\na\n\n\n\n# X\n\nx\n"},
      {"after a line of white space", "# A\na\n  \t\n", "X", "x", atEnd, "# A\na\n  \t\n# X\n\nx\n"},
      {"after a line of white space without a line break", "a\n  ", "X", "x", atEnd, "a\n  \n# X\n\nx"},
      {"behind a text without chapters", "a\nb\n", "X", "x", atEnd, "a\nb\n\n# X\n\nx\n"},
      {"behind white space only", "\n\n", "X", "x", atEnd, "\n\n# X\n\nx\n"},
      {"before the first chapter", "# A\n\na\n", "X", "x", 0, "# X\n\nx\n\n# A\n\na\n"},
      {"before the first chapter, without text", "# A\n\na\n", "X", "", 0, "# X\n\n# A\n\na\n"},
      {"before the first chapter, behind text", "p\n\n# A\na", "X", "x", 0, "p\n\n# X\n\nx\n\n# A\na"},
      {"before the first chapter, close behind text", "p\n# A\na", "X", "x", 0, "p\n\n# X\n\nx\n\n# A\na"},
      {"before a later chapter", "# A\n\na\n\n# B\n\nb\n", "X", "x", 1, "# A\n\na\n\n# X\n\nx\n\n# B\n\nb\n"},
      {"between close headings, which stay close", "# A\n# B\n# C\n", "X", "x", 1, "# A\n\n# X\n\nx\n\n# B\n# C\n"},
      {"before an equal title", "# X\n\nx\n", "X", "x", 0, "# X\n\nx\n\n# X\n\nx\n"},
      {"amid bytes that are not UTF-8", "\xFF\n# \xC3\n\x80\n", "X", "x", 0, "\xFF\n\n# X\n\nx\n\n# \xC3\n\x80\n"},
  };
  for (const Row& row : rows) {
    tests::expectWithEveryLineBreak(row.description, row.script, row.edited, [&](auto given) {
      return [&row, given](const Script& script) {
        return ChapterEdits::add(row.title, given(row.text), row.before, script);
      };
    });
  }
}

TEST(AddChapter, keepsTheTextExceptForSurroundingEmptyLines) {
  const Row rows[] = {
      {"a final line break", "# A\n", "X", "x\n", 0, "# X\n\nx\n\n# A\n"},
      {"many of them", "# A\n", "X", "x\n\n\n\n", 0, "# X\n\nx\n\n# A\n"},
      {"at the end", "# A\n", "X", "x\n\n\n\n", atEnd, "# A\n\n# X\n\nx\n"},
      {"at the end without a final line break", "# A\n\na", "X", "x\n", atEnd, "# A\n\na\n\n# X\n\nx"},
      {"empty lines at the start", "# A\n", "X", "\n \t\n\nx", 0, "# X\n\nx\n\n# A\n"},
      {"an indented first line", "# A\n", "X", "\n  x", 0, "# X\n\n  x\n\n# A\n"},
      {"inner empty lines", "# A\n", "X", "x\n\n\ny", 0, "# X\n\nx\n\n\ny\n\n# A\n"},
      {"a text of white space is like an empty one", "# A\n", "X", " \n\n\t", 0, "# X\n\n# A\n"},
      {"empty lines beyond ASCII", "# A\n", "X", "\xE3\x80\x80\n\nx\n\xC2\xA0\n", 0, "# X\n\nx\n\n# A\n"},
      {"spaces at the end of a line", "# A\n", "X", "x  \n \n", 0, "# X\n\nx  \n\n# A\n"},
      {"a space with a mark is not an empty line", "# A\n", "X", "x\n \xCC\x81", 0, "# X\n\nx\n \xCC\x81\n\n# A\n"},
      {"a heading", "# A\n", "X", "# Y\ny", 0, "# X\n\n# Y\ny\n\n# A\n"},
      {"a heading without a title at the end", "# A\n", "X", "x\n# ", 0, "# X\n\nx\n# \n\n# A\n"},
      {"a heading without a title alone", "# A\n", "X", "# \n", 0, "# X\n\n# \n\n# A\n"},
      {"a sign at the end", "# A\n", "X", "x\n#", 0, "# X\n\nx\n#\n\n# A\n"},
      {"a byte-order mark", "# A\n", "X", "\xEF\xBB\xBF# x", 0, "# X\n\n\xEF\xBB\xBF# x\n\n# A\n"},
      {"bytes that are not UTF-8", "# A\n", "X", "\xFF\xC3\n", 0, "# X\n\n\xFF\xC3\n\n# A\n"},
  };
  for (const Row& row : rows) {
    tests::expectWithEveryLineBreak(row.description, row.script, row.edited, [&](auto given) {
      return [&row, given](const Script& script) {
        return ChapterEdits::add(row.title, given(row.text), row.before, script);
      };
    });
  }
}

TEST(AddChapter, writesTheScriptsOwnLineBreaks) {
  const Row rows[] = {
      {"LF into CR LF takes CR LF", "# A\r\n", "X", "x\ny\n", 0, "# X\r\n\r\nx\r\ny\r\n\r\n# A\r\n"},
      {"LF and CR LF into CR LF stay", "# A\r\n", "X", "x\r\ny\nz", 0, "# X\r\n\r\nx\r\ny\nz\r\n\r\n# A\r\n"},
      {"LF into as many of both stays", "a\r\nb\n", "X", "x\ny", atEnd, "a\r\nb\n\n# X\n\nx\ny\n"},
      {"LF where CR LF is the more frequent", "a\r\nb\r\nc\n", "X", "x\n\ny", atEnd,
       "a\r\nb\r\nc\n\r\n# X\r\n\r\nx\r\n\r\ny\r\n"},
      {"a CR alone becomes no line break", "# A\r\n", "X", "x\ry\nz", 0, "# X\r\n\r\nx\ry\r\nz\r\n\r\n# A\r\n"},
      {"CR LF into LF", "# A\n", "X", "x\r\ny\r\n", 0, "# X\n\nx\r\ny\n\n# A\n"},
      {"more CR LF than LF", "a\r\nb\r\nc\n", "X", "x", atEnd, "a\r\nb\r\nc\n\r\n# X\r\n\r\nx\r\n"},
      {"as many", "a\r\nb\n", "X", "x", atEnd, "a\r\nb\n\n# X\n\nx\n"},
      {"more LF than CR LF", "a\nb\nc\r\n", "X", "x", atEnd, "a\nb\nc\r\n\n# X\n\nx\n"},
      {"a CR alone is no line break", "a\rb\rc", "X", "x", atEnd, "a\rb\rc\n\n# X\n\nx"},
      {"a CR at the script's end becomes one", "a\r", "X", "x", atEnd, "a\r\n\n# X\n\nx"},
      {"a CR at the end of CR LF", "a\r\nb\r", "X", "x", atEnd, "a\r\nb\r\r\n\r\n# X\r\n\r\nx"},
      {"a CR at the text's end is white space", "# A\n", "X", "x\r", 0, "# X\n\nx\n\n# A\n"},
      {"an empty script", "", "X", "x\r\ny", atEnd, "# X\n\nx\r\ny\n"},
      {"CR LF and no final line break", "# A\r\n\r\na", "X", "", atEnd, "# A\r\n\r\na\r\n\r\n# X"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.description);
    EXPECT_EQ(
        edited(row.script, [&](const Script& s) { return ChapterEdits::add(row.title, row.text, row.before, s); }),
        shown(row.edited));
  }
}

TEST(AddChapter, removesTheMarkerFromTheTitle) {
  const Row rows[] = {
      {"a heading line for a title", "# A\n", "# X", "x", 0, "# X\n\nx\n\n# A\n"},
      {"in a title of several lines", "# A\n", "# X\n# Y", "", atEnd, "# A\n\n# X # Y\n"},
      {"a heading of another kind", "# A\n", "## X", "", atEnd, "# A\n\n# ## X\n"},
      {"text that says the title again has a chapter of its own", "# A\n", "X", "# X\nx", 0, "# X\n\n# X\nx\n\n# A\n"},
  };
  for (const Row& row : rows) {
    tests::expectWithEveryLineBreak(row.description, row.script, row.edited, [&](auto given) {
      return [&row, given](const Script& script) {
        return ChapterEdits::add(row.title, given(row.text), row.before, script);
      };
    });
  }
}

TEST(AddChapter, returnsNoEditForATitleOfWhiteSpace) {
  for (const char* title : {"", " ", " \t ", "\n", "\r\n\r\n", "\v\f", "\xE3\x80\x80", "\xC2\x85\xE2\x80\xA8",
                            " \xCC\x81", "# ", " # \n# "}) {
    SCOPED_TRACE(shown(title));
    EXPECT_EQ(ChapterEdits::add(title, "x", atEnd, Script("# A\n")), std::nullopt);
    EXPECT_EQ(ChapterEdits::add(title, "x", 0, Script("# A\n")), std::nullopt);
    EXPECT_EQ(ChapterEdits::add(title, "", atEnd, Script("")), std::nullopt);
  }
}

TEST(AddChapter, insertsThereAndChangesNothingElse) {
  const Script script("p\n# A\na\n# B\nb");
  EXPECT_EQ(ChapterEdits::add("X", "x", 1, script), (TextEdit{{8, 8}, "\n# X\n\nx\n\n"}));
  EXPECT_EQ(ChapterEdits::add("X", "x", atEnd, script), (TextEdit{{13, 13}, "\n\n# X\n\nx"}));
}

}  // namespace
}  // namespace quorvel
