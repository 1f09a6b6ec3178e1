#include "program/configuration/ConfigEdit.h"

#include <gtest/gtest.h>

namespace kelvane {
namespace {

TEST(ConfigEdit, countsLinesAndCharactersAsEditorsDo) {
  const struct {
    const char* description;
    std::string text;
    std::size_t offset;
    const char* place;
  } cases[] = {
      {"the start", "abc", 0, "line 1, column 1"},
      {"the first line", "abc", 2, "line 1, column 3"},
      {"the end", "abc", 3, "line 1, column 4"},
      {"another line", "a\nbc\nd", 3, "line 2, column 2"},
      {"behind the last line break", "a\n", 2, "line 2, column 1"},
      {"CR LF", "a\r\nb", 3, "line 2, column 1"},
      {"letters of more bytes", "\u00E9\u65E5x", 5, "line 1, column 3"},
      {"letters with marks", "e\u0301x", 3, "line 1, column 2"},
      {"behind a byte-order mark", "\xEF\xBB\xBF{", 3, "line 1, column 1"},
  };
  for (const auto& row : cases) EXPECT_EQ(positionIn(row.text, row.offset), row.place) << row.description;
}

TEST(ConfigEdit, tellsAChangeInsideARangeFromOneOutside) {
  const struct {
    const char* description;
    const char* before;
    const char* after;
    bool isWithin;  // of the bytes 2 to 4
  } cases[] = {
      {"nothing", "abCDef", "abCDef", true},
      {"all of the place", "abCDef", "abxyzef", true},
      {"a part of it", "abCDef", "abCxef", true},
      {"taken out", "abCDef", "abef", true},
      {"put in", "abCDef", "abCxDef", true},
      {"put in elsewhere", "abCDef", "xabCDef", true},
      {"put in at the end", "abCDef", "abCDefx", true},
      {"a byte before it", "abCDef", "axCDef", false},
      {"a byte behind it", "abCDef", "abCDxf", false},
      {"one in it and one before it", "abCDef", "axCxef", false},
      {"more taken out", "abCDef", "abf", false},
      {"all taken out", "abCDef", "", false},
  };
  for (const auto& row : cases)
    EXPECT_EQ(differsOnlyWithin(2, 4, row.before, row.after), row.isWithin) << row.description;
}

}  // namespace
}  // namespace kelvane
