#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "tests/scripttools/Workbench.h"

namespace kelvane::tests {
namespace {

using ChapterReadingTools = WorkbenchTest;

constexpr std::string_view noChapters =
    "This script has no chapters. A chapter is a line starting with \"# \" and everything up to the next one. Scripts "
    "without such lines have no chapters.";

TEST_F(ChapterReadingTools, listChapters) {
  EXPECT_EQ(call("list_chapters", R"({"id": "Talk.md"})"),
            answered(R"([{"chapter":1,"starts_at":"0:01","title":"One","words":2},)"
                     R"({"chapter":2,"starts_at":"0:02","title":"Two","words":2},)"
                     R"({"chapter":3,"starts_at":"0:03","title":"Three","words":0}])"));
  EXPECT_EQ(call("list_chapters", R"({"id": "Notes.md"})"), answered("[]"));
  EXPECT_EQ(call("list_chapters", R"({"id": "Empty.md"})"), answered("[]"));
}

TEST_F(ChapterReadingTools, readAChapterWithoutItsHeadingAndSurroundingWhiteSpace) {
  put("Odd.md", "# A\r\n\r\n \t line one\r\n\r\nline two \r\n\r\n# B\n# C\nc\xff\n");
  const struct {
    std::string_view arguments;
    std::string_view expected;
  } cases[] = {
      {R"({"id": "Talk.md", "chapter": "1"})", "alpha beta"},
      {R"({"id": "Talk.md", "chapter": "2"})", "gamma\n\ndelta"},
      {R"({"id": "Talk.md", "chapter": "+2"})", "gamma\n\ndelta"},
      {R"({"id": "Talk.md", "chapter": "02"})", "gamma\n\ndelta"},
      {R"({"id": "Talk.md", "chapter": "3"})", ""},
      {R"({"id": "Scenes/Deep/Deeper/End.md", "chapter": "1"})", ""},
      {R"({"id": "Odd.md", "chapter": "1"})", "line one\r\n\r\nline two"},
      {R"({"id": "Odd.md", "chapter": "2"})", ""},
      {R"({"id": "Odd.md", "chapter": "3"})", "c\xff"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.arguments);
    EXPECT_EQ(call("read_chapter", each.arguments), answered(each.expected));
  }
}

TEST_F(ChapterReadingTools, refuseAPositionThatDoesNotExist) {
  for (const std::string position : {"0", "-1", "4", " 1", "1.0", "1 ", "two", "99999999999999999999"}) {
    EXPECT_EQ(call("read_chapter", JSON::Object{{"id", "Talk.md"}, {"chapter", position}}),
              failed("There is no chapter " + position + ". This script has 3, numbered 1 to 3."));
  }
  for (const std::string position : {"1", "0", "abc"}) {
    EXPECT_EQ(call("read_chapter", JSON::Object{{"id", "Notes.md"}, {"chapter", position}}), failed(noChapters));
    EXPECT_EQ(call("read_chapter", JSON::Object{{"id", "Empty.md"}, {"chapter", position}}), failed(noChapters));
  }
}

TEST_F(ChapterReadingTools, reportTheLibrarysErrorUnchanged) {
  for (const auto* tool : {"list_chapters", "read_chapter"}) {
    watch->accesses.clear();
    watch->failingAccess = 0;
    EXPECT_EQ(call(tool, R"({"id": "Talk.md", "chapter": "1"})"), failed(Watch::failure));
  }
}

}  // namespace
}  // namespace kelvane::tests
