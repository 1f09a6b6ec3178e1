#include <gtest/gtest.h>
#include <utf8proc.h>

#include <algorithm>
#include <cstdlib>

#include "platform/Unicode.h"
#include "platform/unicode/Scalars.h"
#include "tests/platform/unicode/UnicodeFiles.h"
#include "tests/support/Random.h"

namespace kelvane::unicode {
namespace {

using namespace kelvane::tests;

/// The canonical composition of a whole text by utf8proc, to compare with.
std::string composedAtOnce(const std::string& text) {
  utf8proc_uint8_t* result = nullptr;
  const auto size =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()), static_cast<utf8proc_ssize_t>(text.size()),
                   &result, static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
  std::string copy(reinterpret_cast<const char*>(result), static_cast<std::size_t>(size));
  std::free(result);
  return copy;
}

TEST(Normalization, eachRowOfUnicodesOwnTestHolds) {
  const auto lines = unicodeFile("NormalizationTest.txt.bz2");
  if (!lines) GTEST_SKIP() << noUnicodeFiles;
  std::vector<bool> listed(lastScalar + 1);
  std::string part;
  std::size_t rows = 0;
  for (const std::string& line : *lines) {
    if (line.starts_with('@')) {
      part = line;
      continue;
    }
    std::string columns[5];
    for (std::size_t column = 0; column < 5; ++column) columns[column] = utf8(scalars(fields(line).at(column)));
    for (const std::string& text : {columns[0], columns[1], columns[2]}) {
      EXPECT_EQ(canonicalForm(text), columns[1]) << line;
      for (const std::string& other : {columns[0], columns[1], columns[2]}) {
        EXPECT_TRUE(equivalent(text, other)) << line;
        EXPECT_TRUE(order(text, other) == 0) << line;
      }
      EXPECT_EQ(equivalent(text, columns[4]), columns[1] == columns[3]) << line;
    }
    for (const std::string& text : {columns[3], columns[4]}) EXPECT_EQ(canonicalForm(text), columns[3]) << line;
    if (part.starts_with("@Part1")) listed[scalars(fields(line)[0]).at(0)] = true;
    ++rows;
  }
  EXPECT_GT(rows, 18'000u);
  EXPECT_TRUE(listed[0x00E9]);
  for (char32_t scalar = 0; scalar <= lastScalar; ++scalar) {
    if (!isScalar(scalar) || listed[scalar]) continue;
    ASSERT_EQ(canonicalForm(utf8(scalar)), utf8(scalar)) << spelled({&scalar, 1});
  }
}

TEST(Normalization, compositionStartsOnlyWhereUnicodePermitsIt) {
  const auto never = scalarsWith("NFC_QC", "DerivedNormalizationProps.txt");
  const auto lines = unicodeFile("extracted/DerivedCombiningClass.txt");
  if (!never || !lines) GTEST_SKIP() << noUnicodeFiles;
  std::vector<bool> reordered(lastScalar + 1);
  for (const std::string& line : *lines) {
    if (fields(line).at(1) != "0") forEachScalar(fields(line)[0], [&](char32_t scalar) { reordered[scalar] = true; });
  }
  std::size_t starts = 0;
  for (char32_t scalar = 0; scalar <= lastScalar; ++scalar) {
    if (!isScalar(scalar) || !startsComposition(scalar)) continue;
    ASSERT_FALSE((*never)[scalar] || reordered[scalar]) << spelled({&scalar, 1});
    ++starts;
  }
  EXPECT_GT(starts, 1'100'000u) << "most scalars do";
}

std::string repeated(std::string_view text, std::size_t times) {
  std::string result;
  while (times-- > 0) result.append(text);
  return result;
}

TEST(Normalization, stringsAreEquivalentIfTheirCanonicalFormsAreEqual) {
  const struct {
    const char* what;
    std::string left, right;
    bool equivalent;
  } rows[] = {
      {"nothing", "", "", true},
      {"the same words", "words", "words", true},
      {"letter case counts", "words", "Words", false},
      {"a longer text", "word", "words", false},
      {"an accent of its own", "caf\u00E9", "cafe\u0301", true},
      {"an accent on what went before", "e\u0301", "\u00E9", true},
      {"another accent", "e\u0300", "\u00E9", false},
      {"no accent", "e", "\u00E9", false},
      {"two marks of different classes in any order", "a\u0323\u0302", "a\u0302\u0323", true},
      {"two marks of one class in their order", "a\u0301\u0302", "a\u0302\u0301", false},
      {"a letter that is a unit's other name", "\u212B", "\u00C5", true},
      {"what looks alike only", "\uFF21", "A", false},
      {"Hangul", "\u1112\u1161\u11AB", "\uD55C", true},
      {"Hangul behind its first two Jamo", "\uD558\u11AB", "\uD55C", true},
      {"U+11A7 is no final that could vanish", "\uAC00\u11A7", "\uAC00", false},
      {"nor in front of a mark", "\uAC00\u11A7\u0301", "\uAC00\u0301", false},
      {"Kana", "\u304B\u3099", "\u304C", true},
      {"a mark at the start", "\u0344", "\u0308\u0301", true},
      {"the same bytes that are no UTF-8", "e\u0301\xFF", "e\u0301\xFF", true},
      {"bytes that are no UTF-8 are compared as they are", "e\u0301\xFF", "\u00E9\xFF", false},
      {"also when one text alone has them", "e\u0301", "e\u0301\xFF", false},
      {"U+FFFD is not what it may stand for", "\uFFFD", "\xFF", false},
      {"a sign of three bytes that is a letter of one", repeated("\u212A", 100), repeated("K", 100), true},
      {"letters that decompose to three times their bytes", repeated("\u0390", 100),
       repeated("\u03B9\u0308\u0301", 100), true},
      {"a short text and very many marks", "e\u0301", "e" + repeated("\u0301", 100000), false},
      {"nothing and very many marks", "", repeated("\u0301", 100000), false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(equivalent(row.left, row.right), row.equivalent) << row.what;
    EXPECT_EQ(equivalent(row.right, row.left), row.equivalent) << row.what;
    EXPECT_EQ(order(row.left, row.right) == 0, row.equivalent) << row.what;
    EXPECT_EQ(canonicalForm(row.left) == canonicalForm(row.right), row.equivalent) << row.what;
  }
}

TEST(Normalization, aTextThatIsNotUTF8IsItsOwnForm) {
  for (const std::string text : {"\xFF", "e\u0301\xFF", "\xE3\x81", "e\u0301\u1100\u1161\xC0\x80"}) {
    EXPECT_EQ(canonicalForm(text), text);
  }
}

TEST(Normalization, theOrderIsThatOfTheCanonicalFormsBytes) {
  // Each is less than all that follow it.
  const std::string texts[] = {"", "A", "B", "a", "aa", "e", "ea", "eb\u0301", "z",
                               // composed to U+00E9, which is greater than all of ASCII, in either spelling
                               "e\u0301", "\u00E9a", "e\u0301b", "\uD55C", "\U0001F600", "\xFF"};
  for (std::size_t left = 0; left < std::size(texts); ++left) {
    for (std::size_t right = 0; right < std::size(texts); ++right) {
      EXPECT_EQ(order(texts[left], texts[right]), left <=> right) << texts[left] << ' ' << texts[right];
    }
  }
}

/// A text of pieces that combine, reorder, compose and decompose, some of them ill-formed if that is permitted.
std::string anyText(std::size_t most, bool illFormed, std::mt19937_64& generator) {
  static const char32_t chosen[] = {'a',    'e',    'E',     ' ',     0x00E9,  0x0301,  0x0302,  0x0323, 0x0327, 0x0345,
                                    0x0344, 0x0958, 0x0928,  0x093C,  0x09C7,  0x09BE,  0x0F71,  0x0F72, 0x1100, 0x1161,
                                    0x11A8, 0x1E69, 0x1F82,  0x212B,  0x2126,  0x2ADC,  0x3042,  0x304B, 0x3099, 0xAC00,
                                    0xAC01, 0xFB1D, 0x1D15E, 0x1D165, 0x11099, 0x110BA, 0x2F800, 0x1F600};
  std::string text;
  for (std::size_t left = below(most, generator); left > 0; --left) {
    switch (below(illFormed ? 12 : 11, generator)) {
      case 0:
        text += "plain words of any length ";
        break;
      case 1: {
        const char32_t scalar = static_cast<char32_t>(below(0x3000, generator));
        if (scalar != 0x11A7) text += utf8(scalar);
        break;
      }
      case 11:
        text += "\xE3\x81";
        break;
      default:
        text += utf8(oneOf(chosen, generator));
    }
  }
  return text;
}

TEST(Normalization, theFormInPiecesIsTheFormAsAWhole) {
  std::mt19937_64 generator = seededGenerator();
  for (int round = 0; round < 20'000; ++round) {
    const std::string text = anyText(24, false, generator);
    const std::string form = canonicalForm(text);
    ASSERT_EQ(form, composedAtOnce(text)) << ::testing::PrintToString(text);
    ASSERT_EQ(canonicalForm(form), form) << ::testing::PrintToString(text);
    ASSERT_TRUE(equivalent(text, form)) << ::testing::PrintToString(text);
  }
}

TEST(Normalization, ordersAndComposesALongRunOfMarksLikeUtf8proc) {
  std::vector<char32_t> marks;
  for (char32_t scalar = 0x300; scalar < 0x1E8D7; ++scalar) {
    if (isScalar(scalar) && utf8proc_get_property(static_cast<utf8proc_int32_t>(scalar))->combining_class != 0) {
      marks.push_back(scalar);
    }
  }
  ASSERT_GT(marks.size(), 800u);
  std::mt19937_64 generator = seededGenerator();
  for (const char32_t starter : {U'e', U'x', U'\u00E9', U'\u0928', U'\uAC00', U'\u0338', U'\u11A7'}) {
    for (const std::size_t length : {10u, 100u, 1000u}) {
      std::string text = "a" + utf8(starter);
      for (std::size_t count = 0; count < length; ++count) text += utf8(marks[below(marks.size(), generator)]);
      text += "\u0301z";
      const std::string form = canonicalForm(text);
      ASSERT_TRUE(form == composedAtOnce(text)) << ::testing::PrintToString(text);
      ASSERT_TRUE(equivalent(text, form) && order(form, text) == 0);
      ASSERT_FALSE(equivalent(text + "\u0301", form));
    }
  }
}

TEST(Normalization, theOrderIsTotalAndEqualExactlyWhereTextsAreEquivalent) {
  std::mt19937_64 generator = seededGenerator();
  for (int round = 0; round < 60; ++round) {
    std::vector<std::string> texts;
    for (int count = 0; count < 8; ++count) texts.push_back(anyText(4, true, generator));
    for (int count = 0; count < 4; ++count) texts.push_back(canonicalForm(oneOf(texts, generator)));
    for (const std::string& a : texts) {
      ASSERT_TRUE(order(a, a) == 0 && equivalent(a, a));
      for (const std::string& b : texts) {
        ASSERT_EQ(order(a, b) == 0, equivalent(a, b)) << ::testing::PrintToString(a + " | " + b);
        ASSERT_EQ(order(a, b), 0 <=> order(b, a)) << ::testing::PrintToString(a + " | " + b);
        ASSERT_EQ(order(a, b), canonicalForm(a) <=> canonicalForm(b)) << ::testing::PrintToString(a + " | " + b);
        for (const std::string& c : texts) {
          ASSERT_TRUE(!(order(a, b) <= 0 && order(b, c) <= 0) || order(a, c) <= 0)
              << ::testing::PrintToString(a + " | " + b + " | " + c);
        }
      }
    }
  }
}

TEST(Normalization, ordersALongRunOfMarksQuickly) {
  // Marks above and below in turn. None composes with "x", and each kind has an order that must stay. Sorting this run
  // by exchanging neighbours would take 10^11 exchanges.
  const std::string above[] = {"\u0305", "\u0310", "\u033D"}, below[] = {"\u0332", "\u0333", "\u0347", "\u0348"};
  std::string text = "x", allAbove, allBelow;
  for (std::size_t count = 0; count < 500'000; ++count) {
    const std::string pair[] = {above[count * count % 3], below[count * count / 3 % 4]};
    text += pair[0] + pair[1];
    allAbove += pair[0];
    allBelow += pair[1];
  }
  EXPECT_TRUE(canonicalForm(text) == "x" + allBelow + allAbove);
  EXPECT_TRUE(equivalent(text, "x" + allBelow + allAbove));
  EXPECT_FALSE(equivalent(text, "x" + allAbove + allBelow + "\u0332"));
}

}  // namespace
}  // namespace kelvane::unicode
