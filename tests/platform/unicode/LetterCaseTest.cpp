#include <gtest/gtest.h>

#include <map>

#include "platform/Unicode.h"
#include "tests/platform/unicode/UnicodeFiles.h"

namespace kelvane::unicode {
namespace {

using namespace kelvane::tests;

TEST(LetterCase, eachScalarHasTheLowerCaseThatUnicodeGivesIt) {
  const auto lines = unicodeFile("UnicodeData.txt");
  if (!lines) GTEST_SKIP() << noUnicodeFiles;
  std::map<char32_t, char32_t> lower;
  for (const std::string& line : *lines) {
    const std::vector<std::string> parts = fields(line);
    if (!parts.at(13).empty()) lower[scalars(parts[0]).at(0)] = scalars(parts[13]).at(0);
  }
  ASSERT_GT(lower.size(), 1'000u);
  for (char32_t scalar = 0; scalar <= lastScalar; ++scalar) {
    if (!isScalar(scalar)) continue;
    const auto found = lower.find(scalar);
    ASSERT_EQ(lowercased(utf8(scalar)), utf8(found == lower.end() ? scalar : found->second)) << spelled({&scalar, 1});
  }
}

TEST(LetterCase, lowercasesEachScalarByItsSimpleMapping) {
  const struct {
    const char* what;
    std::string text, lower;
  } rows[] = {
      {"nothing", "", ""},
      {"ASCII", "AZ az 09 @[`{", "az az 09 @[`{"},
      {"accents", "ÀÉÎ", "àéî"},
      {"Greek, the last sigma as any", "ΌΣΟΣ", "όσοσ"},
      {"a capital I with a dot is one scalar", "\u0130", "i"},
      {"a sharp s", "ẞß", "ßß"},
      {"ill-formed parts",
       "A\xFF\xC3"
       "B\xE3\x81",
       "a\xFF\xC3"
       "b\xE3\x81"},
  };
  for (const auto& row : rows) EXPECT_EQ(lowercased(row.text), row.lower) << row.what;
}

TEST(LetterCase, foldsLetterCaseAndAccents) {
  const struct {
    const char* what;
    std::string text, folded;
  } rows[] = {
      {"nothing", "", ""},
      {"ASCII", "Take 10", "take 10"},
      {"accents", "Épée", "epee"},
      {"accents of their own", "E\u0301pe\u0301e", "epee"},
      {"several on one letter", "ễ Ệ", "e e"},
      {"full folding", "Straße ﬁ", "strasse fi"},
      {"a capital I with a dot", "\u0130", "i"},
      {"sigma", "ΌΣΟΣ", "οσοσ"},
      {"a subscript iota goes with the accents, however it is written", "\u1F80 \u03B1\u0313\u0345", "α α"},
      {"Hangul is taken apart", "\uD55C", "\u1112\u1161\u11AB"},
      {"Kana lose their marks", "がパ", "かハ"},
      {"spacing and enclosing marks go too", "1\u20DD का", "1 क"},
      {"ill-formed parts stay", "É\xFF\xE3\x81", "e\xFF\xE3\x81"},
      {"emoji stay", "😀", "😀"},
  };
  for (const auto& row : rows) EXPECT_EQ(folded(row.text), row.folded) << row.what;
}

TEST(LetterCase, equivalentScalarsAndBothLetterCasesFoldToTheSame) {
  const auto folding = unicodeFile("CaseFolding.txt");
  const auto data = unicodeFile("UnicodeData.txt");
  if (!folding || !data) GTEST_SKIP() << noUnicodeFiles;
  for (const std::string& line : *folding) {
    const std::vector<std::string> parts = fields(line);
    if (parts.at(1) != "C" && parts[1] != "F") continue;
    const std::u32string from = scalars(parts[0]);
    // The subscript iota is a mark that folds to a letter. It is removed as a mark, before it is folded.
    std::u32string to = scalars(parts.at(2));
    if (to.back() == 0x3B9 && from != U"\u0399") continue;
    EXPECT_EQ(folded(utf8(from)), folded(utf8(to))) << line;
  }
  for (const std::string& line : *data) {
    const std::string mapping = fields(line).at(5);
    if (mapping.empty() || mapping.starts_with('<')) continue;
    EXPECT_EQ(folded(utf8(scalars(fields(line)[0]))), folded(utf8(scalars(mapping)))) << line;
  }
}

}  // namespace
}  // namespace kelvane::unicode
