#include "platform/unicode/UTF8.h"

#include <gtest/gtest.h>

#include "platform/Unicode.h"
#include "tests/platform/unicode/UnicodeFiles.h"
#include "tests/support/Random.h"

namespace kelvane::unicode {
namespace {

using namespace kelvane::tests;
using namespace std::string_literals;

TEST(UTF8, illFormedPartsAreFoundAndReplaced) {
  const struct {
    const char* what;
    std::string text;
    std::size_t valid;
    std::string replaced;
  } rows[] = {
      {"nothing", "", 0, ""},
      {"ASCII, NUL too", "a\0b\x7F"s, 4, "a\0b\x7F"s},
      {"the first and last of each length", "\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF", 18,
       "\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF"},
      {"around the surrogates", "\uD7FF\uE000", 6, "\uD7FF\uE000"},
      {"U+FFFD itself is well-formed", "\uFFFD", 3, "\uFFFD"},
      {"a continuation byte alone", "a\x80z", 1, "a\uFFFDz"},
      {"three of them", "\x80\xBF\x80", 0, "\uFFFD\uFFFD\uFFFD"},
      {"bytes that never occur", "\xC0\xC1\xF5\xFE\xFF", 0, "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"overlong forms of two bytes", "\xC0\xAF\xC1\xBF", 0, "\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"an overlong form of three bytes", "\xE0\x9F\xBF", 0, "\uFFFD\uFFFD\uFFFD"},
      {"an overlong form of four bytes", "\xF0\x8F\xBF\xBF", 0, "\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"surrogates", "\xED\xA0\x80\xED\xBF\xBF", 0, "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"above U+10FFFF", "\xF4\x90\x80\x80", 0, "\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"two bytes cut to one, at the end", "ab\xC3", 2, "ab\uFFFD"},
      {"three bytes cut to two, at the end", "\xE2\x82", 0, "\uFFFD"},
      {"three bytes cut to one", "\xE2z", 0, "\uFFFDz"},
      {"four bytes cut to three", "\xF0\x9F\x98z", 0, "\uFFFDz"},
      {"four bytes cut to two, at the end", "\xF0\x9F", 0, "\uFFFD"},
      {"a sequence cut by the next", "\xE3\x81\xE3\x81\x82", 0, "\uFFFDあ"},
      {"the row of the Standard's table of truncated sequences", "\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41", 0,
       "\uFFFD\uFFFD\uFFFD\uFFFD\x41"},
      {"the row of the Standard's table of other ill-formed ones", "\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42", 0,
       "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\x41\uFFFD\uFFFD\x42"},
      {"well-formed text goes on behind", "é\xFF日本\xC3語", 2, "é\uFFFD日本\uFFFD語"},
      {"one continuation byte too many", "é\xA9", 2, "é\uFFFD"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(validUTF8Prefix(row.text), row.valid) << row.what;
    EXPECT_EQ(isValidUTF8(row.text), row.valid == row.text.size()) << row.what;
    EXPECT_EQ(replacingInvalidUTF8(row.text), row.replaced) << row.what;
    // The same after texts of every length around the size of a block.
    for (std::size_t before = 1; before <= 80; ++before) {
      const std::string filler(before, 'x');
      ASSERT_EQ(validUTF8Prefix(filler + row.text), before + row.valid) << row.what << ", behind " << before;
      ASSERT_EQ(replacingInvalidUTF8(filler + row.text), filler + row.replaced) << row.what << ", behind " << before;
    }
  }
}

TEST(UTF8, readsEachScalarInBothDirectionsAndWritesIt) {
  for (char32_t scalar = 0; scalar <= lastScalar; ++scalar) {
    if (!isScalar(scalar)) continue;
    const std::string expected = utf8(scalar);
    std::string text = "é";
    append(scalar, text);
    ASSERT_EQ(text, "é" + expected) << spelled({&scalar, 1});
    for (const Decoded& decoded : {decodedAt(text, 2), decodedBefore(text, text.size()), decodedAt(text + "é", 2)}) {
      ASSERT_TRUE(decoded.wellFormed) << spelled({&scalar, 1});
      ASSERT_EQ(decoded.scalar, scalar);
      ASSERT_EQ(decoded.size, expected.size());
    }
    ASSERT_TRUE(isValidUTF8(text));
    ASSERT_EQ(isASCII(expected), scalar < 0x80);
  }
}

TEST(UTF8, readsBackwardsAWellFormedScalarOrOneIllFormedByte) {
  const struct {
    const char* what;
    std::string text;
    char32_t scalar;
    std::size_t size;
  } rows[] = {
      {"a lead alone", "a\xE3", 0xFFFD, 1},
      {"a cut sequence", "\xE3\x81", 0xFFFD, 1},
      {"a continuation byte behind a scalar", "あ\x81", 0xFFFD, 1},
      {"five continuation bytes", "\x80\x80\x80\x80\x80", 0xFFFD, 1},
      {"an overlong form", "\xC0\xAF", 0xFFFD, 1},
      {"a scalar behind an ill-formed part", "\xF0\x9Fあ", U'あ', 3},
      {"U+FFFD itself", "\uFFFD", 0xFFFD, 3},
  };
  for (const auto& row : rows) {
    const Decoded decoded = decodedBefore(row.text, row.text.size());
    EXPECT_EQ(decoded.scalar, row.scalar) << row.what;
    EXPECT_EQ(decoded.size, row.size) << row.what;
    EXPECT_EQ(decoded.wellFormed, row.size == 3) << row.what;
  }
}

TEST(UTF8, findsTheFirstByteThatIsNotASCIIAtEveryOffset) {
  for (std::size_t size = 0; size <= 100; ++size) {
    std::string text(size, 'x');
    EXPECT_TRUE(isASCII(text));
    EXPECT_EQ(validUTF8Prefix(text), size);
    for (std::size_t at = 0; at < size; ++at) {
      for (const char byte : {'\x80', '\xFF'}) {
        text[at] = byte;
        ASSERT_FALSE(isASCII(text));
        for (std::size_t from = 0; from <= size; ++from) ASSERT_EQ(asciiEnd(text, from), from <= at ? at : size);
        ASSERT_EQ(validUTF8Prefix(text), at);
      }
      text[at] = 'x';
    }
  }
}

// The table of well-formed sequences (The Unicode Standard, table 3-7), row by row.
std::size_t wellFormedSize(std::string_view text) {
  const struct {
    std::size_t size;
    unsigned char bytes[4][2];
  } rows[] = {
      {1, {{0x00, 0x7F}}},
      {2, {{0xC2, 0xDF}, {0x80, 0xBF}}},
      {3, {{0xE0, 0xE0}, {0xA0, 0xBF}, {0x80, 0xBF}}},
      {3, {{0xE1, 0xEC}, {0x80, 0xBF}, {0x80, 0xBF}}},
      {3, {{0xED, 0xED}, {0x80, 0x9F}, {0x80, 0xBF}}},
      {3, {{0xEE, 0xEF}, {0x80, 0xBF}, {0x80, 0xBF}}},
      {4, {{0xF0, 0xF0}, {0x90, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}}},
      {4, {{0xF1, 0xF3}, {0x80, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}}},
      {4, {{0xF4, 0xF4}, {0x80, 0x8F}, {0x80, 0xBF}, {0x80, 0xBF}}},
  };
  for (const auto& row : rows) {
    std::size_t at = 0;
    for (; at < row.size && at < text.size(); ++at) {
      const auto byte = static_cast<unsigned char>(text[at]);
      if (byte < row.bytes[at][0] || byte > row.bytes[at][1]) break;
    }
    if (at == row.size) return at;
  }
  return 0;
}

std::size_t validPrefixByTable(std::string_view text) {
  std::size_t at = 0;
  while (const std::size_t size = wellFormedSize(text.substr(at))) at += size;
  return at;
}

// Long runs without ASCII are judged many bytes at a time.
TEST(UTF8, findsOneWrongByteWhereverItIsInALongRun) {
  std::mt19937_64 generator = seededGenerator();
  const std::string pieces[] = {"é", "あ", "ß", "語", "—", "x", "ि", "😀", "퟿"};
  for (int round = 0; round < 300; ++round) {
    std::string text;
    const std::size_t kinds = 1 + below(std::size(pieces), generator);
    while (text.size() < 200) text += pieces[below(kinds, generator)];
    ASSERT_EQ(validUTF8Prefix(text), text.size()) << ::testing::PrintToString(text);
    for (std::size_t at = 0; at < text.size(); ++at) {
      std::string changed = text;
      changed[at] = static_cast<char>(below(256, generator));
      ASSERT_EQ(validUTF8Prefix(changed), validPrefixByTable(changed)) << ::testing::PrintToString(changed);
      ASSERT_EQ(validUTF8Prefix(text.substr(0, at)), validPrefixByTable(text.substr(0, at)));
    }
  }
}

TEST(UTF8, judgesAnyBytesByUnicodesTable) {
  std::mt19937_64 generator = seededGenerator();
  const std::string pieces[] = {"x",        "plain words in a row ", "é",    "あ",           "😀",        "\xC3",
                                "\xE3\x81", "\xF0\x9F\x98",          "\x80", "\xED\xA0\x80", "\xE0\x80", "\xF4\x90",
                                "\xFF"};
  for (int round = 0; round < 20'000; ++round) {
    std::string text;
    const bool valid = below(2, generator) == 0;
    for (std::size_t left = below(40, generator); left > 0; --left) {
      text += pieces[below(valid ? 5 : std::size(pieces), generator)];
    }
    ASSERT_EQ(validUTF8Prefix(text), validPrefixByTable(text)) << ::testing::PrintToString(text);
    const std::string replaced = replacingInvalidUTF8(text);
    ASSERT_TRUE(isValidUTF8(replaced)) << ::testing::PrintToString(text);
    ASSERT_EQ(replacingInvalidUTF8(replaced), replaced);
    ASSERT_EQ(characterCount(text), characterCount(replaced)) << ::testing::PrintToString(text);
    ASSERT_EQ(wordCount(text), wordCount(replaced)) << ::testing::PrintToString(text);
  }
}

}  // namespace
}  // namespace kelvane::unicode
