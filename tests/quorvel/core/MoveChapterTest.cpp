#include <gtest/gtest.h>

#include <optional>
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
  std::size_t to;
  std::string edited;
};

TEST(MoveChapter, leavesTheWhiteSpaceBetweenChaptersInPlace) {
  const Row rows[] = {
      {"down by one", "# A\n\na\n\n# B\n\nb\n", 0, 1, "# B\n\nb\n\n# A\n\na\n"},
      {"up by one", "# A\n\na\n\n# B\n\nb\n", 1, 0, "# B\n\nb\n\n# A\n\na\n"},
      {"to the end", "# A\na\n# B\nb\n# C\nc\n", 0, 2, "# B\nb\n# C\nc\n# A\na\n"},
      {"to the start", "# A\na\n# B\nb\n# C\nc\n", 2, 0, "# C\nc\n# A\na\n# B\nb\n"},
      {"in the middle", "# A\n# B\n# C\n# D\n", 1, 2, "# A\n# C\n# B\n# D\n"},
      {"no final line break, to the end", "# A\na\n# B\nb", 0, 1, "# B\nb\n# A\na"},
      {"no final line break, from the end", "# A\na\n# B\nb", 1, 0, "# B\nb\n# A\na"},
      {"a heading without a line break", "# A\n\na\n\n# B", 1, 0, "# B\n\n# A\n\na"},
      {"separators of many widths", "# A\n\n\n\n# B\n# C\n\n", 0, 2, "# B\n\n\n\n# C\n# A\n\n"},
      {"separators with spaces", "# A\n \t\n# B\n  ", 0, 1, "# B\n \t\n# A\n  "},
      {"spaces at the end of a line move with it", "# A\na  \n\n# B\n", 0, 1, "# B\n\n# A\na  \n"},
      {"a \"#\" alone does not join a space", "# A\n#\n# B \n", 0, 1, "# B \n# A\n#\n"},
      {"separators beyond ASCII", "# A\n\xE3\x80\x80\n# B\n\xC2\x85\n", 0, 1, "# B\n\xE3\x80\x80\n# A\n\xC2\x85\n"},
      {"a mark on a space moves", "# A\n \xCC\x81\n# B\n", 0, 1, "# B\n# A\n \xCC\x81\n"},
      {"no title", "# \n\n# B\nb\n", 0, 1, "# B\nb\n\n# \n"},
      {"no title, spaces after the marker", "#   \n\n# B", 0, 1, "# B\n\n#   "},
      {"no title and no line break", "# A\na\n# ", 1, 0, "# \n# A\na"},
      {"text before the first stays first", "p\n\n# A\n# B\n", 1, 0, "p\n\n# B\n# A\n"},
      {"inner empty lines move", "# A\n\n\na\n\na\n# B\n", 0, 1, "# B\n# A\n\n\na\n\na\n"},
      {"equal chapters", "# A\n# A\n", 0, 1, "# A\n# A\n"},
      {"bytes that are not UTF-8", "\x80\n# A\n\xFF\n# \xC3\n\xE3\x80\n", 0, 1, "\x80\n# \xC3\n\xE3\x80\n# A\n\xFF\n"},
  };
  for (const Row& row : rows) {
    tests::expectWithEveryLineBreak(row.description, row.script, row.edited, [&](auto) {
      return [&row](const Script& script) { return ChapterEdits::move(row.chapter, row.to, script); };
    });
    tests::expectWithEveryLineBreak(
        (row.description + std::string(", and back")).c_str(), row.edited, row.script,
        [&](auto) { return [&row](const Script& script) { return ChapterEdits::move(row.to, row.chapter, script); }; });
  }
}

TEST(MoveChapter, leavesEveryLineBreakUnchanged) {
  const Row rows[] = {
      {"separators of both kinds", "# A\r\n\n# B\n\r\n# C", 0, 2, "# B\r\n\n# C\n\r\n# A"},
      {"inside a chapter", "# A\r\na\r\nb\n# B\n", 0, 1, "# B\n# A\r\na\r\nb\n"},
      {"a CR before a separator", "# A\r\r\n# B\n", 0, 1, "# B\r\r\n# A\n"},
      {"a space before a CR", "# A \r\r\n# B\n", 0, 1, "# B\r\r\n# A \n"},
      {"a CR at the end", "# A\n# B\r", 0, 1, "# B\n# A\r"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.description);
    EXPECT_EQ(edited(row.script, [&](const Script& s) { return ChapterEdits::move(row.chapter, row.to, s); }),
              shown(row.edited));
  }
}

TEST(MoveChapter, returnsNoEditForTheChaptersOwnIndex) {
  const Script script("# A\na\n# B\nb\n");
  EXPECT_EQ(ChapterEdits::move(0, 0, script), std::nullopt);
  EXPECT_EQ(ChapterEdits::move(1, 1, script), std::nullopt);
}

TEST(MoveChapter, changesOnlyTheChaptersItPasses) {
  EXPECT_EQ(ChapterEdits::move(1, 2, Script("# A\n# B\n\n# C\n\n# D\n")), (TextEdit{{4, 12}, "# C\n\n# B"}));
}

}  // namespace
}  // namespace quorvel
