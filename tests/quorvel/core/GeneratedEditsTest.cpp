#include "tests/quorvel/core/GeneratedEdits.h"

#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <string>

#include "platform/QuorvelCore.h"

namespace quorvel::tests {
namespace {

bool contains(const std::vector<std::string>& pieces, const std::string& piece) {
  return std::find(pieces.begin(), pieces.end(), piece) != pieces.end();
}

TEST(GeneratedEdits, repeatForTheSameSeed) {
  EXPECT_EQ(anyEdit(1).described(), anyEdit(1).described());
  EXPECT_EQ(editOfACanonicalScript(1).described(), editOfACanonicalScript(1).described());
  EXPECT_NE(anyEdit(1).described(), anyEdit(2).described());
}

TEST(GeneratedEdits, coverEveryKindOfEdit) {
  std::size_t withoutChapters = 0, withText = 0, withMark = 0, withoutFinalBreak = 0, withCRLF = 0, equalTitles = 0;
  std::size_t emptyChapters = 0, headingsGiven = 0, notUTF8 = 0;
  for (std::uint64_t seed = 0; seed < 1000; ++seed) {
    const GeneratedEdit edit = anyEdit(seed);
    const Script script(edit.text());
    const auto chapters = ScriptChapters::chapters(script);
    std::set<std::string> titles;
    for (const ScriptChapter& chapter : chapters) {
      if (!titles.insert(chapter.title).second) ++equalTitles;
      if (chapter.words.begin == chapter.words.end) ++emptyChapters;
    }
    if (chapters.empty()) ++withoutChapters;
    if (!chapters.empty() && chapters[0].words.begin > 0) ++withText;
    if (edit.text().starts_with("\xEF\xBB\xBF")) ++withMark;
    if (!edit.text().ends_with('\n')) ++withoutFinalBreak;
    if (edit.text().find("\r\n") != std::string::npos) ++withCRLF;
    if (!Script("\n" + edit.givenText()).headings().empty()) ++headingsGiven;
    if (edit.text().find('\xFF') != std::string::npos) ++notUTF8;
  }
  for (const std::size_t count : {withoutChapters, withText, withMark, withoutFinalBreak, withCRLF, equalTitles,
                                  emptyChapters, headingsGiven, notUTF8}) {
    EXPECT_GE(count, 50U);
  }
}

TEST(GeneratedEdits, shrinkToThePiecesThatFail) {
  GeneratedEdit edit;
  for (int piece = 0; piece < 100; ++piece) edit.script.push_back(std::to_string(piece));
  edit.given = {"a", "b", "c"};
  const Property property = [](const GeneratedEdit& candidate) -> std::optional<std::string> {
    if (contains(candidate.script, "17") && contains(candidate.script, "83")) return "fails";
    return std::nullopt;
  };
  const GeneratedEdit smallest = shrunk(edit, property);
  EXPECT_EQ(smallest.script, (std::vector<std::string>{"17", "83"}));
  EXPECT_TRUE(smallest.given.empty());
}

}  // namespace
}  // namespace quorvel::tests
