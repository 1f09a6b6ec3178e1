#include <gtest/gtest.h>

#include "platform/Unicode.h"
#include "tests/platform/unicode/UnicodeFiles.h"
#include "tests/support/Random.h"

namespace kelvane::unicode {
namespace {

using namespace kelvane::tests;

TEST(WhiteSpace, eachScalarIsWhiteSpaceOrNotAsUnicodeSays) {
  const auto expected = scalarsWith("White_Space", "PropList.txt");
  if (!expected) GTEST_SKIP() << noUnicodeFiles;
  ASSERT_EQ(std::count(expected->begin(), expected->end(), true), 25);
  for (char32_t scalar = 0; scalar <= lastScalar; ++scalar) {
    if (!isScalar(scalar)) continue;
    const bool white = (*expected)[scalar];
    const std::string text = utf8(scalar);
    ASSERT_EQ(startsWithWhiteSpace(text), white) << spelled({&scalar, 1});
    ASSERT_EQ(startsWithWhiteSpace(text + "a"), white) << spelled({&scalar, 1});
    ASSERT_EQ(trimmingWhiteSpace(text), white ? "" : text) << spelled({&scalar, 1});
    ASSERT_EQ(wordCount(text), white ? 0u : 1u) << spelled({&scalar, 1});
  }
}

TEST(WhiteSpace, tabsAndSpaceSeparatorsAreTrimmedAndNoOtherScalars) {
  const auto lines = unicodeFile("UnicodeData.txt");
  if (!lines) GTEST_SKIP() << noUnicodeFiles;
  std::vector<bool> isTrimmed(lastScalar + 1);
  isTrimmed['\t'] = true;
  for (const std::string& line : *lines) {
    if (fields(line).at(2) == "Zs") isTrimmed[scalars(fields(line)[0]).at(0)] = true;
  }
  ASSERT_EQ(std::count(isTrimmed.begin(), isTrimmed.end(), true), 18);
  for (char32_t scalar = 0; scalar <= lastScalar; ++scalar) {
    if (!isScalar(scalar)) continue;
    const std::string text = utf8(scalar);
    ASSERT_EQ(trimmingSpacesAndTabs(text + "a" + text), isTrimmed[scalar] ? "a" : text + "a" + text)
        << spelled({&scalar, 1});
  }
}

TEST(WhiteSpace, trimsBothEnds) {
  const struct {
    const char* what;
    std::string text, withoutWhiteSpace, withoutSpacesAndTabs;
  } rows[] = {
      {"nothing", "", "", ""},
      {"nothing but spaces", " \t \u00A0\u3000", "", ""},
      {"nothing but line breaks", "\r\n\n\u2028", "", "\r\n\n\u2028"},
      {"a word", "a", "a", "a"},
      {"spaces at both ends", " \t a b\t ", "a b", "a b"},
      {"line breaks at both ends", "\r\n a \n", "a", "\r\n a \n"},
      {"a space within a line break stays", " \n a", "a", "\n a"},
      {"a CR stays a CR", "a\r", "a", "a\r"},
      {"space separators", "\u1680\u2000\u200A\u202F\u205F\u3000a\u3000\u00A0", "a", "a"},
      {"no separators", "\u200B a \uFEFF", "\u200B a \uFEFF", "\u200B a \uFEFF"},
      {"a space with an accent is white space as a whole, and a space alone", " \u0301a \u0301", "a", "\u0301a \u0301"},
      {"with many accents", " \u0301\u0302\u200Da \u0301\u0302\u200D", "a", "\u0301\u0302\u200Da \u0301\u0302\u200D"},
      {"a line break takes no accent", "\n\u0301a\n\u0301", "\u0301a\n\u0301", "\n\u0301a\n\u0301"},
      {"CR LF takes none", "a\r\n\u0301", "a\r\n\u0301", "a\r\n\u0301"},
      {"a number sign draws the space in", "a\u0600 ", "a\u0600 ", "a\u0600"},
      {"but not the second one", "a\u0600  ", "a\u0600 ", "a\u0600"},
      {"and its accent", "a\u0600 \u0301 ", "a\u0600 \u0301", "a\u0600 \u0301"},
      {"an accent ends that", "\u0600\u0301 ", "\u0600\u0301", "\u0600\u0301"},
      {"a number sign behind spaces", " \u0600 ", "\u0600 ", "\u0600"},
      {"ill-formed bytes are not white space", " \xC2 \xA0 ", "\xC2 \xA0", "\xC2 \xA0"},
      {"a space behind an ill-formed part", "\xE3\x80\u3000", "\xE3\x80", "\xE3\x80"},
      {"accents alone", "\u0301\u0302", "\u0301\u0302", "\u0301\u0302"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(trimmingWhiteSpace(row.text), row.withoutWhiteSpace) << row.what;
    EXPECT_EQ(trimmingSpacesAndTabs(row.text), row.withoutSpacesAndTabs) << row.what;
  }
}

TEST(WhiteSpace, trimmingReturnsAPartOfTheString) {
  const std::string_view text = "  a  ";
  EXPECT_EQ(trimmingWhiteSpace(text).data(), text.data() + 2);
  EXPECT_EQ(trimmingSpacesAndTabs(text).data(), text.data() + 2);
}

TEST(WhiteSpace, trimsWhiteSpaceByWholeCharacters) {
  std::mt19937_64 generator = seededGenerator();
  const std::string pieces[] = {" ",      " ",        "\n",     "\r\n",   "\t",     "\u00A0", "\u3000",
                                "\u2028", "\u0301",   "\u200D", "\u0903", "\u0600", "a",      "é",
                                "\u200B", "\xE3\x80", "\x80",   "👩",      "🇫"};
  for (int round = 0; round < 50'000; ++round) {
    std::string text;
    for (std::size_t left = below(12, generator); left > 0; --left) text += oneOf(pieces, generator);
    // From the first character that is not white space up to the end of the last one.
    std::size_t begin = text.size(), end = text.size();
    for (std::size_t offset = 0; offset < text.size();) {
      const std::size_t next = characterEnd(text, offset);
      if (!startsWithWhiteSpace(std::string_view(text).substr(offset))) {
        begin = std::min(begin, offset);
        end = next;
      }
      offset = next;
    }
    if (begin == text.size()) end = begin;
    ASSERT_EQ(trimmingWhiteSpace(text), text.substr(begin, end - begin)) << ::testing::PrintToString(text);
  }
}

}  // namespace
}  // namespace kelvane::unicode
