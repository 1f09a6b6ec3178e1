#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/QuorvelCore.h"
#include "tests/quorvel/core/Texts.h"

namespace quorvel {
namespace {

using tests::byteOrderMark;
using tests::repeated;
using tests::shown;
using namespace std::string_literals;

/// A chapter as a table shows it: the offsets of its heading's start and end, of the chapter's end, and so on.
struct Chapter {
  std::string title;
  std::size_t begin;
  std::size_t text;
  std::size_t end;
  WordRange words;
  std::int64_t startSecond = 0;
};

struct Row {
  const char* description;
  std::string text;
  std::size_t words;
  std::vector<Chapter> chapters;
};

std::string described(const TextRange& range) {
  return "[" + std::to_string(range.begin) + ", " + std::to_string(range.end) + ")";
}

std::string described(const ScriptHeading& heading) {
  return described(heading.range) + " behind " + std::to_string(heading.wordsBefore) + " words";
}

std::string described(const ScriptChapter& chapter) {
  return std::to_string(chapter.index) + " " + shown(chapter.title) + " " + described(chapter.range) + " words " +
         described(TextRange{chapter.words.begin, chapter.words.end}) + " at " + std::to_string(chapter.startSecond);
}

template <typename Record>
std::vector<std::string> described(const std::vector<Record>& records) {
  std::vector<std::string> result;
  for (const Record& record : records) result.push_back(described(record));
  return result;
}

void expect(const Row& row) {
  SCOPED_TRACE(row.description);
  const Script script(row.text);
  EXPECT_EQ(script.text(), row.text);
  EXPECT_EQ(script.wordCount(), row.words);

  std::vector<ScriptHeading> headings;
  std::vector<ScriptChapter> chapters;
  for (const Chapter& chapter : row.chapters) {
    headings.push_back({{chapter.begin, chapter.text}, chapter.words.begin});
    chapters.push_back(
        {chapters.size(), chapter.title, {chapter.begin, chapter.end}, chapter.words, chapter.startSecond});
  }
  EXPECT_EQ(described(script.headings()), described(headings)) << shown(row.text);
  EXPECT_EQ(described(ScriptChapters::chapters(script)), described(chapters)) << shown(row.text);
}

TEST(Script, hasAChapterForEachHeadingLine) {
  const std::string bom(byteOrderMark);
  const Row rows[] = {
      {"an empty text", "", 0, {}},
      {"a text without headings", "one two\nthree\n", 3, {}},
      {"white space only", " \n\t\r\n", 0, {}},
      {"one chapter", "# One\n\nHello there.\n", 2, {{"One", 0, 6, 20, {0, 2}}}},
      {"one chapter, CR LF", "# One\r\n\r\nHello there.\r\n", 2, {{"One", 0, 7, 23, {0, 2}}}},
      {"two chapters", "# A\na\n# B\nb c", 3, {{"A", 0, 4, 6, {0, 1}}, {"B", 6, 10, 13, {1, 3}}}},
      {"text before the first heading", "x y\n# A\nz", 3, {{"A", 4, 8, 9, {2, 3}}}},
      {"a heading at the end without a line break", "x\n# A", 1, {{"A", 2, 5, 5, {1, 1}}}},
      {"a heading at the end with a line break", "# A\n", 0, {{"A", 0, 4, 4, {0, 0}}}},
      {"a heading at the end with a CR alone", "# A\r", 0, {{"A", 0, 4, 4, {0, 0}}}},
      {"headings one below the other", "# A\n# B\n", 0, {{"A", 0, 4, 4, {0, 0}}, {"B", 4, 8, 8, {0, 0}}}},
      {"equal titles", "# A\n# A\n", 0, {{"A", 0, 4, 4, {0, 0}}, {"A", 4, 8, 8, {0, 0}}}},
      {"LF and CR LF mixed", "# A\r\na\n# B\nb\r\n", 2, {{"A", 0, 5, 7, {0, 1}}, {"B", 7, 11, 14, {1, 2}}}},
      {"a byte-order mark", bom + "# A\na", 1, {{"A", 3, 7, 8, {0, 1}}}},
      {"a byte-order mark alone", bom, 0, {}},
      {"a byte-order mark on a line of its own", bom + "\n# A\n", 0, {{"A", 4, 8, 8, {0, 0}}}},
      {"a byte-order mark before text", bom + "a b\n# A\n", 2, {{"A", 7, 11, 11, {2, 2}}}},
      {"a second byte-order mark is text", bom + bom + "# A\n", 2, {}},
      {"a byte-order mark further down is text", "a\n" + bom + "# A\n", 3, {}},
      {"bytes that are not UTF-8", "\xFF\n# \xC3(\n\x80 \xE3\x80\n", 3, {{"\xC3(", 2, 7, 12, {1, 3}}}},
      {"a NUL", "# A\0B\nx\0y\n"s, 1, {{"A\0B"s, 0, 6, 10, {0, 1}}}},
  };
  for (const Row& row : rows) expect(row);
}

TEST(Script, treatsOnlyLinesThatStartWithTheMarkerAsHeadings) {
  struct Case {
    const char* description;
    std::string text;
  };
  const Case cases[] = {
      {"a space before it", " # A\n"},
      {"no space after it", "#A\n"},
      {"the sign alone", "#\n"},
      {"the sign alone at the end", "a\n#"},
      {"the sign and a line break", "#\r\n"},
      {"a tab instead of the space", "#\tA\n"},
      {"a no-break space instead of the space",
       "#\xC2\xA0"
       "A\n"},
      {"two signs", "## A\n"},
      {"inside a line", "a # A\n"},
      {"behind a CR alone", "a\r# A\n"},
      {"after a line separator", "a\xE2\x80\xA8# A\n"},
      {"after a next line", "a\xC2\x85# A\n"},
      {"behind a form feed", "a\f# A\n"},
      {"a full-width sign", "\xEF\xBC\x83 A\n"},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.description);
    EXPECT_TRUE(Script(row.text).headings().empty());
    EXPECT_TRUE(ScriptChapters::chapters(Script(row.text)).empty());
  }
}

TEST(Script, readsATitleWithoutTheWhiteSpaceAroundIt) {
  struct Case {
    const char* description;
    std::string line;
    std::string title;
  };
  const Case cases[] = {
      {"as it stands", "# The end", "The end"},
      {"spaces and tabs", "#  \t The end \t", "The end"},
      {"no title", "# ", ""},
      {"a title of spaces", "#    ", ""},
      {"inner spaces stay", "# The   end", "The   end"},
      {"other white space", "# \xE3\x80\x80The end\xC2\xA0", "The end"},
      {"a CR alone inside", "# a\rb", "a\rb"},
      {"a CR alone at the end", "# a\r", "a"},
      {"a sign as title", "# #", "#"},
      {"a heading in a heading", "# # a", "# a"},
      {"a mark right behind the marker",
       "# \xCC\x81"
       "a",
       "\xCC\x81"
       "a"},
      {"a space with a mark is white space",
       "#  \xCC\x81"
       "a",
       "a"},
      {"a zero width space is not white space", "# \xE2\x80\x8B", "\xE2\x80\x8B"},
      {"bytes that are not UTF-8", "# \xFF\xFE ", "\xFF\xFE"},
  };
  for (const Case& row : cases) {
    for (const char* lineBreak : {"", "\n", "\r\n"}) {
      SCOPED_TRACE(row.description + shown(lineBreak));
      const auto chapters = ScriptChapters::chapters(Script(row.line + lineBreak));
      ASSERT_EQ(chapters.size(), 1U);
      EXPECT_EQ(chapters[0].title, row.title);
    }
  }
}

TEST(Script, countsTheWordsReadAloud) {
  struct Case {
    const char* description;
    std::string text;
    std::size_t words;
  };
  const Case cases[] = {
      {"a heading's words are not read", "# One two three\nfour\n# Five\nsix seven", 3},
      {"headings only", "# One\n# Two", 0},
      {"a line that only looks like one is read", "#One two", 2},
      {"any white space parts words",
       "a\tb\rc\vd\fe\xC2\xA0"
       "f\xE3\x80\x80g\xC2\x85h\xE2\x80\xA8i",
       9},
      {"a space with a mark separates words",
       "a \xCC\x81"
       "b",
       2},
      {"a zero width space does not",
       "a\xE2\x80\x8B"
       "b",
       1},
      {"a space joined to a character does not", "a\xD8\x80 b", 1},
      {"a line break ends a word", "a\r\nb\nc", 3},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.description);
    EXPECT_EQ(Script(row.text).wordCount(), row.words);
  }
}

TEST(Script, startsAChapterAfterTheWordsBeforeItAreRead) {
  struct Case {
    std::size_t wordsBefore;
    std::int64_t second;
  };
  constexpr Case cases[] = {{0, 0},    {1, 0},    {2, 0},     {3, 1},     {4, 1},       {5, 2},
                            {149, 59}, {150, 60}, {374, 149}, {375, 150}, {9000, 3600}, {100'000, 40'000}};
  for (const Case& row : cases) {
    const std::string words = repeated("word ", row.wordsBefore);
    for (const std::string& text : {words + "\n# A\nx", "# First with a title\n" + words + "\n# A\nx"}) {
      const auto chapters = ScriptChapters::chapters(Script(text));
      EXPECT_EQ(chapters.back().words.begin, row.wordsBefore);
      EXPECT_EQ(chapters.back().startSecond, row.second);
    }
  }
}

TEST(Script, listsAWholeScript) {
  const std::string text =
      "Good evening.\n"
      "\n"
      "# Opening\n"
      "\n"
      "Thank you all for coming tonight.\n"
      "\n"
      "# The middle  \n"
      "\n"
      "It was a dark night.\n"
      "## not a chapter\n"
      "\n"
      "# \n"
      "# End\n"
      "Bye.";
  expect({"a talk",
          text,
          18,
          {{"Opening", 15, 25, 61, {2, 8}, 0},
           {"The middle", 61, 76, 116, {8, 17}, 3},
           {"", 116, 119, 119, {17, 17}, 6},
           {"End", 119, 125, 129, {17, 18}, 6}}});
}

TEST(Script, trimsWhiteSpaceByWholeCharacters) {
  struct Case {
    const char* description;
    std::string text;
    std::string trimmed;
  };
  const Case cases[] = {
      {"an empty text", "", ""},
      {"no white space at the ends", "a b", "a b"},
      {"spaces, tabs and line breaks", " \t\r\n a\nb \n\n", "a\nb"},
      {"white space only", " \r\n\t", ""},
      {"beyond ASCII",
       "\xE3\x80\x80\xC2\xA0"
       "a\xE2\x80\xA8",
       "a"},
      {"a mark is removed with its space",
       " \xCC\x81"
       "a \xCC\x81",
       "a"},
      {"a space joined to a character stays", "a\xD8\x80 ", "a\xD8\x80 "},
      {"bytes that are not UTF-8", " \xFF ", "\xFF"},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.description);
    EXPECT_EQ(trimmingWhitespace(row.text), row.trimmed);
  }
}

}  // namespace
}  // namespace quorvel
