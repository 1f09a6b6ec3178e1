#include "quorvel/core/Lines.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "tests/quorvel/core/Texts.h"

namespace quorvel {
namespace {

using tests::shown;

TEST(Lines, endInALineFeed) {
  struct Row {
    const char* text;
    std::size_t begin;
    std::size_t end;
    std::size_t finalBreak;  // of the line
  };
  constexpr Row rows[] = {{"", 0, 0, 0},       {"a", 0, 1, 0},      {"a\nb", 0, 2, 1}, {"a\nb", 2, 3, 0},
                          {"a\r\nb", 0, 3, 2}, {"a\rb\n", 0, 4, 1}, {"\n\n", 1, 2, 1}, {"a\r", 0, 2, 0}};
  for (const Row& row : rows) {
    SCOPED_TRACE(shown(row.text));
    const std::size_t end = lineEnd(row.text, row.begin);
    EXPECT_EQ(end, row.end);
    EXPECT_EQ(finalBreakSize(std::string_view(row.text).substr(0, end)), row.finalBreak);
  }
}

TEST(Lines, useTheMoreFrequentLineBreak) {
  struct Row {
    const char* text;
    const char* lineBreak;
  };
  constexpr Row rows[] = {{"", "\n"},
                          {"a", "\n"},
                          {"\r\r", "\n"},
                          {"a\n", "\n"},
                          {"a\r\n", "\r\n"},
                          {"\n\r\n", "\n"},
                          {"\n\r\n\r\n", "\r\n"},
                          {"\r\n\n\n", "\n"},
                          {"\n\n\r\n\r\n", "\n"},
                          {"\r\r\n", "\r\n"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(shown(row.text));
    EXPECT_EQ(shown(ownLineBreak(row.text)), shown(row.lineBreak));
  }
}

TEST(Lines, ofAGivenTextGetTheScriptsLineBreak) {
  struct Row {
    const char* given;
    const char* inCRLF;  // in a script with CR LF; in one with LF it stays
  };
  constexpr Row rows[] = {{"", ""},
                          {"a", "a"},
                          {"\n", "\r\n"},
                          {"\n\n", "\r\n\r\n"},
                          {"a\nb", "a\r\nb"},
                          {"\na\n\nb\n", "\r\na\r\n\r\nb\r\n"},
                          {"a\rb\n\r", "a\rb\r\n\r"},
                          {"a\nb\r\n", "a\nb\r\n"},
                          {"\r\n\n", "\r\n\n"},
                          {"\xFF\n", "\xFF\r\n"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(shown(row.given));
    EXPECT_EQ(shown(inLineBreaks(row.given, "\r\n")), shown(row.inCRLF));
    EXPECT_EQ(shown(inLineBreaks(row.given, "\n")), shown(row.given));
  }
}

TEST(Lines, countTheBreaksMissingForAnEmptyLine) {
  struct Row {
    std::string text;
    std::size_t missing;
  };
  const Row rows[] = {
      {"", 0},
      {"a", 2},
      {"a\n", 1},
      {"a\n\n", 0},
      {"a\n\n\n", 0},
      {"a\r\n", 1},
      {"a\r\n\r\n", 0},
      {"a\n ", 1},
      {"a\n \n", 0},
      {"\n", 0},
      {" ", 1},
      {" \n", 0},
      {"a\r", 2},
      {"a\n\r", 1},
      {"\xEF\xBB\xBF", 0},
      {"\xEF\xBB\xBF\n", 0},
      {"\n\xEF\xBB\xBF\n", 1},
      {"a\n\xE3\x80\x80\xC2\x85\n", 0},
      {"a\n \xCC\x81\n", 1},
      {"a\n\x85\n", 1},
      {"a\n\xE3\x80\n", 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(shown(row.text));
    EXPECT_EQ(missingBreaks(row.text), row.missing);
  }
}

TEST(Lines, endAPassageAtTheLastLineThatIsNotEmpty) {
  struct Row {
    std::string text;
    std::string withoutEmptyLinesAtEnd;
    std::string passage;
  };
  const Row rows[] = {
      {"", "", ""},
      {" ", "", ""},
      {" \n\t\r\n", "", ""},
      {"\xE3\x80\x80\n\xC2\x85", "", ""},
      {"a", "a", "a"},
      {" a \n", " a ", " a "},
      {"\n \n a\n\n b \n \n", "\n \n a\n\n b ", " a\n\n b "},
      {"\r\na\r\n\r\n", "\r\na", "a"},
      {"a\r", "a", "a"},
      {"a \r\r\n", "a ", "a "},
      {"a\r \n", "a\r ", "a\r "},
      {"# \n", "# ", "# "},
      {"x\n#", "x\n#", "x\n#"},
      {" \xCC\x81\n", " \xCC\x81", " \xCC\x81"},
      {"a\n\x85\n", "a\n\x85", "a\n\x85"},
      {"a\n\x80\x80\xE3\x80\x80\n", "a\n\x80\x80\xE3\x80\x80", "a\n\x80\x80\xE3\x80\x80"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(shown(row.text));
    EXPECT_EQ(shown(withoutEmptyLinesAtEnd(row.text)), shown(row.withoutEmptyLinesAtEnd));
    EXPECT_EQ(shown(passage(row.text)), shown(row.passage));
  }
}

}  // namespace
}  // namespace quorvel
