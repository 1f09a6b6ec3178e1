#include <gtest/gtest.h>

#include <string>

#include "platform/QuorvelCore.h"
#include "quorvel/core/Titles.h"
#include "tests/quorvel/core/EditTable.h"

namespace quorvel {
namespace {

using tests::edited;
using tests::shown;

struct Row {
  const char* description;
  std::string script;
  std::size_t chapter;
  std::string title;
  std::string edited;
};

TEST(RenameChapter, replacesTheTitleAndNothingElse) {
  const Row rows[] = {
      {"the only chapter", "# A\n\na\n", 0, "X", "# X\n\na\n"},
      {"the first", "p\n# A\na\n# B\nb\n", 0, "X", "p\n# X\na\n# B\nb\n"},
      {"the last", "# A\na\n# B\nb", 1, "X", "# A\na\n# X\nb"},
      {"one of equal titles", "# A\n# A\n# A\n", 1, "X", "# A\n# X\n# A\n"},
      {"a heading at the end without a line break", "# A", 0, "X", "# X"},
      {"to the title that it has", "# A\n\na\n", 0, "A", "# A\n\na\n"},
      {"to the title that it has, amid spaces", "#  A \n\na\n", 0, "A", "#  A \n\na\n"},
      {"to the title that it has, with spaces", "# A\n\na\n", 0, " A\n", "# A\n\na\n"},
      {"spaces around the title stay", "# \t A  \na", 0, "X", "# \t X  \na"},
      {"spaces around the new one go", "# A\na", 0, "  X  ", "# X\na"},
      {"inner spaces stay", "# A\na", 0, "X   Y", "# X   Y\na"},
      {"a chapter without a title", "# \na", 0, "X", "# X\na"},
      {"a chapter without a title at the end", "# ", 0, "X", "# X"},
      {"a chapter with a title of spaces", "#   \na", 0, "X", "# X  \na"},
      {"to a title of white space", "# A\n\na\n", 0, " ", "# \n\na\n"},
      {"to a title of white space, spaces go too", "#   A  \n\na\n", 0, " \t", "# \n\na\n"},
      {"to a title of white space at the end", "# A", 0, " ", "# "},
      {"to an empty title", "# A\n\na\n", 0, "", "# \n\na\n"},
      {"no title stays no title", "#   \na", 0, " ", "#   \na"},
      {"to a heading line", "# A\na", 0, "# X", "# X\na"},
      {"to a heading line of another kind", "# A\na", 0, "## X", "# ## X\na"},
      {"to its own heading line", "#  A \na", 0, "# A", "#  A \na"},
      {"to the marker alone", "# A\na", 0, "# ", "# \na"},
      {"to the title that it has, which begins with the marker", "# # A\na", 0, "# A", "# # A\na"},
      {"the same on several lines", "# # A\na", 0, "\n#\nA\n", "# # A\na"},
      {"from a title that begins with the marker", "# # A\na", 0, "A", "# A\na"},
      {"between titles that begin with the marker", "# # A\na", 0, "# B", "# B\na"},
      {"to a sign", "# A\na", 0, "#", "# #\na"},
      {"a mark does not join a space", "#  A\na", 0, "\xCC\x81X", "# \xCC\x81X\na"},
      {"a prepended character does not join a space", "# A \na", 0, "X\xD8\x80", "# X\xD8\x80\na"},
      {"bytes that are not UTF-8", "\xFF\n# \xC3\n\xFE", 0, "\xE3\x80", "\xFF\n# \xE3\x80\n\xFE"},
      {"beyond ASCII", "# Caf\xC3\xA9\n", 0, "\xE6\x9C\xAB", "# \xE6\x9C\xAB\n"},
  };
  for (const Row& row : rows) {
    tests::expectWithEveryLineBreak(row.description, row.script, row.edited, [&](auto) {
      return [&row](const Script& script) { return ChapterEdits::rename(row.chapter, row.title, script); };
    });
  }
}

TEST(RenameChapter, leavesEveryLineBreakUnchanged) {
  const Row rows[] = {
      {"CR LF amid LF", "# A\r\na\nb\n# B\n", 0, "X", "# X\r\na\nb\n# B\n"},
      {"LF amid CR LF", "# A\na\r\nb\r\n", 0, " ", "# \na\r\nb\r\n"},
      {"a CR at the end", "# A\r", 0, "X", "# X\r"},
      {"a CR before CR LF", "# A\r\r\na", 0, "X", "# X\r\r\na"},
      {"a CR inside the title", "# A\rB\na", 0, "X", "# X\na"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.description);
    EXPECT_EQ(edited(row.script, [&](const Script& s) { return ChapterEdits::rename(row.chapter, row.title, s); }),
              shown(row.edited));
  }
}

TEST(RenameChapter, editsOnlyTheTitle) {
  EXPECT_EQ(ChapterEdits::rename(1, "X", Script("# A\na\n#  Bee \nb")), (TextEdit{{9, 12}, "X"}));
}

TEST(ATitle, isWrittenOnOneLine) {
  struct Case {
    const char* description;
    std::string given;
    std::string title;
  };
  const Case cases[] = {
      {"an ordinary title", "The end", "The end"},
      {"LF", "a\nb", "a b"},
      {"CR", "a\rb", "a b"},
      {"CR LF is one", "a\r\nb", "a b"},
      {"each of several", "a\n\nb", "a  b"},
      {"LF CR are two", "a\n\rb", "a  b"},
      {"line tabulation and form feed", "a\vb\fc", "a b c"},
      {"next line",
       "a\xC2\x85"
       "b",
       "a b"},
      {"line and paragraph separator",
       "a\xE2\x80\xA8"
       "b\xE2\x80\xA9"
       "c",
       "a b c"},
      {"what only begins like one stays",
       "a\xE2\x80\xAA"
       "b\xC2\x86\xE2\x80",
       "a\xE2\x80\xAA"
       "b\xC2\x86\xE2\x80"},
      {"a second heading", "a\n# b", "a # b"},
      {"a marker at the start goes", "# a", "a"},
      {"behind white space, too", " \n\xE3\x80\x80# a ", "a"},
      {"with the white space behind it", "#  \t a", "a"},
      {"as often as it comes", "# # #  # a # b", "a # b"},
      {"and a marker alone leaves an empty title", "# ", ""},
      {"also several times", "# \n# # ", ""},
      {"a sign alone is no marker", "#", "#"},
      {"behind a marker, too", "# #", "#"},
      {"nor are other signs and white space", "#\ta", "#\ta"},
      {"a line break makes one", "#\na", "a"},
      {"a mark behind a marker is the title's", "# \xCC\x81x", "\xCC\x81x"},
      {"tabs are no line breaks", "a\tb", "a\tb"},
      {"at the ends they go", "\r\n a b \n", "a b"},
      {"a mark that lands on a space is removed with it", "a\n\xCC\x81", "a"},
      {"white space only", " \n\r\n\xE3\x80\x80", ""},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.description);
    EXPECT_EQ(shown(writableTitle(row.given)), shown(row.title));
    EXPECT_EQ(writableTitle(row.title), row.title);
    const std::string before = "# A\n\na\n\n";
    EXPECT_EQ(edited(before + "# B", [&](const Script& s) { return ChapterEdits::rename(1, row.given, s); }),
              shown(before + "# " + row.title));
    if (!row.title.empty()) {
      EXPECT_EQ(edited(before, [&](const Script& s) { return ChapterEdits::add(row.given, "", {}, s); }),
                shown(before + "# " + row.title + "\n"));
    }
  }
}

}  // namespace
}  // namespace quorvel
