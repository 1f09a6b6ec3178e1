#include "program/ReviewPage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "program/ReviewAssets.h"
#include "tests/support/Random.h"

namespace kelvane::tests {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::chrono::system_clock::time_point moment = std::chrono::system_clock::from_time_t(1700000000);

std::string pageWith(std::string_view old, std::string_view fresh, const std::string& identifier = "Talk.md",
                     const std::string& label = "shorter", bool isGone = false) {
  ReviewPage page("/home/me/Scripts", moment);
  page.add({identifier, "kelvane restore 'x' <3>", moment, label, old, fresh, isGone});
  return page.html();
}

/// What is wrong with the elements of a page, read as XML is: every tag is closed in turn, and every "&" and "<" means
/// something. Empty if all is well.
std::string faultOf(std::string page) {
  // The style and the script are raw text in HTML.
  for (const std::string_view raw : {reviewStyle, reviewScript}) {
    const std::size_t at = page.find(raw);
    if (at == std::string::npos) return "an asset is missing";
    page.erase(at, raw.size());
  }
  page.erase(0, ReviewPage::beginning.size());
  std::vector<std::string> open;
  for (std::size_t at = 0; at < page.size();) {
    if (page[at] == '&') {
      const std::size_t end = page.find(';', at);
      const std::string name = page.substr(at, end - at);
      if (name != "&amp" && name != "&lt" && name != "&gt" && name != "&quot" && name != "&#39") return name;
      at = end;
    } else if (page[at] == '>') {
      return "a stray >";
    } else if (page[at] == '<') {
      const std::size_t end = page.find('>', at);
      if (end == std::string::npos || page.find('<', at + 1) < end) return "a stray < at " + page.substr(at, 40);
      const std::string tag = page.substr(at + 1, end - at - 1);
      const std::string name = tag.substr(0, tag.find_first_of(" /", 1));
      if (tag[0] == '/') {
        if (open.empty() || open.back() != tag.substr(1)) return "a stray end of " + tag;
        open.pop_back();
      } else if (!tag.ends_with('/')) {
        open.push_back(name);
      }
      at = end + 1;
    } else {
      ++at;
    }
  }
  return open.empty() ? std::string() : "no end of " + open.back();
}

TEST(ReviewPage, showsTextsAsTheirCharacters) {
  const std::string evil[] = {
      "<script>alert(1)</script>",
      "</div></article><img src=x onerror=alert(1)>",
      "\" onclick=\"alert(1)",
      "' x='",
      "&lt;b&gt; &amp; &#60;",
      "<!-- --> <![CDATA[ ]]>",
      "a\x80\xFF"
      "b",
      "\xE2\x80\xAE right to left",
  };
  for (const std::string& text : evil) {
    for (const std::string& page :
         {pageWith(text, "x"), pageWith("x", text), pageWith("same words " + text, "same words"),
          pageWith("a", "b", text), pageWith("a", "b", "Talk.md", text)}) {
      EXPECT_EQ(faultOf(page), "") << text;
      EXPECT_THAT(page, Not(HasSubstr("<script>")));
      EXPECT_THAT(page, Not(HasSubstr("<img")));
      EXPECT_THAT(page, Not(HasSubstr(" onclick=\"alert")));
      EXPECT_THAT(page, Not(HasSubstr("\xE2\x80\xAE")));
      EXPECT_THAT(page, Not(HasSubstr("\x80\xFF")));
    }
  }
}

TEST(ReviewPage, isWellFormedWhateverTextsContain) {
  std::mt19937_64 random = seededGenerator();
  const std::string pieces[] = {"<",  ">",   "&",    "\"",   "'",    "\n", "a", " word ",
                                "</", "-->", "\xC3", "\x80", "\x1B", "ü",  "#"};
  const auto text = [&] {
    std::string joined;
    for (std::size_t count = below(30, random); count > 0; --count) joined += oneOf(pieces, random);
    return joined;
  };
  for (int round = 0; round < 1000; ++round) {
    ASSERT_EQ(faultOf(pageWith(text(), text(), text(), text(), below(2, random) == 0)), "");
  }
}

TEST(ReviewPage, saysWhatChanged) {
  const std::string page = pageWith("one two three\n", "one 2 three\n", "Talks/Bob's.md");
  for (const char* part :
       {"Talks/Bob&#39;s.md: shorter", "<del>one <mark>two</mark> three</del>", "<ins>one <mark>2</mark> three</ins>",
        "3 words (0:01) → 3 words (0:01)", "kelvane restore &#39;x&#39; &lt;3&gt;", "1 change of 1 script", "+0 words",
        "Words over time: 3 → 3 words"}) {
    EXPECT_THAT(page, HasSubstr(part));
  }
  EXPECT_THAT(pageWith("one", "", "Talk.md", "x", true), HasSubstr("and then the script was gone"));
  EXPECT_THAT(pageWith("one", "one"), HasSubstr("Saved as it is, without a change."));
}

TEST(ReviewPage, loadsNothing) {
  const std::string page = pageWith("a", "b");
  EXPECT_THAT(page, HasSubstr("default-src 'none'"));
  for (const char* part : {"http:", "https:", "src=", "url(", "@import", "<link"})
    EXPECT_THAT(page, Not(HasSubstr(part)));
}

TEST(ReviewPage, cutsAVeryLongChange) {
  std::string text;
  for (int i = 0; i < 20000; ++i) text += "line " + std::to_string(i) + '\n';
  const std::string page = pageWith(text, "");
  EXPECT_LT(page.size(), 80'000u);
  EXPECT_THAT(page, HasSubstr("lines more, which"));
  EXPECT_EQ(faultOf(page), "");
}

TEST(ReviewPage, cutsAVeryLongLineBetweenTwoCharacters) {
  for (const char* start : {"", "a", "ab"}) {
    std::string text = start;
    for (int i = 0; i < 1'000'000; ++i) text += "€";
    const struct {
      std::string old, fresh;
      const char* said;
    } cases[] = {
        {text, "", "… and the rest of the line, which"},
        {text, "new", "… and the rest of the line and 1 line more, which"},
        {text + " one two", text + " one three", "… and the rest of the line and 1 line more, which"},
    };
    for (const auto& [old, fresh, said] : cases) {
      const std::string page = pageWith(old, fresh);
      EXPECT_LT(page.size(), 80'000u);
      EXPECT_THAT(page, HasSubstr(said));
      EXPECT_THAT(page, Not(HasSubstr("\uFFFD")));
      EXPECT_EQ(faultOf(page), "");
    }
  }
}

TEST(ReviewPage, ofNothingSaysSo) {
  const std::string page = ReviewPage("/home/me/Scripts", moment).html();
  EXPECT_EQ(faultOf(page), "");
  EXPECT_THAT(page, HasSubstr("Nothing was saved."));
}

}  // namespace
}  // namespace kelvane::tests
