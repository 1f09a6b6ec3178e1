#include "quorvel/library/NaturalOrder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/Random.h"
#include "tests/support/RowName.h"

namespace quorvel {
namespace {

struct Row {
  const char* description;
  std::vector<std::string> names;  // in their order

  friend void PrintTo(const Row& row, std::ostream* out) { *out << row.description; }
};

class NaturalOrderTable : public ::testing::TestWithParam<Row> {};

TEST_P(NaturalOrderTable, eachNameComesBeforeTheNext) {
  const auto& names = GetParam().names;
  for (std::size_t left = 0; left < names.size(); ++left) {
    for (std::size_t right = 0; right < names.size(); ++right) {
      EXPECT_EQ(naturalOrder(names[left], names[right]) < 0, left < right) << names[left] << " and " << names[right];
    }
  }
}

const Row rows[] = {
    {"numbers by their value", {"Take 1", "Take 2", "Take 10", "Take 100"}},
    {"numbers in the middle", {"1 a", "2 a", "2 b", "10 a"}},
    {"several numbers", {"1.2", "1.10", "2.1", "10.1"}},
    {"a number before letters, after blanks and signs", {" ", "-", "1", "a"}},
    {"a prefix before what is longer", {"Take", "Take 2", "Takes"}},
    {"the empty name first", {"", "0", "a"}},
    {"leading zeros decide only at the end", {"007", "7", "008", "8", "9"}},
    {"zeros alone are zero", {"0", "00", "000", "1"}},
    {"a long number after a short one", {"9" + std::string(254, '9'), "1" + std::string(255, '0')}},
    {"numbers around the count that takes another byte",
     {std::string(254, '9'), "1" + std::string(254, '0'), std::string(255, '9'), "1" + std::string(255, '0')}},
    {"numbers of five hundred digits", {std::string(509, '9'), "1" + std::string(509, '0'), std::string(511, '1')}},
    {"letter case breaks ties", {"ABC", "abc", "abd"}},
    {"letter case decides after everything else", {"TAKE 2", "take 2", "Take 10"}},
    {"accents break ties", {"cote", "coté", "côte", "coted"}},
    {"accents decide before letter case", {"COTE", "cote", "COTÉ", "coté"}},
    {"an accent is no letter of its own", {"Eber", "Éclair", "Egal"}},
    {"sharp s as two", {"Strasse", "Straße", "Strassen"}},
    {"canonically equal names differ by their bytes", {"e\xCC\x81", "\xC3\xA9"}},
    {"other scripts by their characters", {"a", "α", "б", "あ"}},
};

INSTANTIATE_TEST_SUITE_P(Rows, NaturalOrderTable, ::testing::ValuesIn(rows), kelvane::tests::RowName());

TEST(NaturalOrder, isATotalOrderOfTheNames) {
  auto generator = kelvane::tests::seededGenerator();
  const std::vector<std::string> parts = {"a", "A", "á", "a\xCC\x81", "b", "0", "00", "1", "10", " ", "é", "-", "\xFF"};
  std::vector<std::string> names;
  for (int count = 0; count < 60; ++count) {
    std::string name;
    for (std::size_t length = kelvane::tests::below(5, generator); length > 0; --length) {
      name += kelvane::tests::oneOf(parts, generator);
    }
    names.push_back(name);
  }
  for (const auto& one : names) {
    for (const auto& other : names) {
      const auto order = naturalOrder(one, other);
      ASSERT_EQ(order == 0, one == other) << one << " and " << other;
      ASSERT_EQ(order<0, naturalOrder(other, one)> 0) << one << " and " << other;
      for (const auto& third : names) {
        if (order < 0 && naturalOrder(other, third) < 0) {
          ASSERT_TRUE(naturalOrder(one, third) < 0) << one << ", " << other << " and " << third;
        }
      }
    }
  }
}

TEST(NaturalKey, alreadyOrdersWhatDiffersInMoreThanCaseAccentsAndZeros) {
  EXPECT_LT(naturalKey("take 2"), naturalKey("TAKE 10"));
  EXPECT_EQ(naturalKey("Cafe 007"), naturalKey("CAFÉ 7"));
}

}  // namespace
}  // namespace quorvel
