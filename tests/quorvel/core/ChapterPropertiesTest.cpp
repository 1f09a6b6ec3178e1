#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/QuorvelCore.h"
#include "platform/QuorvelLibrary.h"
#include "platform/Unicode.h"
#include "tests/quorvel/core/GeneratedEdits.h"
#include "tests/quorvel/core/ScriptParts.h"
#include "tests/quorvel/core/Texts.h"

namespace quorvel {
namespace {

using tests::anyEdit;
using tests::ChapterParts;
using tests::GeneratedEdit;
using tests::partsOf;
using tests::passageOf;
using tests::ScriptParts;
using tests::shown;

using Verdict = std::optional<std::string>;
const Verdict fine;

Verdict equal(const std::string& what, const std::string& found, const std::string& expected) {
  if (found == expected) return fine;
  return what + ": found " + shown(found) + ", expected " + shown(expected);
}

Verdict holds(bool condition, const std::string& complaint, const std::string& text) {
  return condition ? fine : Verdict(complaint + ": " + shown(text));
}

/// The chapters of a given text with the line breaks that it is expected to have; `preamble` is the text before them.
/// They follow a line break, so that a byte-order mark in the text is not at the start.
ScriptParts partsOfGiven(const std::string& given) {
  ScriptParts parts = partsOf("\n" + passageOf(given));
  parts.preamble.erase(0, 1);
  return parts;
}

/// The titles with others instead of those from `begin` to `end`.
std::vector<std::string> replacing(std::vector<std::string> titles, std::size_t begin, std::size_t end,
                                   const std::vector<std::string>& others) {
  const auto first = titles.begin() + static_cast<std::ptrdiff_t>(begin);
  const auto next = titles.erase(first, titles.begin() + static_cast<std::ptrdiff_t>(end));
  titles.insert(next, others.begin(), others.end());
  return titles;
}

TEST(ChapterModel, matchesAReadingLineByLine) {
  tests::expectForGeneratedEdits(anyEdit, [](const GeneratedEdit& edit) -> Verdict {
    const Script script(edit.text());
    const ScriptParts parts = partsOf(script.text());
    std::string read = parts.preamble.substr(parts.preamble.starts_with(tests::byteOrderMark) ? 3 : 0);
    std::size_t words = kelvane::unicode::wordCount(read);
    std::size_t end = parts.preamble.size();
    std::vector<ScriptHeading> headings;
    std::vector<ScriptChapter> chapters;
    for (const ChapterParts& part : parts.chapters) {
      const std::size_t begin = end;
      const std::size_t wordsBefore = words;
      end += part.text().size();
      words = kelvane::unicode::wordCount(read += part.body);
      headings.push_back({{begin, begin + part.heading.size()}, wordsBefore});
      chapters.push_back({chapters.size(),
                          part.title(),
                          {begin, end},
                          {wordsBefore, words},
                          static_cast<std::int64_t>(wordsBefore * 2 / 5)});
    }
    const bool same = script.headings() == headings && ScriptChapters::chapters(script) == chapters;
    return holds(same && script.wordCount() == words, "another model", script.text());
  });
}

TEST(AddingAChapter, leavesEverythingElseUnchanged) {
  tests::expectForGeneratedEdits(anyEdit, [](const GeneratedEdit& edit) -> Verdict {
    const Script script(edit.text());
    const std::size_t count = script.headings().size();
    const std::size_t index = edit.chapter % (count + 1);
    const auto before = index == count ? std::nullopt : std::optional(index);
    const auto change = ChapterEdits::add(edit.title, edit.givenText(), before, script);
    const std::string title = tests::withoutMarkers(edit.title);
    if (title.empty() || !change) return holds(title.empty() && !change, "added, or not", edit.title);

    const std::string text = change->applied(script.text());
    const std::size_t at = before ? script.headings()[index].range.begin : script.text().size();
    if (!text.starts_with(script.text().substr(0, at))) return "what is above changed: " + shown(text);
    if (!text.ends_with(script.text().substr(at))) return "what is below changed: " + shown(text);

    const ScriptParts given = partsOfGiven(tests::inBreaksOf(script.text(), edit.givenText()));
    const ScriptParts after = partsOf(text);
    std::vector<std::string> added = given.titles();
    added.insert(added.begin(), title);
    if (after.titles() != replacing(partsOf(script.text()).titles(), index, index, added)) {
      return "other chapters: " + shown(text);
    }
    return equal("the new chapter's text", passageOf(after.chapters[index].body), passageOf(given.preamble));
  });
}

TEST(RenamingAChapter, changesItsTitleOnly) {
  tests::expectForGeneratedEdits(anyEdit, [](const GeneratedEdit& edit) -> Verdict {
    const Script script(edit.text());
    if (script.headings().empty()) return fine;
    const std::size_t chapter = edit.chapter % script.headings().size();
    const std::string text = ChapterEdits::rename(chapter, edit.title, script)->applied(script.text());
    ScriptParts before = partsOf(script.text());
    const ScriptParts after = partsOf(text);
    if (after.chapters.size() != before.chapters.size()) return "other chapters: " + shown(text);
    const ChapterParts renamed = after.chapters[chapter];
    const std::string old = before.chapters[chapter].heading;
    before.chapters[chapter].heading = renamed.heading;
    if (const Verdict rest = equal("the rest", text, before.text())) return rest;
    const std::string oldTitle = ScriptParts{"", {{old, ""}}}.titles()[0];
    const bool keepsTitle = tests::onOneLine(edit.title) == oldTitle;
    const std::string title = keepsTitle ? oldTitle : tests::withoutMarkers(edit.title);
    if (const Verdict verdict = equal("the title", renamed.title(), title)) return verdict;
    if (title == oldTitle) {
      return equal("the heading that had that title", renamed.heading, old);
    }
    const auto lineBreak = [](const std::string& line) { return line.substr(line.find_last_not_of("\r\n") + 1); };
    return holds(!old.ends_with('\n') || lineBreak(renamed.heading).ends_with('\n'), "the line break went", text);
  });
}

TEST(ReplacingAChaptersText, keepsItsHeadingAndTheOthers) {
  tests::expectForGeneratedEdits(anyEdit, [](const GeneratedEdit& edit) -> Verdict {
    const Script script(edit.text());
    if (script.headings().empty()) return fine;
    const std::size_t chapter = edit.chapter % script.headings().size();
    const std::string sent = edit.givenText();
    const std::string text = ChapterEdits::replaceText(chapter, sent, script)->applied(script.text());
    const ScriptParts before = partsOf(script.text());
    const ChapterParts& old = before.chapters[chapter];
    if (tests::isChaptersText(sent, old, script.text())) return equal("the text that was there", text, script.text());

    const TextRange heading = script.headings()[chapter].range;
    const std::size_t end = heading.end + old.body.size();
    if (!text.starts_with(script.text().substr(0, heading.end))) return "what is above changed: " + shown(text);
    if (!text.ends_with(script.text().substr(end))) return "what is below changed: " + shown(text);
    const std::string converted = tests::inBreaksOf(script.text(), sent);
    const ScriptParts parts = partsOfGiven(tests::belowHeading(converted, old.title()));
    const ScriptParts after = partsOf(text);
    if (after.titles() != replacing(before.titles(), chapter + 1, chapter + 1, parts.titles())) {
      return "other chapters: " + shown(text);
    }
    return equal("the new text", passageOf(after.chapters[chapter].body), passageOf(parts.preamble));
  });
}

TEST(ReplacingAChaptersText, changesNothingForThePresentText) {
  tests::expectForGeneratedEdits(anyEdit, [](const GeneratedEdit& edit) -> Verdict {
    const Script script(edit.text());
    if (script.headings().empty()) return fine;
    const std::size_t chapter = edit.chapter % script.headings().size();
    const std::string body = partsOf(script.text()).chapters[chapter].body;
    for (const std::string& given : {body, std::string(trimmingWhitespace(body)), passageOf(body), "\n" + body + "\n",
                                     partsOf(script.text()).chapters[chapter].text()}) {
      const std::string text = ChapterEdits::replaceText(chapter, given, script)->applied(script.text());
      if (const Verdict verdict = equal("given " + shown(given), text, script.text())) return verdict;
    }
    const std::string once = ChapterEdits::replaceText(chapter, edit.givenText(), script)->applied(script.text());
    if (!partsOfGiven(tests::inBreaksOf(script.text(), edit.givenText())).chapters.empty()) return fine;
    // If the edit changes which line break is the more frequent, the text that is sent again gets the other one.
    if (tests::ownBreakOf(once) != tests::ownBreakOf(script.text())) return fine;
    return equal("once more", ChapterEdits::replaceText(chapter, edit.givenText(), Script(once))->applied(once), once);
  });
}

TEST(MovingAChapter, permutesTheChaptersBetweenTheirSeparators) {
  tests::expectForGeneratedEdits(anyEdit, [](const GeneratedEdit& edit) -> Verdict {
    const Script script(edit.text());
    if (script.headings().empty()) return fine;
    const std::size_t chapter = edit.chapter % script.headings().size();
    const std::size_t to = edit.other % script.headings().size();
    const auto change = ChapterEdits::move(chapter, to, script);
    if (chapter == to || !change) return holds(chapter == to && !change, "moved, or not", script.text());

    const ScriptParts before = partsOf(script.text());
    std::vector<std::string> blocks, separators;
    for (const ChapterParts& part : before.chapters) {
      blocks.push_back(tests::withoutEmptyLinesAtEnd(part.text()));
      separators.push_back(part.text().substr(blocks.back().size()));
    }
    const std::string block = blocks[chapter];
    blocks.erase(blocks.begin() + static_cast<std::ptrdiff_t>(chapter));
    blocks.insert(blocks.begin() + static_cast<std::ptrdiff_t>(to), block);
    std::string expected = before.preamble;
    for (std::size_t index = 0; index < blocks.size(); ++index) expected += blocks[index] + separators[index];

    const std::string text = change->applied(script.text());
    if (const Verdict verdict = equal("moved", text, expected)) return verdict;
    if (Script(text).headings().size() != script.headings().size()) return "other chapters: " + shown(text);
    return equal("moved back", ChapterEdits::move(to, chapter, Script(text))->applied(text), script.text());
  });
}

TEST(RemovingAChapter, alsoRemovesOnlyLineBreaksAboveTheLastChapter) {
  tests::expectForGeneratedEdits(anyEdit, [](const GeneratedEdit& edit) -> Verdict {
    const Script script(edit.text());
    if (script.headings().empty()) return fine;
    const std::size_t chapter = edit.chapter % script.headings().size();
    const std::string text = ChapterEdits::remove(chapter, false, script)->applied(script.text());
    ScriptParts rest = partsOf(script.text());
    rest.chapters.erase(rest.chapters.begin() + static_cast<std::ptrdiff_t>(chapter));
    if (partsOf(text).titles() != rest.titles()) return "other chapters: " + shown(text);
    if (chapter < rest.chapters.size()) return equal("the rest", text, rest.text());
    if (!rest.text().starts_with(text)) return "not the start of the rest: " + shown(text);
    const std::string gone = rest.text().substr(text.size());
    const std::vector<std::string> breaks = {"", "\n", "\r\n", "\n\n", "\n\r\n", "\r\n\n", "\r\n\r\n"};
    return holds(std::find(breaks.begin(), breaks.end(), gone) != breaks.end(), "more than line breaks", gone);
  });
}

TEST(RemovingAChapter, keepsItsWordsIfItsTextIsKept) {
  tests::expectForGeneratedEdits(anyEdit, [](const GeneratedEdit& edit) -> Verdict {
    const Script script(edit.text());
    if (script.headings().empty()) return fine;
    const std::size_t chapter = edit.chapter % script.headings().size();
    const std::string text = ChapterEdits::remove(chapter, true, script)->applied(script.text());
    if (Script(text).wordCount() != script.wordCount()) return "other words: " + shown(text);

    ScriptParts joined = partsOf(script.text());
    const ChapterParts removed = joined.chapters[chapter];
    joined.chapters.erase(joined.chapters.begin() + static_cast<std::ptrdiff_t>(chapter));
    const bool markWouldLead =
        chapter == 0 && joined.preamble.empty() && removed.body.starts_with(tests::byteOrderMark);
    std::string& above = chapter == 0 ? joined.preamble : joined.chapters[chapter - 1].body;
    if (markWouldLead) above += removed.heading.ends_with("\r\n") ? "\r\n" : "\n";
    above += removed.body;
    if (partsOf(text).titles() != joined.titles()) return "other chapters: " + shown(text);
    return equal("joined", text, joined.text());
  });
}

TEST(RemovingAnAddedChapter, restoresTheScript) {
  tests::expectForGeneratedEdits(tests::editOfACanonicalScript, [](const GeneratedEdit& edit) -> Verdict {
    const Script script(edit.text());
    const std::size_t count = script.headings().size();
    const std::size_t index = edit.chapter % (count + 1);
    const auto before = index == count ? std::nullopt : std::optional(index);
    const auto change = ChapterEdits::add(edit.title, edit.givenText(), before, script);
    if (!change || !partsOfGiven(tests::inBreaksOf(script.text(), edit.givenText())).chapters.empty()) return fine;
    const std::string text = change->applied(script.text());
    return equal("restored", ChapterEdits::remove(index, false, Script(text))->applied(text), script.text());
  });
}

TEST(Appending, keepsTheExistingTextAndLeavesAnEmptyLine) {
  tests::expectForGeneratedEdits(anyEdit, [](const GeneratedEdit& edit) -> Verdict {
    const std::string existing = edit.text();
    const std::string text = ScriptText::appending(edit.givenText(), existing);
    const std::string added = tests::inBreaksOf(existing, edit.givenText());
    if (!text.starts_with(existing) || !text.ends_with(added)) return "not both texts: " + shown(text);
    const std::string between = text.substr(existing.size(), text.size() - existing.size() - added.size());
    if (between.find_first_not_of("\r\n") != std::string::npos) return "more than line breaks: " + shown(between);
    if (existing.empty() || existing == tests::byteOrderMark) return equal("between", between, "");

    std::string above = existing + between;
    if (!above.ends_with('\n')) return "the line goes on: " + shown(above);
    above.pop_back();
    if (above.starts_with(tests::byteOrderMark)) above.erase(0, 3);
    return holds(tests::isEmptyLine(above.substr(above.rfind('\n') + 1)), "no empty line", above);
  });
}

TEST(ChapterEdits, workOnAScriptOfTenThousandChapters) {
  constexpr std::size_t count = 10'000;
  std::string text;
  for (std::size_t chapter = 0; chapter < count; ++chapter) {
    text += "# Chapter " + std::to_string(chapter) + "\n\n" + tests::repeated("word ", 5) + tests::repeated(" \n", 5);
  }
  const Script script(text);
  ASSERT_EQ(script.headings().size(), count);
  ASSERT_EQ(ScriptChapters::chapters(script).back().startSecond, 19'998);

  const auto after = [&](const std::optional<TextEdit>& edit) {
    return ScriptChapters::chapters(Script(edit->applied(text)));
  };
  EXPECT_EQ(after(ChapterEdits::add("X", "x", 5000, script)).at(5000).title, "X");
  EXPECT_EQ(after(ChapterEdits::add("X", "x", {}, script)).at(count).title, "X");
  EXPECT_EQ(after(ChapterEdits::rename(5000, "X", script)).at(5000).title, "X");
  EXPECT_EQ(after(ChapterEdits::replaceText(5000, "x", script)).at(5001).words.begin, 25'001U);
  EXPECT_EQ(after(ChapterEdits::move(0, count - 1, script)).at(count - 1).title, "Chapter 0");
  EXPECT_EQ(after(ChapterEdits::move(count - 1, 0, script)).at(0).title, "Chapter 9999");
  EXPECT_EQ(after(ChapterEdits::remove(5000, false, script)).at(5000).title, "Chapter 5001");
  EXPECT_EQ(after(ChapterEdits::remove(5000, true, script)).size(), count - 1);
}

}  // namespace
}  // namespace quorvel
