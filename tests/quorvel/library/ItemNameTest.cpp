#include "quorvel/library/ItemName.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/Unicode.h"
#include "tests/support/Random.h"
#include "tests/support/RowName.h"

namespace quorvel {
namespace {

using Kind = ScriptItem::Kind;
using std::string;

constexpr std::size_t longest = 240;

string times(std::size_t count, std::string_view text) {
  string result;
  while (count-- > 0) result += text;
  return result;
}

struct Row {
  const char* description;
  string asked;
  string script;  // the name that a script gets; empty: none is left
  string folder;  // the name that a folder gets

  friend void PrintTo(const Row& row, std::ostream* out) { *out << row.description; }
};

class ItemNameTable : public ::testing::TestWithParam<Row> {};

TEST_P(ItemNameTable, namesAreCleaned) {
  EXPECT_EQ(cleanedName(GetParam().asked, Kind::script), GetParam().script) << GetParam().description;
  EXPECT_EQ(cleanedName(GetParam().asked, Kind::folder), GetParam().folder) << GetParam().description;
}

const Row rows[] = {
    {"an ordinary name stays", "Talk", "Talk", "Talk"},
    {"so does any language", "Rede über Käse – 日本語", "Rede über Käse – 日本語", "Rede über Käse – 日本語"},
    {"quotes, backslashes and colons stay", "a \"b\" \\ c: d?", "a \"b\" \\ c: d?", "a \"b\" \\ c: d?"},
    {"a typed extension goes from a script only", "Talk.md", "Talk", "Talk.md"},
    {"one of two", "Talk.md.md", "Talk.md", "Talk.md.md"},
    {"another spelling of it stays", "Talk.MD", "Talk.MD", "Talk.MD"},
    {"it goes before blanks do", "Talk.md ", "Talk.md", "Talk.md"},
    {"nothing but an extension", ".md", "", "md"},
    {"two extensions", ".md.md", "md", "md.md"},
    {"slashes", "a/b/c", "a-b-c", "a-b-c"},
    {"a path upwards", "../../etc/passwd", "-..-etc-passwd", "-..-etc-passwd"},
    {"line breaks and tabs inside", "a\nb\r\nc\td", "a-b--c-d", "a-b--c-d"},
    {"a line break at the end is no blank any more", "a\n", "a-", "a-"},
    {"a NUL", string("a\0b", 3), "a-b", "a-b"},
    {"delete and the C1 controls", "a\x7F\xC2\x80\xC2\x85\xC2\x9F\xC2\xA1", "a----¡", "a----¡"},
    {"blanks at both ends", "  Talk  ", "Talk", "Talk"},
    {"blanks of any kind", "\xC2\xA0\xE3\x80\x80Talk\xE2\x80\xA8", "Talk", "Talk"},
    {"blanks inside stay", "A  talk", "A  talk", "A  talk"},
    {"dots at the start", "...Talk", "Talk", "Talk"},
    {"dots and blanks in turn", " . .. Talk", "Talk", "Talk"},
    {"dots at the end stay", "Talk...", "Talk...", "Talk..."},
    {"dots inside stay", "v1.2", "v1.2", "v1.2"},
    {"one dot", ".", "", ""},
    {"two dots", "..", "", ""},
    {"dots and an extension", "...md", "", "md"},
    {"nothing", "", "", ""},
    {"blanks alone", " \xE3\x80\x80 ", "", ""},
    {"a name of the library's own", ".kelvane", "kelvane", "kelvane"},
    {"one with a blank before it", " .kelvane ", "kelvane", "kelvane"},
    {"a name that another system keeps for itself", "CON", "CON", "CON"},
    {"bytes that are not UTF-8", "a\xFF\xC3", "a\xEF\xBF\xBD\xEF\xBF\xBD", "a\xEF\xBF\xBD\xEF\xBF\xBD"},
    {"the longest name stays", times(longest, "x"), times(longest, "x"), times(longest, "x")},
    {"a longer one is cut", times(longest + 1, "x"), times(longest, "x"), times(longest, "x")},
    {"a character is not cut in two", times(longest - 1, "x") + "é", times(longest - 1, "x"), times(longest - 1, "x")},
    {"nor one with marks", times(longest - 2, "x") + "e\xCC\x81", times(longest - 2, "x"), times(longest - 2, "x")},
    {"nor a family", times(longest - 20, "x") + "👩‍👩‍👧‍👦", times(longest - 20, "x"),
     times(longest - 20, "x")},
    {"blanks that a cut brings to the end go", times(longest - 2, "x") + "  xxx", times(longest - 2, "x"),
     times(longest - 2, "x")},
    {"one character longer than any name", "e" + times(longest, "\xCC\x81"), "", ""},
};

INSTANTIATE_TEST_SUITE_P(Rows, ItemNameTable, ::testing::ValuesIn(rows), kelvane::tests::RowName());

TEST(ItemName, everyCleanedNameIsFitForADiskAndStaysAsItIs) {
  auto generator = kelvane::tests::seededGenerator();
  const string parts[] = {
      ".", "/", " ", "\xE3\x80\x80", "a", "é", "e\xCC\x81", "\n", "\xFF", ".md", "👩‍👩‍👧‍👦", "0"};
  for (int count = 0; count < 2000; ++count) {
    string asked;
    for (std::size_t length = kelvane::tests::below(120, generator); length > 0; --length) {
      asked += kelvane::tests::oneOf(parts, generator);
    }
    for (const Kind kind : {Kind::script, Kind::folder}) {
      const string name = cleanedName(asked, kind);
      const string file = fileName(numberedName(name, 99'999'999'999), kind);
      ASSERT_LE(file.size(), longestFileName) << asked;
      ASSERT_FALSE(name.starts_with('.')) << asked;
      ASSERT_EQ(name.find('/'), string::npos) << asked;
      ASSERT_TRUE(kelvane::unicode::isValidUTF8(name)) << asked;
      ASSERT_EQ(kelvane::unicode::trimmingWhiteSpace(name), name) << asked;
      if (kind == Kind::folder || !name.ends_with(".md")) {
        ASSERT_EQ(cleanedName(name, kind), name) << asked;
      }
    }
  }
}

TEST(ItemName, numbersFromTwoOnFollowASpace) {
  EXPECT_EQ(numberedName("Talk", 1), "Talk");
  EXPECT_EQ(numberedName("Talk", 2), "Talk 2");
  EXPECT_EQ(fileName("Talk 2", Kind::script), "Talk 2.md");
  EXPECT_EQ(fileName("Talk 2", Kind::folder), "Talk 2");
}

}  // namespace
}  // namespace quorvel
