#include "program/changes/TextChanges.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/support/Random.h"

namespace kelvane::tests {
namespace {

/// One line for each line, its changed parts in brackets, "\\" behind a last line without a line feed.
std::string shown(const std::vector<TextLine>& lines) {
  std::string text;
  for (const TextLine& line : lines) {
    text.append(1, line.sign).append(std::to_string(line.number)).append(" ");
    for (const LinePart& part : line.parts) {
      text.append(part.isChanged ? "[" : "").append(part.text).append(part.isChanged ? "]" : "");
    }
    text.append(line.isCutOff ? "\\\n" : "\n");
  }
  return text;
}

TEST(TextChanges, marksTheWordsThatDiffer) {
  const struct {
    const char* what;
    std::string old, fresh, changes;
  } cases[] = {
      {"two empty texts", "", "", ""},
      {"equal texts", "a\nb\n", "a\nb\n", " 1 a\n 2 b\n"},
      {"a word", "one two three\n", "one 2 three\n", "-1 one [two] three\n+1 one [2] three\n"},
      {"a word more", "one three\n", "one two three\n", "-1 one three\n+1 one [two ]three\n"},
      {"a comma", "Well then.\n", "Well, then.\n", "-1 Well then.\n+1 Well[,] then.\n"},
      {"a word of another script", "das schöne Haus\n", "das große Haus\n",
       "-1 das [schöne] Haus\n+1 das [große] Haus\n"},
      {"a line more", "a\nc\n", "a\nb\nc\n", " 1 a\n+2 b\n 3 c\n"},
      {"a line less", "a\nb\nc\n", "a\nc\n", " 1 a\n-2 b\n 2 c\n"},
      {"lines with little in common", "the quick brown fox jumps\n", "nobody knew what had happened to the ship\n",
       "-1 the quick brown fox jumps\n+1 nobody knew what had happened to the ship\n"},
      {"a line that is broken in two", "one two three four\n", "one two\nthree four\n",
       "-1 one two[ ]three four\n+1 one two\n+2 three four\n"},
      {"no line feed at the end", "a", "b", "-1 a\\\n+1 b\\\n"},
      {"a line feed added at the end", "a b", "a b\n", "-1 a b\\\n+1 a b\n"},
      {"everything comes", "", "a\nb", "+1 a\n+2 b\\\n"},
      {"everything goes", "a\nb\n", "", "-1 a\n-2 b\n"},
      {"empty lines", "\n\n", "\n", " 1 \n-2 \n"},
      {"a carriage return", "a b\r\n", "a b\n", "-1 a b[\r]\n+1 a b\n"},
  };
  for (const auto& [what, old, fresh, changes] : cases) EXPECT_EQ(shown(textChanges(old, fresh)), changes) << what;
}

// A paragraph of which every other word changes, so that the words of both take almost a million comparisons.
std::string paragraph(std::string_view changing) {
  std::string words;
  for (int i = 0; i < 900; ++i) {
    words.append("w").append(std::to_string(i)).append(" ").append(changing).append(std::to_string(i)).append(" ");
  }
  return words.append("\n");
}

TEST(TextChanges, compareWordsUntilAllParagraphsTogetherHaveTakenTooLong) {
  const auto markedLines = [](const std::string& old, const std::string& fresh) {
    std::string numbers;
    for (const TextLine& line : textChanges(old, fresh)) {
      if (line.sign == '+' && line.parts.size() > 1) numbers.append(std::to_string(line.number)).append(" ");
    }
    return numbers;
  };
  const std::string old = paragraph("a");
  const std::string fresh = paragraph("b");
  EXPECT_EQ(markedLines(old, fresh), "1 ");
  EXPECT_EQ(markedLines(old + "same\n" + old + "same\none two\n", fresh + "same\n" + fresh + "same\none 2\n"), "1 5 ")
      << "the second takes too long, and a change in one place needs no comparison";
}

TEST(TextChanges, areEachTextWithoutTheLinesOfTheOther) {
  std::mt19937_64 random = seededGenerator();
  const auto text = [&] {
    std::string words;
    for (int count = static_cast<int>(random() % 40); count > 0; --count) {
      const char* pieces[] = {"a", "b", "word", " ", " ", "\n", ", ", "ü", "\x80", "\r\n"};
      words += pieces[random() % std::size(pieces)];
    }
    return words;
  };
  for (int round = 0; round < 3000; ++round) {
    const std::string old = text();
    const std::string fresh = text();
    std::string oldAgain;
    std::string freshAgain;
    for (const TextLine& line : textChanges(old, fresh)) {
      std::string whole;
      for (const LinePart& part : line.parts) whole.append(part.text);
      if (!line.isCutOff) whole.push_back('\n');
      if (line.sign != '+') oldAgain += whole;
      if (line.sign != '-') freshAgain += whole;
    }
    ASSERT_EQ(oldAgain, old);
    ASSERT_EQ(freshAgain, fresh);
  }
}

TEST(TextChanges, showsSomeLinesAroundEachChange) {
  const auto lines = textChanges("1\n2\n3\n4\n5\n6\n", "1\n2\nx\n4\n5\n6\n");
  const std::vector<bool> shown = linesToShow(lines, 1);
  EXPECT_EQ(shown, (std::vector<bool>{false, true, true, true, true, false, false}));
}

}  // namespace
}  // namespace kelvane::tests
