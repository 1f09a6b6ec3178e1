#include <gtest/gtest.h>

#include <string_view>

#include "tests/scripttools/Workbench.h"

namespace kelvane::tests {
namespace {

constexpr std::string_view noChapters =
    "This script has no chapters. A chapter is a line starting with \"# \" and everything up to the next one. Scripts "
    "without such lines have no chapters.";
constexpr std::string_view noChapter9 = "There is no chapter 9. This script has 3, numbered 1 to 3.";
constexpr std::string_view firstTitle =
    "This script has no chapters yet. Give \"first_title\", a title for the text already there, so it becomes chapter "
    "1.";
constexpr std::string_view keepText = "\"keep_text\" is \"yes\" or \"no\"";

// If a row has several faults, its message is about the first in the order in which the tool checks.
const struct {
  std::string_view tool;
  std::string_view arguments;
  std::string_view message;
} failures[] = {
    {"list_versions", R"({})", "Missing \"id\""},
    {"list_versions", R"({"id": ""})", "Missing \"id\""},
    {"list_versions", R"({"id": 5})", "Missing \"id\""},
    {"list_versions", R"({"id": null})", "Missing \"id\""},
    {"list_versions", R"({"id": ["Talk.md"]})", "Missing \"id\""},
    {"list_versions", R"({"ID": "Talk.md"})", "Missing \"id\""},
    {"list_versions", R"({"id": "Scenes"})", "\"Scenes\" is a folder, not a script"},
    {"list_versions", R"({"id": "README"})", "\"README\" is not a script"},
    {"list_versions", R"({"id": "Nope.md"})", "Nothing at \"Nope.md\""},
    {"list_versions", R"({"id": "/Talk.md"})", "\"/Talk.md\" is not inside the library"},

    {"read_script", R"({})", "Missing \"id\""},
    {"read_script", R"({"id": ""})", "Missing \"id\""},
    {"read_script", R"({"id": "Scenes"})", "\"Scenes\" is a folder, not a script"},
    {"read_script", R"({"id": "README"})", "\"README\" is not a script"},
    {"read_script", R"({"id": "a \"b\"\n"})", "Nothing at \"a \"b\"\n\""},
    {"read_script", R"({"id": "../Library/Talk.md"})", "\"../Library/Talk.md\" is not inside the library"},

    {"list_chapters", R"({})", "Missing \"id\""},
    {"list_chapters", R"({"id": "Songs"})", "\"Songs\" is a folder, not a script"},
    {"list_chapters", R"({"id": "Nope.md"})", "Nothing at \"Nope.md\""},

    {"read_chapter", R"({})", "Missing \"id\""},
    {"read_chapter", R"({"chapter": "9"})", "Missing \"id\""},
    {"read_chapter", R"({"id": "Nope.md"})", "Nothing at \"Nope.md\""},
    {"read_chapter", R"({"id": "Nope.md", "chapter": "9"})", "Nothing at \"Nope.md\""},
    {"read_chapter", R"({"id": "Talk.md"})", "Missing \"chapter\""},
    {"read_chapter", R"({"id": "Talk.md", "chapter": ""})", "Missing \"chapter\""},
    {"read_chapter", R"({"id": "Talk.md", "chapter": 2})", "Missing \"chapter\""},
    {"read_chapter", R"({"id": "Notes.md"})", "Missing \"chapter\""},
    {"read_chapter", R"({"id": "Notes.md", "chapter": "9"})", noChapters},
    {"read_chapter", R"({"id": "Talk.md", "chapter": "9"})", noChapter9},

    {"create_script", R"({})", "Missing \"name\""},
    {"create_script", R"({"name": ""})", "Missing \"name\""},
    {"create_script", R"({"name": 5, "text": "x"})", "Missing \"name\""},
    {"create_script", R"({"folder": "Scenes"})", "Missing \"name\""},
    {"create_script", R"({"folder": "Nope"})", "Nothing at \"Nope\""},
    {"create_script", R"({"folder": "Nope", "name": "x"})", "Nothing at \"Nope\""},
    {"create_script", R"({"folder": "Talk.md"})", "\"Talk.md\" is a script, not a folder"},
    {"create_script", R"({"folder": "README"})", "\"README\" is not a script"},
    {"create_script", R"({"folder": "..", "name": "x"})", "\"..\" is not inside the library"},

    {"create_folder", R"({})", "Missing \"name\""},
    {"create_folder", R"({"name": null})", "Missing \"name\""},
    {"create_folder", R"({"folder": "Nope"})", "Nothing at \"Nope\""},
    {"create_folder", R"({"folder": "Talk.md", "name": "x"})", "\"Talk.md\" is a script, not a folder"},
    {"create_folder", R"({"folder": "/", "name": "x"})", "\"/\" is not inside the library"},

    {"rename", R"({})", "Missing \"id\""},
    {"rename", R"({"name": "x"})", "Missing \"id\""},
    {"rename", R"({"id": "", "name": "x"})", "Missing \"id\""},
    {"rename", R"({"id": "Nope"})", "Nothing at \"Nope\""},
    {"rename", R"({"id": "README", "name": "x"})", "\"README\" is not a script"},
    {"rename", R"({"id": "Talk.md"})", "Missing \"name\""},
    {"rename", R"({"id": "Scenes", "name": ""})", "Missing \"name\""},

    {"save_version", R"({})", "Missing \"id\""},
    {"save_version", R"({"note": "x"})", "Missing \"id\""},
    {"save_version", R"({"id": "Nope.md"})", "Nothing at \"Nope.md\""},
    {"save_version", R"({"id": "Scenes", "note": "x"})", "\"Scenes\" is a folder, not a script"},
    {"save_version", R"({"id": "Talk.md"})", "Missing \"note\""},
    {"save_version", R"({"id": "Talk.md", "note": ""})", "Missing \"note\""},
    {"save_version", R"({"id": "Empty.md"})", "Missing \"note\""},
    {"save_version", R"({"id": "Empty.md", "note": "x"})", "\"Empty.md\" is empty, so there is nothing to keep"},
    {"save_version", R"({"id": ".//Empty.md", "note": "x"})", "\"Empty.md\" is empty, so there is nothing to keep"},

    {"update_script", R"({})", "Missing \"id\""},
    {"update_script", R"({"text": "x", "note": "y"})", "Missing \"id\""},
    {"update_script", R"({"id": "Nope.md"})", "Nothing at \"Nope.md\""},
    {"update_script", R"({"id": "Nope.md", "text": "x"})", "Nothing at \"Nope.md\""},
    {"update_script", R"({"id": "Scenes", "text": "x", "note": "y"})", "\"Scenes\" is a folder, not a script"},
    {"update_script", R"({"id": "Talk.md"})", "Missing \"text\""},
    {"update_script", R"({"id": "Talk.md", "text": "", "note": "y"})", "Missing \"text\""},
    {"update_script", R"({"id": "Talk.md", "text": "x"})", "Missing \"note\""},
    {"update_script", R"({"id": "Talk.md", "text": "x", "note": ""})", "Missing \"note\""},

    {"append_to_script", R"({})", "Missing \"id\""},
    {"append_to_script", R"({"id": "Nope.md"})", "Nothing at \"Nope.md\""},
    {"append_to_script", R"({"id": "Talk.md"})", "Missing \"text\""},
    {"append_to_script", R"({"id": "Talk.md", "text": "", "note": "y"})", "Missing \"text\""},
    {"append_to_script", R"({"id": "Talk.md", "text": "x"})", "Missing \"note\""},
    {"append_to_script", R"({"id": "Talk.md", "text": "x", "note": 5})", "Missing \"note\""},

    {"add_chapter", R"({})", "Missing \"id\""},
    {"add_chapter", R"({"title": "x"})", "Missing \"id\""},
    {"add_chapter", R"({"id": "Nope.md"})", "Nothing at \"Nope.md\""},
    {"add_chapter", R"({"id": "Scenes", "title": "x"})", "\"Scenes\" is a folder, not a script"},
    {"add_chapter", R"({"id": "Notes.md"})", firstTitle},
    {"add_chapter", R"({"id": "Notes.md", "title": "x"})", firstTitle},
    {"add_chapter", R"({"id": "Notes.md", "title": "x", "before": "9"})", firstTitle},
    {"add_chapter", R"({"id": "Notes.md", "title": "x", "first_title": ""})", firstTitle},
    {"add_chapter", R"({"id": "Notes.md", "title": "x", "first_title": 5})", firstTitle},
    {"add_chapter", R"({"id": "Notes.md", "first_title": "A", "before": "2"})",
     "There is no chapter 2. This script has 1, numbered 1 to 1."},
    {"add_chapter", R"({"id": "Notes.md", "first_title": "A", "before": "1"})", "Missing \"title\""},
    {"add_chapter", R"({"id": "Notes.md", "first_title": "A"})", "Missing \"title\""},
    {"add_chapter", R"({"id": "Empty.md", "before": "1"})", noChapters},
    {"add_chapter", R"({"id": "Empty.md", "before": "1", "first_title": "A", "title": "x"})", noChapters},
    {"add_chapter", R"({"id": "Empty.md"})", "Missing \"title\""},
    {"add_chapter", R"({"id": "Talk.md", "before": "9"})", noChapter9},
    {"add_chapter", R"({"id": "Talk.md", "before": "9", "title": "x"})", noChapter9},
    {"add_chapter", R"({"id": "Talk.md", "before": " "})",
     "There is no chapter  . This script has 3, numbered 1 to 3."},
    {"add_chapter", R"({"id": "Talk.md"})", "Missing \"title\""},
    {"add_chapter", R"({"id": "Talk.md", "title": "", "text": "x"})", "Missing \"title\""},
    {"add_chapter", R"({"id": "Talk.md", "title": " \t"})", "Could not add that chapter"},

    {"rename_chapter", R"({})", "Missing \"id\""},
    {"rename_chapter", R"({"chapter": "9", "title": "x"})", "Missing \"id\""},
    {"rename_chapter", R"({"id": "Nope.md"})", "Nothing at \"Nope.md\""},
    {"rename_chapter", R"({"id": "Talk.md"})", "Missing \"chapter\""},
    {"rename_chapter", R"({"id": "Talk.md", "chapter": 1, "title": "x"})", "Missing \"chapter\""},
    {"rename_chapter", R"({"id": "Talk.md", "chapter": "9"})", noChapter9},
    {"rename_chapter", R"({"id": "Notes.md", "chapter": "9"})", noChapters},
    {"rename_chapter", R"({"id": "Talk.md", "chapter": "1"})", "Missing \"title\""},
    {"rename_chapter", R"({"id": "Talk.md", "chapter": "1", "title": ""})", "Missing \"title\""},

    {"update_chapter", R"({})", "Missing \"id\""},
    {"update_chapter", R"({"id": "Nope.md"})", "Nothing at \"Nope.md\""},
    {"update_chapter", R"({"id": "Talk.md", "text": "x"})", "Missing \"chapter\""},
    {"update_chapter", R"({"id": "Talk.md", "chapter": "9"})", noChapter9},
    {"update_chapter", R"({"id": "Talk.md", "chapter": "1"})", "Missing \"text\""},
    {"update_chapter", R"({"id": "Talk.md", "chapter": "1", "text": ""})", "Missing \"text\""},
    {"update_chapter", R"({"id": "Talk.md", "chapter": "1", "title": "x"})", "Missing \"text\""},

    {"move_chapter", R"({})", "Missing \"id\""},
    {"move_chapter", R"({"id": "Nope.md"})", "Nothing at \"Nope.md\""},
    {"move_chapter", R"({"id": "Talk.md", "to": "1"})", "Missing \"chapter\""},
    {"move_chapter", R"({"id": "Talk.md", "chapter": "9"})", noChapter9},
    {"move_chapter", R"({"id": "Talk.md", "chapter": "9", "to": "8"})", noChapter9},
    {"move_chapter", R"({"id": "Talk.md", "chapter": "1"})", "Missing \"to\""},
    {"move_chapter", R"({"id": "Talk.md", "chapter": "1", "to": 2})", "Missing \"to\""},
    {"move_chapter", R"({"id": "Talk.md", "chapter": "1", "to": "9"})", noChapter9},
    {"move_chapter", R"({"id": "Talk.md", "chapter": "1", "to": "4"})",
     "There is no chapter 4. This script has 3, numbered 1 to 3."},

    {"remove_chapter", R"({})", "Missing \"id\""},
    {"remove_chapter", R"({"id": "Nope.md"})", "Nothing at \"Nope.md\""},
    {"remove_chapter", R"({"id": "Talk.md", "keep_text": "maybe"})", "Missing \"chapter\""},
    {"remove_chapter", R"({"id": "Talk.md", "chapter": "9"})", noChapter9},
    {"remove_chapter", R"({"id": "Talk.md", "chapter": "9", "keep_text": "maybe"})", noChapter9},
    {"remove_chapter", R"({"id": "Talk.md", "chapter": "1"})", "Missing \"keep_text\""},
    {"remove_chapter", R"({"id": "Talk.md", "chapter": "1", "keep_text": true})", "Missing \"keep_text\""},
    {"remove_chapter", R"({"id": "Talk.md", "chapter": "1", "keep_text": "maybe"})", keepText},
    {"remove_chapter", R"({"id": "Talk.md", "chapter": "1", "keep_text": " yes"})", keepText},
    {"remove_chapter", R"({"id": "Talk.md", "chapter": "1", "keep_text": "no "})", keepText},
    {"remove_chapter", R"({"id": "Talk.md", "chapter": "1", "keep_text": "no\u0000"})", keepText},
};

class OrderOfChecks : public WorkbenchTest {
 protected:
  // An empty text may reach the history, which does not save it. No other text is saved or written.
  void expectNothingChanged() const {
    EXPECT_EQ(watch->count("write") + watch->count("create") + watch->count("rename"), 0U);
    for (const char* script : {"Empty.md", "Notes.md", "Talk.md"}) EXPECT_TRUE(labelsOf(script).empty());
    EXPECT_EQ(textOf("Talk.md"), talk);
  }
};

TEST_F(OrderOfChecks, reportsTheFirstFaultAndChangesNothing) {
  for (const auto& each : failures) {
    SCOPED_TRACE(callOf(each));
    EXPECT_EQ(call(each.tool, each.arguments), failed(each.message));
    EXPECT_FALSE(watch->locked);
    expectNothingChanged();
  }
}

TEST_F(OrderOfChecks, putsTheLocksErrorBeforeFaultsThatOnlyTheTextShows) {
  watch->failingLock = "The library is busy.";
  for (const auto& each : failures) {
    SCOPED_TRACE(callOf(each));
    const std::size_t locksBefore = watch->count("lock");
    const auto answer = call(each.tool, each.arguments);
    const bool triedToLock = watch->count("lock") > locksBefore;
    EXPECT_EQ(answer, failed(triedToLock ? "The library is busy." : each.message));
    expectNothingChanged();
  }
}

TEST_F(OrderOfChecks, quotesInvalidBytesAndNULsUnchanged) {
  using namespace std::string_literals;
  const auto odd = "a\0b\xff\"\n"s;
  const struct {
    std::string_view tool;
    JSON::Object arguments;
    std::string message;
  } cases[] = {
      {"read_script", {{"id", odd}}, "Nothing at \"" + odd + "\""},
      {"read_script", {{"id", "Talk.md\0"s}}, "Nothing at \"Talk.md\0\""s},
      {"read_script", {{"id", "/" + odd}}, "\"/" + odd + "\" is not inside the library"},
      {"create_folder", {{"folder", odd}, {"name", "x"}}, "Nothing at \"" + odd + "\""},
      {"read_chapter",
       {{"id", "Talk.md"}, {"chapter", odd}},
       "There is no chapter " + odd + ". This script has 3, numbered 1 to 3."},
      {"move_chapter",
       {{"id", "Talk.md"}, {"chapter", "1"}, {"to", odd}},
       "There is no chapter " + odd + ". This script has 3, numbered 1 to 3."},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.tool);
    EXPECT_EQ(call(each.tool, each.arguments), failed(each.message));
  }
}

}  // namespace
}  // namespace kelvane::tests
