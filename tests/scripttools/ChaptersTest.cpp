#include "scripttools/Chapters.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/RPCError.h"
#include "tests/scripttools/Workbench.h"
#include "tests/support/Random.h"

namespace kelvane::tests {
namespace {

using namespace std::string_literals;
using quorvel::Script;
using quorvel::ScriptChapter;
using quorvel::TextEdit;

std::string chapters(std::size_t count) {
  std::string text;
  for (std::size_t index = 0; index < count; ++index) text += "# Chapter\n";
  return text;
}

// The index as a string, or the message.
std::string indexOf(std::string_view position, const Script& script) {
  try {
    return std::to_string(chapterIndex(position, script));
  } catch (const RPCError& error) {
    EXPECT_EQ(error.code(), -32602);
    return error.message();
  }
}

std::string noChapter(const std::string& position, std::size_t count) {
  const auto number = std::to_string(count);
  return "There is no chapter " + position + ". This script has " + number + ", numbered 1 to " + number + ".";
}

TEST(ChapterIndex, readsADecimalNumberWithASign) {
  const Script script(chapters(3));
  const struct {
    std::string_view position;
    std::string_view index;
  } cases[] = {
      {"1", "0"}, {"3", "2"}, {"+2", "1"}, {"02", "1"}, {"+03", "2"}, {"000000000000000000000000000000000003", "2"},
  };
  for (const auto& each : cases) EXPECT_EQ(indexOf(each.position, script), each.index) << each.position;
}

TEST(ChapterIndex, refusesAnythingElseAndQuotesItAsItWasSent) {
  const Script script(chapters(3));
  const struct {
    std::string_view description;
    std::vector<std::string> positions;
  } cases[] = {
      {"out of range", {"0", "-0", "-1", "4", "7"}},
      {"not a number", {"two", "", " ", "+", "-", "１", "\xff", "a \"quoted\" one"}},
      {"more than one sign", {"+-1", "-+1", "++1", "--1", "+ 1"}},
      {"more than a number", {" 1", "1 ", "1\n", "1\0"s, "\0001"s, "\0"s, "1.0", "1,0", "1e0", "0x1"}},
      {"at or beyond the limit of 64 bits",
       {"9223372036854775807", "9223372036854775808", "-9223372036854775808", "-9223372036854775809",
        "18446744073709551617", "99999999999999999999"}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.description);
    for (const auto& position : each.positions) EXPECT_EQ(indexOf(position, script), noChapter(position, 3));
  }
}

TEST(ChapterIndex, wordsItsMessageTheSameForOneChapter) {
  EXPECT_EQ(indexOf("2", Script(chapters(1))), "There is no chapter 2. This script has 1, numbered 1 to 1.");
}

TEST(ChapterIndex, reportsThatAScriptHasNoChapters) {
  for (const std::string_view text : {"", "Only words.", "#No heading\n## Nor this"}) {
    for (const std::string_view position : {"1", "0", "abc", "", "-1"}) {
      EXPECT_EQ(indexOf(position, Script(std::string(text))),
                "This script has no chapters. A chapter is a line starting with \"# \" and everything up to the next "
                "one. Scripts without such lines have no chapters.");
    }
  }
}

// The same rule in a simpler way: a sign, digits, and a value that is compared as a decimal string.
std::optional<std::size_t> oracle(std::string text, std::size_t count) {
  if (!text.empty() && text[0] == '-') return std::nullopt;  // zero or less, or no number
  if (!text.empty() && text[0] == '+') text.erase(0, 1);
  if (text.empty() || text.find_first_not_of("0123456789") != text.npos) return std::nullopt;
  text.erase(0, std::min(text.find_first_not_of('0'), text.size()));
  for (std::size_t index = 0; index < count; ++index) {
    if (text == std::to_string(index + 1)) return index;
  }
  return std::nullopt;
}

TEST(ChapterIndex, agreesWithASimpleParserOnRandomPositions) {
  auto random = tests::seededGenerator();
  constexpr std::string_view letters("0123456789+-0011 .e\0x", 21);
  std::size_t accepted = 0;
  for (int round = 0; round < 20000; ++round) {
    const std::size_t count = 1 + tests::below(12, random);
    std::string position(tests::below(5, random), ' ');
    for (char& letter : position) letter = letters[tests::below(letters.size(), random)];
    if (tests::below(20, random) == 0) position.insert(0, 20, '0');
    const auto expected = oracle(position, count);
    accepted += expected ? 1 : 0;
    ASSERT_EQ(indexOf(position, Script(chapters(count))),
              expected ? std::to_string(*expected) : noChapter(position, count));
  }
  EXPECT_GT(accepted, 500U);  // the positions are such that both answers occur
}

TEST(ChapterList, listsPositionStartTitleAndWords) {
  const struct {
    std::string_view description;
    std::string_view text;
    std::string_view expected;
  } cases[] = {
      {"an empty text", "", "[]"},
      {"no heading", "Only words.\n#hashtag", "[]"},
      {"three chapters behind a preamble", talk,
       R"([{"chapter":1,"starts_at":"0:01","title":"One","words":2},)"
       R"({"chapter":2,"starts_at":"0:02","title":"Two","words":2},)"
       R"({"chapter":3,"starts_at":"0:03","title":"Three","words":0}])"},
      {"a heading without a title", "# \nword", R"([{"chapter":1,"starts_at":"0:00","title":"","words":1}])"},
      {"a title that JSON escapes", "# \"a\"\\b/c",
       R"([{"chapter":1,"starts_at":"0:00","title":"\"a\"\\b/c","words":0}])"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.description);
    EXPECT_EQ(chapterList(Script(std::string(each.text))), each.expected);
  }
}

TEST(ChapterList, takesTimeLinearInTheChapters) {
  const auto list = chapterList(Script(chapters(20000)));
  EXPECT_TRUE(list.ends_with(R"({"chapter":20000,"starts_at":"0:00","title":"Chapter","words":0}])"));
}

TEST(ChapterBody, excludesTheHeading) {
  const Script script{std::string(talk)};
  const auto all = chaptersOf(script);
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(quorvel::trimmingWhitespace(chapterBody(0, all, script)), "alpha beta");
  EXPECT_EQ(quorvel::trimmingWhitespace(chapterBody(1, all, script)), "gamma\n\ndelta");
  EXPECT_EQ(quorvel::trimmingWhitespace(chapterBody(2, all, script)), "");
}

TEST(ChapterModelDeathTest, stopsTheProcessIfItContradictsItself) {
  const Script script{std::string(talk)};
  const struct {
    std::string_view description;
    std::function<void(std::vector<ScriptChapter>&)> broken;
    const char* message;
  } cases[] = {
      {"a chapter too few", [](auto& all) { all.pop_back(); }, "number of chapters differs"},
      {"a chapter too many", [](auto& all) { all.push_back(all.back()); }, "number of chapters differs"},
      {"an index past the end", [](auto& all) { all[2].index = 3; }, "not its position"},
      {"an end past the text", [](auto& all) { all[2].range.end += 1; }, "after the end"},
      {"a body that starts after its end", [](auto& all) { all[1].range.end = all[1].range.begin; }, "before its text"},
      {"words counted backwards",
       [](auto& all) {
         all[1].words = {4, 3};
       },
       "runs backwards"},
  };
  requireConsistent(chaptersOf(script), script);
  for (const auto& each : cases) {
    SCOPED_TRACE(each.description);
    auto all = chaptersOf(script);
    each.broken(all);
    EXPECT_DEATH(requireConsistent(all, script), "^Fatal error: .*"s + each.message);
  }
}

TEST(ChapterModelDeathTest, stopsTheProcessIfItReturnsNoEdit) {
  EXPECT_DEATH(requireEdit(std::nullopt),
               "^Fatal error: The chapter model returned no edit for a chapter that exists.\n");
  EXPECT_EQ(requireEdit(TextEdit{{1, 2}, "x"}), (TextEdit{{1, 2}, "x"}));
}

}  // namespace
}  // namespace kelvane::tests
