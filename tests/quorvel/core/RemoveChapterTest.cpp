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
  std::string edited;
};

TEST(RemoveChapter, removesHeadingAndText) {
  const Row rows[] = {
      {"the only chapter", "# A\n\na\n", 0, ""},
      {"the only chapter, without a line break", "# A", 0, ""},
      {"the first", "# A\n\na\n\n# B\n\nb\n", 0, "# B\n\nb\n"},
      {"the first, behind text", "p\n\n# A\n\na\n\n# B\n", 0, "p\n\n# B\n"},
      {"one in the middle", "# A\na\n# B\nb\n\n\n# C\nc", 1, "# A\na\n# C\nc"},
      {"the last, with the empty line above it", "# A\n\na\n\n# B\n\nb\n", 1, "# A\n\na\n"},
      {"the last, without a final line break", "# A\n\na\n\n# B\n\nb", 1, "# A\n\na"},
      {"the last, with empty lines at the end", "# A\n\na\n\n# B\n\nb\n\n\n", 1, "# A\n\na\n"},
      {"the last, only one empty line goes", "# A\n\n\n\n# B\n", 1, "# A\n\n\n"},
      {"the last, spaces above it stay", "# A\na  \n\n# B\n", 1, "# A\na  \n"},
      {"the last, a line of white space above it stays", "# A\n \n# B\n", 1, "# A\n \n"},
      {"the last, close to the one above", "# A\na\n# B\nb\n", 1, "# A\na\n"},
      {"the same without a final line break", "# A\na\n# B\nb", 1, "# A\na\n"},
      {"the last, below text", "p\n\n# A\n", 0, "p\n"},
      {"the last, below an empty line only", "\n# A\n", 0, "\n"},
      {"one of equal chapters", "# A\n\na\n\n# A\n\na\n", 0, "# A\n\na\n"},
      {"bytes that are not UTF-8", "\xFF\n# \xC3\n\xFE\n# B\n\x80", 0, "\xFF\n# B\n\x80"},
  };
  for (const Row& row : rows) {
    tests::expectWithEveryLineBreak(row.description, row.script, row.edited, [&](auto) {
      return [&row](const Script& script) { return ChapterEdits::remove(row.chapter, false, script); };
    });
  }
}

TEST(RemoveChapter, leavesAKeptTextUnchanged) {
  const Row rows[] = {
      {"the only chapter", "# A\n\na\n", 0, "\na\n"},
      {"the only chapter, without text", "# A", 0, ""},
      {"the first", "# A\na\n# B\nb\n", 0, "a\n# B\nb\n"},
      {"the first, behind text", "p\n\n# A\n\na\n\n# B\n", 0, "p\n\n\na\n\n# B\n"},
      {"one in the middle", "# A\na\n# B\nb\n\n\n# C\nc", 1, "# A\na\nb\n\n\n# C\nc"},
      {"the last", "# A\n\na\n\n# B\n\nb", 1, "# A\n\na\n\n\nb"},
      {"the last, without text", "# A\n\na\n\n# B\n", 1, "# A\n\na\n\n"},
      {"one without a title", "# A\n# \nx\n", 1, "# A\nx\n"},
      {"bytes that are not UTF-8", "\xFF\n# \xC3\n\xFE\n# B\n\x80", 0, "\xFF\n\xFE\n# B\n\x80"},
  };
  for (const Row& row : rows) {
    tests::expectWithEveryLineBreak(row.description, row.script, row.edited, [&](auto) {
      return [&row](const Script& script) { return ChapterEdits::remove(row.chapter, true, script); };
    });
  }
}

TEST(RemoveChapter, removesLineBreaksOfEitherKind) {
  const Row rows[] = {
      {"an empty line with CR LF", "# A\n\r\n# B\n", 1, "# A\n"},
      {"an empty line with LF below CR LF", "# A\r\n\n# B\n", 1, "# A\r\n"},
      {"without a final line break", "# A\r\n\n# B", 1, "# A"},
      {"a CR alone does not make an empty line", "# A\r\n\r\r\n# B\n", 1, "# A\r\n\r\r\n"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.description);
    EXPECT_EQ(edited(row.script, [&](const Script& s) { return ChapterEdits::remove(row.chapter, false, s); }),
              shown(row.edited));
  }
}

TEST(RemoveChapter, doesNotMoveAByteOrderMarkToTheStart) {
  const std::string bom(tests::byteOrderMark);
  const Row rows[] = {
      {"it would make a heading", "# A\n" + bom + "# a\n# B\n", 0, "\n" + bom + "# a\n# B\n"},
      {"it would take a word away", "# A\r\n" + bom + " a\r\n", 0, "\r\n" + bom + " a\r\n"},
      {"behind the script's own it can stand", bom + "# A\n" + bom + "# a\n", 0, bom + bom + "# a\n"},
      {"behind text it can stand", "\n# A\n" + bom + "# a\n", 0, "\n" + bom + "# a\n"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.description);
    EXPECT_EQ(edited(row.script, [&](const Script& s) { return ChapterEdits::remove(row.chapter, true, s); }),
              shown(row.edited));
  }
}

}  // namespace
}  // namespace quorvel
