#include <gtest/gtest.h>

#include <map>

#include "platform/Unicode.h"
#include "platform/unicode/Scalars.h"
#include "tests/platform/unicode/UnicodeFiles.h"

namespace kelvane::unicode {
namespace {

using namespace kelvane::tests;
using namespace std::string_literals;

/// The offsets at which the characters of a text end.
std::vector<std::size_t> ends(std::string_view text) {
  std::vector<std::size_t> result;
  for (std::size_t offset = 0; offset < text.size();) result.push_back(offset = characterEnd(text, offset));
  return result;
}

TEST(GraphemeClusters, eachRowOfUnicodesOwnTestHolds) {
  const auto lines = unicodeFile("auxiliary/GraphemeBreakTest.txt");
  if (!lines) GTEST_SKIP() << noUnicodeFiles;
  ASSERT_EQ(lines->size(), 602u);
  for (const std::string& line : *lines) {
    std::string text;
    std::vector<std::size_t> expected;
    for (std::size_t at = 0; at < line.size();) {
      const std::size_t end = std::min(line.find(' ', at), line.size());
      const std::string piece = line.substr(at, end - at);
      if (piece == "÷" && !text.empty()) expected.push_back(text.size());
      if (piece != "÷" && piece != "×") text += utf8(scalars(piece));
      at = end + 1;
    }
    EXPECT_EQ(ends(text), expected) << line;
    EXPECT_EQ(characterCount(text), expected.size()) << line;
  }
}

TEST(GraphemeClusters, eachScalarHasTheClassThatUnicodeGivesIt) {
  const std::map<std::string, BreakClass> classes = {
      {"CR", BreakClass::cr},
      {"LF", BreakClass::lf},
      {"Control", BreakClass::control},
      {"Extend", BreakClass::extend},
      {"ZWJ", BreakClass::zeroWidthJoiner},
      {"SpacingMark", BreakClass::spacingMark},
      {"Prepend", BreakClass::prepend},
      {"Regional_Indicator", BreakClass::regionalIndicator},
      {"L", BreakClass::hangulL},
      {"V", BreakClass::hangulV},
      {"T", BreakClass::hangulT},
      {"LV", BreakClass::hangulLV},
      {"LVT", BreakClass::hangulLVT},
      {"Extended_Pictographic", BreakClass::pictographic},
  };
  std::vector<BreakClass> expected(lastScalar + 1, BreakClass::other);
  for (const char* name : {"auxiliary/GraphemeBreakProperty.txt", "emoji/emoji-data.txt"}) {
    const auto lines = unicodeFile(name);
    if (!lines) GTEST_SKIP() << noUnicodeFiles;
    for (const std::string& line : *lines) {
      const auto found = classes.find(fields(line).at(1));
      if (found == classes.end()) continue;
      forEachScalar(fields(line)[0], [&](char32_t scalar) { expected[scalar] = found->second; });
    }
  }
  for (char32_t scalar = 0; scalar <= lastScalar; ++scalar) {
    if (!isScalar(scalar)) continue;
    ASSERT_EQ(breakClass(scalar), expected[scalar]) << spelled({&scalar, 1});
    const bool extends = expected[scalar] == BreakClass::extend || expected[scalar] == BreakClass::spacingMark ||
                         expected[scalar] == BreakClass::zeroWidthJoiner;
    ASSERT_EQ(isExtender(scalar), extends) << spelled({&scalar, 1});
    ASSERT_EQ(isPrepender(scalar), expected[scalar] == BreakClass::prepend) << spelled({&scalar, 1});
  }
}

TEST(GraphemeClusters, charactersEndWhereAReaderSeesTheirEnd) {
  const struct {
    const char* what;
    std::string text;
    std::vector<std::size_t> ends;
  } rows[] = {
      {"nothing", "", {}},
      {"letters", "abc", {1, 2, 3}},
      {"a letter and an accent", "ae\u0301b", {1, 4, 5}},
      {"CR LF is one, also between others", "a\r\nb", {1, 3, 4}},
      {"LF CR are two", "\n\r", {1, 2}},
      {"CR at the end", "a\r", {1, 2}},
      {"CR LF with an accent behind", "\r\n\u0301", {2, 4}},
      {"an accent at the start", "\u0301a", {2, 3}},
      {"a NUL and an accent", "\0\u0301"s, {1, 3}},
      {"an Arabic number sign draws in what follows", "\u0600\u0600 b", {5, 6}},
      {"but no line break", "\u0600\n", {2, 3}},
      {"a space and an accent", " \u0301 ", {3, 4}},
      {"two flags", "🇫🇷🇯🇵", {8, 16}},
      {"half a flag behind one", "🇫🇷🇯a", {8, 12, 13}},
      {"a flag behind a number sign", "\u0600🇫🇷🇯", {10, 14}},
      {"an accent parts a pair", "🇫\u0301🇷🇯🇵", {6, 14, 18}},
      {"a family", "👨‍👩‍👧👦", {18, 22}},
      {"a skin tone and a joiner", "👩🏽‍🚀!", {15, 16}},
      {"two joiners join nothing", "👩\u200D\u200D🚀", {10, 14}},
      {"a joiner behind a letter joins nothing", "a\u200D🚀", {4, 8}},
      {"a spacing mark ends what a joiner joins", "👩\u0903\u200D🚀", {10, 14}},
      {"an emoji to come holds together already", "\U0001FAE9\u200D\U0001FADF", {11}},
      {"Hangul from Jamo", "\u1112\u1161\u11AB\u1100", {9, 12}},
      {"Hangul syllables take vowels and finals that fit", "가\u1161\u11A8각\u1161", {9, 12, 15}},
      {"an ill-formed part is a character", "a\xE3\x81z\xFF\xFF", {1, 3, 4, 5, 6}},
      {"and takes an accent", "\xFF\u0301", {3}},
      {"and joins none", "e\xCC", {1, 2}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ends(row.text), row.ends) << row.what;
    EXPECT_EQ(characterCount(row.text), row.ends.size()) << row.what;
  }
}

TEST(GraphemeClusters, findsTheEndOfACharacterFromItsStartAlone) {
  EXPECT_EQ(characterEnd("ae\u0301b", 1), 4u);
  EXPECT_EQ(characterEnd("🇫🇷🇯🇵", 4), 12u) << "asked for in the midst of a flag, the flag starts there";
}

TEST(GraphemeClusters, oneCharacterMayBeAsLongAsTheText) {
  std::string text = "e";
  for (int count = 0; count < 500'000; ++count) text += "\u0301";
  EXPECT_EQ(characterEnd(text, 0), text.size());
  EXPECT_EQ(characterCount(text), 1u);
}

}  // namespace
}  // namespace kelvane::unicode
