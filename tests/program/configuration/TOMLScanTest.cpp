#include "program/configuration/TOMLScan.h"

#include <gtest/gtest.h>

#include <string>

namespace kelvane {
namespace {

TEST(TOMLScan, countsTheDotsInKeysOnly) {
  const struct {
    const char* description;
    std::string text;
    std::size_t dots;
  } cases[] = {
      {"an empty text", "", 0},
      {"a plain key", "a = 1", 0},
      {"a dotted key", "a.b . c = 1", 2},
      {"keys of digits", "1.2 = 3.4", 1},
      {"tables", "[a.b]\n[[ c.d.e ]] # f.g", 3},
      {"a comment", "# a.b\na.b = 1 # a.b.c = 2\n", 1},
      {"a comment that ends the text", "#.", 0},
      {"quoted parts of a key", R"(a."b.c".'d.e' = "f.g")", 2},
      {"escaped quotes", R"(a = "\".\\" # ."
b.c = "\\")",
       1},
      {"empty strings", "\"\" = ''\nb.c = \"\"\nd.e = 1", 2},
      {"a string of several lines", "a = \"\"\"x.\n.\\\"\"\".\"\"\"\nb.c = 1", 1},
      {"quotes before the end of a string of several lines", "a = \"\"\".\"\".\"\"\"\"\"\nb.c = 1", 1},
      {"an empty string of several lines", "a = \"\"\"\"\"\"\nb.c = ''''''\nd.e = 1", 2},
      {"apostrophes in a string of several lines", "a = '''.''.\n\\'''''\nb.c = 1", 1},
      {"a string that stays open up to its line's end", "a = \"x.\nb.c = 1", 1},
      {"a backslash at the end", "a = \"\\", 0},
      {"numbers and times", "a = 1.5\nb = [1.5, -2.5e1]\nc = 07:32:00.5\n", 0},
      {"an array of several lines", "a = [\n1.5,\n2.5\n]\nb.c = 1", 1},
      {"an inline table", "a = { b.c = 1.5, d.e = {}, f.g = [1.5, { h.i = 1 }, 2.5], j.k = 1 }\nl.m = 1.5", 6},
      {"an inline table of several lines", "a = {\n  b.c = 1.5, # d.e\n  f.g = 2,\n}\nh.i = 1", 3},
      {"brackets that open nothing", "a = 1 ]}\nb.c = 1", 1},
      {"CR LF", "a = 1.5\r\nb.c = 1\r\n", 1},
  };
  for (const auto& row : cases) EXPECT_EQ(scanTOML(row.text).dotsInKeys, row.dots) << row.description;
}

TEST(TOMLScan, findsTheFirstHexadecimalFraction) {
  const struct {
    const char* description;
    const char* text;
    std::optional<std::size_t> offset;
  } cases[] = {
      {"none", "a = 1.5\nb = 0xAB\nc = [-0x1, 0b1, 0.5e-3]", std::nullopt},
      {"a fraction", "a = 0x1.8p3", 4},
      {"an exponent", "a = 1\nb = +0X1P-4 # x", 10},
      {"in an array, behind one of whole numbers", "a = [0x1,-0x1.8p3]", 9},
      {"in an inline table", "a = {b=0x.1p1}", 7},
      {"the first of two", "a = [0x1p1, 0x2p2]", 5},
      {"in a key, a string and a comment", "0x1.8p3 = '0x1.8p3' # 0x1.8p3\nb = \"0x1p1\"", std::nullopt},
  };
  for (const auto& row : cases) EXPECT_EQ(scanTOML(row.text).hexadecimalFraction, row.offset) << row.description;
}

TEST(TOMLScan, takesTimeLinearInTheText) {
  for (const char* piece : {"\"", "'", "#", "[", "{", "a.", "=", "\\", "\"\"\"\"", "0x1", "}]"}) {
    std::string text = "a = \"\"\"";
    while (text.size() < 2'000'000) text += piece;
    EXPECT_FALSE(scanTOML(text).hexadecimalFraction) << piece;
    EXPECT_FALSE(scanTOML(std::string_view(text).substr(4 + 3)).hexadecimalFraction) << piece;
  }
}

}  // namespace
}  // namespace kelvane
