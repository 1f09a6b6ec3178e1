#include <gtest/gtest.h>

#include "platform/Unicode.h"
#include "platform/unicode/ByteBlock.h"
#include "tests/platform/unicode/UnicodeFiles.h"
#include "tests/support/Random.h"

namespace kelvane::unicode {
namespace {

using namespace kelvane::tests;

/// The number of words by their definition, counted character by character.
std::size_t wordsByCharacters(std::string_view text) {
  std::size_t words = 0;
  bool inWord = false;
  for (std::size_t offset = 0; offset < text.size(); offset = characterEnd(text, offset)) {
    const bool white = startsWithWhiteSpace(text.substr(offset));
    if (!white && !inWord) ++words;
    inWord = !white;
  }
  return words;
}

TEST(WordCount, wordsAreRunsOfCharactersThatAreNotWhiteSpace) {
  const struct {
    const char* what;
    std::string text;
    std::size_t words;
  } rows[] = {
      {"nothing", "", 0},
      {"white space alone", "  \n", 0},
      {"spaces and a line break", "one  two\nthree", 3},
      {"white space at the ends", "\t one \r\n", 1},
      {"every ASCII white space", "a\tb\nc\vd\fe\rf g", 7},
      {"controls that are none",
       "a\x1C"
       "b\x1F"
       "c\x7F"
       "d",
       1},
      {"a NUL is part of a word", std::string("a\0b", 3), 1},
      {"CR LF", "a\r\nb", 2},
      {"a no-break space", "a\u00A0b", 2},
      {"an ideographic space", "一\u3000二", 2},
      {"a next line", "a\u0085b", 2},
      {"line and paragraph separators", "a\u2028b\u2029c", 3},
      {"the other space separators", "a\u1680b\u2000c\u200Ad\u202Fe\u205Ff", 6},
      {"a zero-width space is none", "a\u200Bb", 1},
      {"nor is a byte-order mark", "\uFEFF", 1},
      {"a space with an accent is white space", "a \u0301b", 2},
      {"and no word of its own", "a \u0301 b", 2},
      {"nor behind a no-break space", "a\u00A0\u0301\u200D b", 2},
      {"an accent behind a line break is a word", "a\n\u0301 b", 3},
      {"an accent at the start is a word", "\u0301", 1},
      {"a number sign draws the space into its word", "a\u0600 b", 1},
      {"but not the line break", "a\u0600\nb", 2},
      {"nor a second space", "a\u0600  b", 2},
      {"a number sign alone with a space", "\u0600 ", 1},
      {"dashes are words where they stand alone", "one — two", 3},
      {"Japanese without spaces", "吾輩は猫である。名前はまだ無い。", 1},
      {"ill-formed bytes are a word", "a \xFF b", 3},
      {"half a no-break space",
       "a\xC2"
       "b",
       1},
      {"half an ideographic space",
       "a\xE3\x80"
       "b",
       1},
      {"one with a byte too many", "a\u3000\x80", 2},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(wordCount(row.text), row.words) << row.what;
    EXPECT_EQ(wordsByCharacters(row.text), row.words) << row.what;
    // The same at every offset in a block.
    for (std::size_t before = 0; before <= 130; ++before) {
      const std::string text = std::string(before, 'x') + "\n" + row.text + "\n" + std::string(200 - before, 'y');
      ASSERT_EQ(wordCount(text), row.words + (before > 0) + 1) << row.what << ", behind " << before;
    }
  }
}

TEST(WordCount, countsTheWordsThatTheCharactersForm) {
  std::mt19937_64 generator = seededGenerator();
  const std::string prose[] = {"a", "word", " ", " ", "\n", "é", "’", "日本", "、", "\u3000", "\u00A0", "—", "слово"};
  const std::string odd[] = {"\u0301", "\u0903", "\u200D", "\u0600", "\U000110BD", "\u200B",
                             "\u2028", "\u0085", "\u205F", "\u1680", "\r\n",       "\t",
                             "🇫🇷",     "👩",      "\uD55C", "\u1161", "\u2065"};
  const std::string illFormed[] = {"\x80",     "\xBF\x80\x80", "\xC2", "\xE3", "\xE3\x80",
                                   "\xE2\x80", "\xF0\x9F\x98", "\xA0", "\x85", "\xFF"};
  for (int round = 0; round < 30'000; ++round) {
    const std::size_t kind = below(4, generator);
    std::string text;
    for (std::size_t left = below(160, generator); left > 0; --left) {
      const bool rare = kind == 3 || below(30, generator) == 0;
      text += kind >= 2 && rare && below(2, generator) == 0 ? oneOf(illFormed, generator)
              : kind >= 1 && rare                           ? oneOf(odd, generator)
              : kind == 0                                   ? prose[below(5, generator)]
                                                            : oneOf(prose, generator);
    }
    ASSERT_EQ(wordCount(text), wordsByCharacters(text)) << ::testing::PrintToString(text);
    const std::string_view part = std::string_view(text).substr(below(text.size() + 1, generator));
    ASSERT_EQ(wordCount(part), wordsByCharacters(part)) << ::testing::PrintToString(part);
  }
}

TEST(WordCount, countsALongText) {
  std::string text;
  for (int count = 0; count < 100'000; ++count) text += "twelve words, ";
  EXPECT_EQ(wordCount(text), 200'000u);
  for (int count = 0; count < 100'000; ++count) text += " \u0301";
  EXPECT_EQ(wordCount(text), 200'000u) << "spaces with accents";
  for (int count = 0; count < 100'000; ++count) text += "\u0600 ";
  EXPECT_EQ(wordCount(text), 200'001u) << "number signs with spaces";
}

TEST(ByteBlock, eachBitSaysWhatItsByteIs) {
  std::mt19937_64 generator = seededGenerator();
  const unsigned char chosen[] = {0xC2, 0x85, 0xA0, 0xE1, 0x9A, 0x80, 0xE2, 0x81, 0x9F, 0xE3, 0xA8, 0xAF, ' '};
  for (int round = 0; round < 20'000; ++round) {
    unsigned char bytes[ByteBlock::size];
    for (unsigned char& byte : bytes) {
      byte = below(2, generator) == 0 ? oneOf(chosen, generator) : static_cast<unsigned char>(below(256, generator));
    }
    const ByteBlock block(reinterpret_cast<const char*>(bytes));
    for (std::size_t at = 0; at < ByteBlock::size; ++at) {
      const auto bit = [&](std::uint64_t bits) { return (bits >> at & 1) != 0; };
      ASSERT_EQ(bit(block.nonASCII()), bytes[at] >= 0x80);
      ASSERT_EQ(bit(block.whiteSpace()), bytes[at] == ' ' || (bytes[at] >= 9 && bytes[at] <= 13));
      if (at + 3 > ByteBlock::size) continue;
      const std::string_view rest(reinterpret_cast<const char*>(bytes) + at, 3);
      if (bytes[at] >= 0x80 && startsWithWhiteSpace(rest)) {
        ASSERT_TRUE(bit(block.whiteSpaceLeads())) << ::testing::PrintToString(rest);
      }
      ASSERT_FALSE(bytes[at] < 0xC2 && bit(block.whiteSpaceLeads()));
    }
  }
}

}  // namespace
}  // namespace kelvane::unicode
