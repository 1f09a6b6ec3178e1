#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "scripttools/Chapters.h"
#include "tests/scripttools/Workbench.h"

namespace kelvane::tests {
namespace {

using namespace std::string_literals;
using Texts = std::vector<std::string>;

class ChapterEditingTools : public WorkbenchTest {
 protected:
  // The titles of a script's chapters, each with its text in angle brackets.
  std::string outline(const std::string& file) const {
    const quorvel::Script script(textOf(file));
    const auto chapters = chaptersOf(script);
    std::string text;
    for (const auto& chapter : chapters) {
      text += chapter.title + "<";
      text += quorvel::trimmingWhitespace(chapterBody(chapter.index, chapters, script));
      text += "> ";
    }
    return text;
  }

  // No version was saved and no text was written.
  void expectUntouched(const std::string& file, std::string_view text) const {
    EXPECT_EQ(textOf(file), text);
    EXPECT_EQ(watch->changes(), 0U);
  }
};

TEST_F(ChapterEditingTools, changeTheChaptersAndSaveTheOldTextAsAVersion) {
  const struct {
    std::string_view tool;
    std::string_view arguments;
    std::string_view outline;
    std::string_view label;
  } cases[] = {
      {"add_chapter", R"({"id": "Talk.md", "title": "Four", "text": "end"})",
       "One<alpha beta> Two<gamma\n\ndelta> Three<> Four<end> ", "Before — added chapter Four"},
      {"add_chapter", R"({"id": "Talk.md", "title": "Zero", "before": "1"})",
       "Zero<> One<alpha beta> Two<gamma\n\ndelta> Three<> ", "Before — added chapter Zero"},
      {"add_chapter", R"({"id": "Talk.md", "title": "Mid", "before": "+03", "text": "m"})",
       "One<alpha beta> Two<gamma\n\ndelta> Mid<m> Three<> ", "Before — added chapter Mid"},
      {"add_chapter", R"({"id": "Talk.md", "title": "Four", "before": 1})",
       "One<alpha beta> Two<gamma\n\ndelta> Three<> Four<> ", "Before — added chapter Four"},
      {"add_chapter", R"({"id": "Talk.md", "title": "Four", "before": "", "text": 7, "first_title": "No"})",
       "One<alpha beta> Two<gamma\n\ndelta> Three<> Four<> ", "Before — added chapter Four"},
      {"rename_chapter", R"({"id": "Talk.md", "chapter": "+2", "title": "Second"})",
       "One<alpha beta> Second<gamma\n\ndelta> Three<> ", "Before — renamed chapter +2"},
      {"update_chapter", R"({"id": "Talk.md", "chapter": "01", "text": "new text"})",
       "One<new text> Two<gamma\n\ndelta> Three<> ", "Before — rewrote chapter 01"},
      {"add_chapter", R"({"id": "Talk.md", "title": "# Four", "text": "end"})",
       "One<alpha beta> Two<gamma\n\ndelta> Three<> Four<end> ", "Before — added chapter # Four"},
      {"rename_chapter", R"({"id": "Talk.md", "chapter": "2", "title": "# # Second"})",
       "One<alpha beta> Second<gamma\n\ndelta> Three<> ", "Before — renamed chapter 2"},
      {"update_chapter", R"({"id": "Talk.md", "chapter": "2", "text": "# Two\n\nnew text"})",
       "One<alpha beta> Two<new text> Three<> ", "Before — rewrote chapter 2"},
      {"update_chapter", R"({"id": "Talk.md", "chapter": "3", "text": "new\n\n# Four\n\ntext"})",
       "One<alpha beta> Two<gamma\n\ndelta> Three<new> Four<text> ", "Before — rewrote chapter 3"},
      {"move_chapter", R"({"id": "Talk.md", "chapter": "1", "to": "+3"})",
       "Two<gamma\n\ndelta> Three<> One<alpha beta> ", "Before — moved chapter 1 to +3"},
      {"move_chapter", R"({"id": "Talk.md", "chapter": "003", "to": "1"})",
       "Three<> One<alpha beta> Two<gamma\n\ndelta> ", "Before — moved chapter 003 to 1"},
      {"remove_chapter", R"({"id": "Talk.md", "chapter": "2", "keep_text": "no"})", "One<alpha beta> Three<> ",
       "Before — removed chapter 2"},
      {"remove_chapter", R"({"id": "Talk.md", "chapter": "3", "keep_text": "Yes"})",
       "One<alpha beta> Two<gamma\n\ndelta> ", "Before — removed chapter 3"},
      {"remove_chapter", R"({"id": "Talk.md", "chapter": "+3", "keep_text": "NO"})",
       "One<alpha beta> Two<gamma\n\ndelta> ", "Before — removed chapter +3"},
  };
  std::size_t kept = 0;
  for (const auto& each : cases) {
    SCOPED_TRACE(callOf(each));
    put("Talk.md", talk);
    const auto answer = call(each.tool, each.arguments);
    EXPECT_EQ(answer, answered(chapterList(quorvel::Script(textOf("Talk.md")))));
    EXPECT_EQ(outline("Talk.md"), each.outline);
    ASSERT_EQ(labelsOf("Talk.md").size(), ++kept);
    EXPECT_EQ(labelsOf("Talk.md").front(), each.label);
    EXPECT_EQ(keptOf("Talk.md").front(), talk);
  }
}

TEST_F(ChapterEditingTools, addToAnEmptyScriptWithoutSavingAVersion) {
  EXPECT_EQ(call("add_chapter", R"({"id": "Empty.md", "title": "Start", "first_title": "Ignored"})"),
            answered(R"([{"chapter":1,"starts_at":"0:00","title":"Start","words":0}])"));
  EXPECT_TRUE(labelsOf("Empty.md").empty());
  EXPECT_EQ(watch->count("write Empty.md"), 1U);
}

TEST_F(ChapterEditingTools, addToAScriptOfWhiteSpaceWithoutAFirstTitle) {
  put("Blank.md", " \n\n\t");
  EXPECT_EQ(call("add_chapter", R"({"id": "Blank.md", "title": "Start", "first_title": "Ignored"})"),
            answered(R"([{"chapter":1,"starts_at":"0:00","title":"Start","words":0}])"));
  EXPECT_EQ(keptOf("Blank.md"), Texts{" \n\n\t"});
}

TEST_F(ChapterEditingTools, makeTheExistingTextChapterOne) {
  EXPECT_EQ(call("add_chapter", R"({"id": "Notes.md", "title": "Next", "first_title": "Intro", "text": "more"})"),
            answered(R"([{"chapter":1,"starts_at":"0:00","title":"Intro","words":10},)"
                     R"({"chapter":2,"starts_at":"0:04","title":"Next","words":1}])"));
  const std::string old = "one two three four five six seven eight nine ten";
  EXPECT_EQ(textOf("Notes.md").substr(0, old.size() + 10), "# Intro\n\n" + old + "\n");
  EXPECT_EQ(labelsOf("Notes.md"), Texts{"Before — added chapter Next"});
  EXPECT_EQ(keptOf("Notes.md"), Texts{old});
}

TEST_F(ChapterEditingTools, writeTheFirstTitleAsItWasSentAfterTheMarker) {
  put("Raw.md", "raw\r\n");
  ASSERT_FALSE(call("add_chapter", R"({"id": "Raw.md", "title": "# Next", "first_title": "# First"})").failed);
  EXPECT_EQ(textOf("Raw.md"), "# # First\n\nraw\r\n\r\n# Next\r\n");
}

TEST_F(ChapterEditingTools, writeTheLineBreaksOfTheWordsBelowAFirstTitle) {
  const JSON::Object atTheEnd{{"id", "Raw.md"}, {"title", "New"}, {"first_title", "Open"}, {"text", "b\nc"}};
  put("Raw.md", "one line\r\n");
  ASSERT_FALSE(call("add_chapter", atTheEnd).failed);
  EXPECT_EQ(textOf("Raw.md"), "# Open\n\none line\r\n\r\n# New\r\n\r\nb\r\nc\r\n");
  put("Raw.md", "one line\r\n");
  JSON::Object inFront = atTheEnd;
  inFront.set("before", "1");
  ASSERT_FALSE(call("add_chapter", inFront).failed);
  EXPECT_EQ(textOf("Raw.md"), "# New\r\n\r\nb\r\nc\r\n\r\n# Open\n\none line\r\n");
  put("Raw.md", "one line\r\nand another\n");
  ASSERT_FALSE(call("add_chapter", atTheEnd).failed);
  EXPECT_EQ(textOf("Raw.md"), "# Open\n\none line\r\nand another\n\n# New\n\nb\nc\n");
}

TEST_F(ChapterEditingTools, writeTheLineBreaksOfTheScript) {
  put("Windows.md", "# A\r\n\r\na\r\n");
  ASSERT_FALSE(call("add_chapter", R"({"id": "Windows.md", "title": "B", "text": "b\nc\n"})").failed);
  EXPECT_EQ(textOf("Windows.md"), "# A\r\n\r\na\r\n\r\n# B\r\n\r\nb\r\nc\r\n");
  ASSERT_FALSE(call("update_chapter", R"({"id": "Windows.md", "chapter": "1", "text": "a\nd"})").failed);
  EXPECT_EQ(textOf("Windows.md"), "# A\r\n\r\na\r\nd\r\n\r\n# B\r\n\r\nb\r\nc\r\n");
  ASSERT_FALSE(call("append_to_script", R"({"id": "Windows.md", "text": "e\nf", "note": "n"})").failed);
  EXPECT_EQ(textOf("Windows.md"), "# A\r\n\r\na\r\nd\r\n\r\n# B\r\n\r\nb\r\nc\r\n\r\ne\r\nf");
  ASSERT_FALSE(call("update_script", R"({"id": "Windows.md", "text": "g\nh", "note": "n"})").failed);
  EXPECT_EQ(textOf("Windows.md"), "g\nh");
}

TEST_F(ChapterEditingTools, addAChapterBeforeAHeadingThatIsPartOfTheFirstTitle) {
  const struct {
    const char* script;
    const char* before;
    const char* text;
  } cases[] = {
      {"raw\n", "1", "# New\n\n# A\n# B\n\nraw\n"},
      {"raw\n", "2", "# A\n\n# New\n\n# B\n\nraw\n"},
      {"raw\r\n", "1", "# New\r\n\r\n# A\n# B\n\nraw\r\n"},
      {"raw\r\n", "2", "# A\n\r\n# New\r\n\r\n# B\n\nraw\r\n"},
  };
  for (const auto& [script, before, text] : cases) {
    put("Raw.md", script);
    const JSON::Object arguments{{"id", "Raw.md"}, {"title", "New"}, {"first_title", "A\n# B"}, {"before", before}};
    ASSERT_FALSE(call("add_chapter", arguments).failed);
    EXPECT_EQ(textOf("Raw.md"), text);
  }
}

TEST_F(ChapterEditingTools, leaveTheExistingTextUnchangedBelowItsTitle) {
  put("Raw.md", "\r\n  raw \xff text\t");
  const JSON::Object arguments{{"id", "Raw.md"}, {"title", "Next"}, {"first_title", "A\n# B "}, {"before", "1"}};
  ASSERT_FALSE(call("add_chapter", arguments).failed);
  const auto text = textOf("Raw.md");
  EXPECT_NE(text.find("# A\n# B \n\n\r\n  raw \xff text\t"), text.npos) << text;
  EXPECT_LT(text.find("Next"), text.find("# A"));
}

TEST_F(ChapterEditingTools, returnTheChapterListIfNothingChanges) {
  const struct {
    std::string_view description;
    std::string_view tool;
    std::string_view arguments;
  } cases[] = {
      {"a chapter moved to where it is", "move_chapter", R"({"id": "Scenes/Intro.md", "chapter": "1", "to": "01"})"},
      {"a chapter renamed to its title", "rename_chapter",
       R"({"id": "Scenes/Intro.md", "chapter": "1", "title": "Intro"})"},
      {"a chapter rewritten with its text", "update_chapter",
       R"({"id": "Scenes/Intro.md", "chapter": "1", "text": "Hello there.\n"})"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.description);
    EXPECT_EQ(call(each.tool, each.arguments),
              answered(R"([{"chapter":1,"starts_at":"0:00","title":"Intro","words":2}])"));
    expectUntouched("Scenes/Intro.md", "# Intro\n\nHello there.\n");
  }
}

TEST_F(ChapterEditingTools, treatACanonicallyEquivalentTextAsUnchanged) {
  const auto composed = "# caf\xc3\xa9\n\ntext\n"s;
  put("Accents.md", composed);
  const JSON::Object decomposed{{"id", "Accents.md"}, {"chapter", "1"}, {"title", "cafe\xcc\x81"}};
  EXPECT_EQ(call("rename_chapter", decomposed),
            answered("[{\"chapter\":1,\"starts_at\":\"0:00\",\"title\":\"caf\xc3\xa9\",\"words\":1}]"));
  expectUntouched("Accents.md", composed);
}

TEST_F(ChapterEditingTools, compareTextsThatAreNotUTF8ByteForByte) {
  put("Bytes.md", "# caf\xc3\xa9\n\n\xff\n");
  const JSON::Object decomposed{{"id", "Bytes.md"}, {"chapter", "1"}, {"title", "cafe\xcc\x81"}};
  EXPECT_FALSE(call("rename_chapter", decomposed).failed);
  EXPECT_EQ(textOf("Bytes.md"), "# cafe\xcc\x81\n\n\xff\n");
  EXPECT_EQ(labelsOf("Bytes.md"), Texts{"Before — renamed chapter 1"});
}

TEST_F(ChapterEditingTools, quoteATitleInTheNoteAsItWasSent) {
  const auto odd = " a\0\"b\"\n\xff "s;
  EXPECT_FALSE(call("add_chapter", JSON::Object{{"id", "Talk.md"}, {"title", odd}}).failed);
  EXPECT_EQ(labelsOf("Talk.md"), Texts{"Before — added chapter " + odd});
}

TEST_F(ChapterEditingTools, ignoreTheLetterCaseOfKeepText) {
  for (const std::string keep : {"yes", "YES", "yEs", "no", "No", "nO"}) {
    SCOPED_TRACE(keep);
    put("Talk.md", talk);
    const auto answer = call("remove_chapter", JSON::Object{{"id", "Talk.md"}, {"chapter", "1"}, {"keep_text", keep}});
    EXPECT_FALSE(answer.failed) << answer;
    EXPECT_EQ(textOf("Talk.md").find("alpha beta") != std::string::npos, keep[0] == 'y' || keep[0] == 'Y');
  }
}

}  // namespace
}  // namespace kelvane::tests
