#include "program/changes/LineDiff.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <vector>

#include "tests/support/Random.h"

namespace kelvane {
namespace {

struct DiffCase {
  const char* description;
  std::string before;
  std::string after;
  std::string shown;
};

TEST(LineDiff, showsWhatGoesAndComesAndThreeLinesAround) {
  const std::string ten = "1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n";
  const DiffCase cases[] = {
      {"nothing", "", "", ""},
      {"no change", "a\nb", "a\nb", ""},
      {"a first text", "", "a\nb\n", "@@ line 1 @@\n+a\n+b\n"},
      {"a text that goes", "a\nb\n", "", "@@ line 1 @@\n-a\n-b\n"},
      {"a line changed", "a\nb\nc\n", "a\nx\nc\n", "@@ line 1 @@\n a\n-b\n+x\n c\n"},
      {"a line put in", "a\nc\n", "a\nb\nc\n", "@@ line 1 @@\n a\n+b\n c\n"},
      {"a line taken out", "a\nb\nc\n", "a\nc\n", "@@ line 1 @@\n a\n-b\n c\n"},
      {"a line at the end", "a\n", "a\nb\n", "@@ line 1 @@\n a\n+b\n"},
      {"the last line break goes", "a\nb\n", "a\nb", "@@ line 1 @@\n a\n-b\n+b\n\\ No line break at the end\n"},
      {"the last line break comes", "a", "a\n", "@@ line 1 @@\n-a\n\\ No line break at the end\n+a\n"},
      {"no line break in either", "a\nb", "x\nb", "@@ line 1 @@\n-a\n+x\n b\n\\ No line break at the end\n"},
      {"CR LF is a part of the line", "a\r\nb\r\n", "a\nb\r\n", "@@ line 1 @@\n-a\r\n+a\n b\r\n"},
      {"lines that look like the signs", "+\n-\n@@\n", "+\n\\\n@@\n", "@@ line 1 @@\n +\n--\n+\\\n @@\n"},
      {"far into a text", ten, "1\n2\n3\n4\n5\n6\nx\n8\n9\n10\n", "@@ line 4 @@\n 4\n 5\n 6\n-7\n+x\n 8\n 9\n 10\n"},
      {"six lines apart are one group", ten, "1\nx\n3\n4\n5\n6\n7\n8\ny\n10\n",
       "@@ line 1 @@\n 1\n-2\n+x\n 3\n 4\n 5\n 6\n 7\n 8\n-9\n+y\n 10\n"},
      {"seven lines apart are two", ten, "x\n2\n3\n4\n5\n6\n7\n8\ny\n10\n",
       "@@ line 1 @@\n-1\n+x\n 2\n 3\n 4\n@@ line 6 @@\n 6\n 7\n 8\n-9\n+y\n 10\n"},
      {"a line that comes twice", "a\na\nb\n", "a\nb\n", "@@ line 1 @@\n a\n-a\n b\n"},
      {"a line that moves", "a\nb\nc\n", "b\nc\na\n", "@@ line 1 @@\n-a\n b\n c\n+a\n"},
  };
  for (const DiffCase& row : cases) EXPECT_EQ(lineDiff(row.before, row.after), row.shown) << row.description;
}

using Lines = std::vector<std::string>;

Lines linesOf(std::string_view text) {
  Lines lines;
  while (!text.empty()) {
    const std::size_t size = std::min(text.find('\n'), text.size() - 1) + 1;
    lines.emplace_back(text.substr(0, size));
    text.remove_prefix(size);
  }
  return lines;
}

/// What is shown, read back.
struct Shown {
  struct Step {
    char sign;
    std::string line;
  };
  struct Group {
    std::size_t line = 0;  // from 1
    std::vector<Step> steps;
  };
  std::vector<Group> groups;

  explicit Shown(std::string_view text) {
    constexpr std::string_view begin = "@@ line ";
    for (const std::string& line : linesOf(text)) {
      if (line[0] == '@') {
        groups.emplace_back();
        std::from_chars(line.data() + begin.size(), line.data() + line.size(), groups.back().line);
      } else if (line[0] == '\\') {
        groups.back().steps.back().line.pop_back();
      } else {
        groups.back().steps.push_back({line[0], line.substr(1)});
      }
    }
  }

  /// The text that it makes of another; nothing where it shows a line that is not there.
  std::optional<std::string> applied(const Lines& old) const {
    std::string text;
    std::size_t at = 0;
    for (const Group& group : groups) {
      if (group.line < at + 1 || group.line > old.size() + 1) return std::nullopt;
      while (at + 1 < group.line) text += old[at++];
      for (const Step& step : group.steps) {
        if (step.sign != '+' && (at == old.size() || old[at++] != step.line)) return std::nullopt;
        if (step.sign != '-') text += step.line;
      }
    }
    while (at < old.size()) text += old[at++];
    return text;
  }

  std::size_t changes() const {
    std::size_t count = 0;
    for (const Group& group : groups) {
      for (const Step& step : group.steps) count += step.sign != ' ' ? 1 : 0;
    }
    return count;
  }

  /// Whether each group has a change, and each unchanged line of it one at most three lines away.
  bool isTight() const {
    for (const Group& group : groups) {
      std::ptrdiff_t end = 0;  // of the lines that are near a change before them
      std::ptrdiff_t waiting = 0;
      bool hasChange = false;
      for (std::ptrdiff_t at = 0; const Step& step : group.steps) {
        if (step.sign != ' ') {
          end = at + 4;
          waiting = 0;
          hasChange = true;
        } else if (at >= end) {
          ++waiting;
        }
        if (waiting > 3) return false;
        ++at;
      }
      if (!hasChange || waiting > 0) return false;
    }
    return true;
  }
};

/// The fewest lines that must go and come, by the textbook's table.
std::size_t fewestChanges(const Lines& old, const Lines& fresh) {
  std::vector<std::size_t> common(fresh.size() + 1);
  for (const std::string& line : old) {
    std::size_t diagonal = 0;
    for (std::size_t i = 0; i < fresh.size(); ++i) {
      const std::size_t above = common[i + 1];
      common[i + 1] = line == fresh[i] ? diagonal + 1 : std::max(above, common[i]);
      diagonal = above;
    }
  }
  return old.size() + fresh.size() - 2 * common.back();
}

std::string aText(std::size_t most, std::size_t kinds, std::mt19937_64& random) {
  std::string text;
  for (std::size_t count = tests::below(most + 1, random); count > 0; --count) {
    text += std::string(1, static_cast<char>('a' + tests::below(kinds, random))) + "\n";
  }
  if (!text.empty() && tests::below(3, random) == 0) text.pop_back();
  return text;
}

TEST(LineDiff, makesTheNewTextOfTheOldWithTheFewestChanges) {
  std::mt19937_64 random = tests::seededGenerator();
  for (int i = 0; i < 5000; ++i) {
    const std::size_t kinds = 1 + tests::below(5, random);
    const std::string before = aText(24, kinds, random);
    const std::string after = aText(24, kinds, random);
    SCOPED_TRACE(::testing::PrintToString(before) + " to " + ::testing::PrintToString(after));
    const Shown shown(lineDiff(before, after));
    ASSERT_EQ(shown.applied(linesOf(before)), after);
    ASSERT_EQ(shown.changes(), fewestChanges(linesOf(before), linesOf(after)));
    ASSERT_TRUE(shown.isTight());
  }
}

// So many pairs of lines are not compared: all from the first change to the last are shown as changed.
TEST(LineDiff, showsMoreThanNeedBeWhereTextsHaveLittleInCommon) {
  for (const std::size_t pairs : {250U, 400U, 2000U}) {
    std::string before = "first\n", after = "first\n";
    for (std::size_t i = 0; i < pairs; ++i) {
      before.append("old ").append(std::to_string(i)).append("\nsame\n");
      after.append("new ").append(std::to_string(i)).append("\nsame\n");
    }
    before += "last";
    after += "last";
    const Shown shown(lineDiff(before, after));
    EXPECT_EQ(shown.applied(linesOf(before)), after) << pairs;
    EXPECT_EQ(shown.changes(), pairs <= 400 ? 2 * pairs : 2 * (2 * pairs - 1)) << pairs;
    EXPECT_TRUE(shown.isTight()) << pairs;
  }
}

TEST(LineDiff, showsAChangeInALongText) {
  std::string before, after;
  for (int i = 0; i < 200'000; ++i) {
    before.append(std::to_string(i)).append("\n");
    after.append(std::to_string(i)).append(i == 100'000 ? " changed\n" : "\n");
  }
  EXPECT_EQ(lineDiff(before, after),
            "@@ line 99998 @@\n 99997\n 99998\n 99999\n-100000\n+100000 changed\n 100001\n 100002\n 100003\n");
}

std::string numbered(int first, int end, const char* behind = "\n") {
  std::string text;
  for (int i = first; i < end; ++i) text.append(std::to_string(i)).append(behind);
  return text;
}

TEST(LineDiff, showsLinesThatMoveThroughALongText) {
  const std::string before = "a\nb\n" + numbered(0, 90'000);
  const std::string after = numbered(0, 90'000) + "a\nb\n";
  EXPECT_EQ(lineDiff(before, after),
            "@@ line 1 @@\n-a\n-b\n 0\n 1\n 2\n@@ line 90000 @@\n 89997\n 89998\n 89999\n+a\n+b\n");
}

// What would take a search hours ends as soon as it is known to be of no use.
TEST(LineDiff, endsForTextsOfEverySize) {
  const std::string line(5'000'000, 'x');
  std::string twice, shuffled;
  for (int i = 0; i < 60'000; ++i) {
    twice.append(std::to_string(i / 2)).append("\n");
    shuffled.append(std::to_string(i * 7'919LL % 60'000)).append("\n");
  }
  std::string longLines, longerLines;
  for (int i = 0; i < 40; ++i) {
    longLines.append(100'000, 'x').append(std::to_string(i)).append("\n");
    longerLines.append(100'000, 'x').append(std::to_string(i * 3 % 40)).append("\n");
  }
  const struct {
    const char* description;
    std::string before;
    std::string after;
  } cases[] = {
      {"one long line", line + "1", line + "2"},
      {"long lines that differ in their last characters", longLines, longerLines},
      {"all lines differ", numbered(0, 100'000), numbered(0, 100'000, " x\n")},
      {"more lines than are compared", numbered(0, 150'000), numbered(0, 150'000, " x\n")},
      {"nearly all lines come", "10\nx\n", numbered(0, 150'000)},
      {"nearly all lines go", numbered(0, 150'000), "10\nx\n"},
      {"all lines moved", numbered(0, 60'000), shuffled},
      {"every second line comes again", numbered(0, 60'000), twice},
  };
  for (const auto& row : cases) {
    const Shown shown(lineDiff(row.before, row.after));
    EXPECT_TRUE(shown.applied(linesOf(row.before)) == row.after) << row.description;
    EXPECT_TRUE(shown.isTight()) << row.description;
  }
}

}  // namespace
}  // namespace kelvane
