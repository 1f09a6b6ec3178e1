#include <regex>

#include "tests/end-to-end/Home.h"

namespace kelvane::tests {
namespace {

using testing::HasSubstr;
using testing::Not;

class Review : public Home {
 protected:
  Review() {
    printed({"settings", "library", at("Scripts")});
    for (const char* name : {"A.md", "B.md"}) home.put("Scripts/" + std::string(name), "first words\n");
    replace("A.md", "second words\n", "in A");
    replace("B.md", "second words\n", "in B");
    replace("A.md", "third words\n", "in A again");
  }

  void replace(const std::string& id, const std::string& text, const std::string& note) const {
    printed({"call", "update_script", "id=" + id, "text=" + text, "note=" + note, "--allow-writes"});
  }

  /// The words that go and come, in the order of the page.
  static std::string changesOf(const std::string& page) {
    static const std::regex words("<(?:del|ins)>(.*?)</(?:del|ins)>");
    static const std::regex tags("<[^>]*>");
    std::string found;
    for (std::sregex_iterator each(page.begin(), page.end(), words), end; each != end; ++each) {
      found += std::regex_replace((*each)[1].str(), tags, "") + ";";
    }
    return found;
  }
};

TEST_F(Review, writesAPageThatOnlyItsOwnerCanRead) {
  EXPECT_EQ(printed({"review"}), "The page is in \"" + at(".cache/kelvane/review.html") + "\".\n");
  const std::string page = home.bytes(".cache/kelvane/review.html");
  EXPECT_EQ(changesOf(page), "second words;third words;first words;second words;first words;second words;");
  EXPECT_THAT(page, HasSubstr("3 changes of 2 scripts"));
  EXPECT_EQ(std::filesystem::status(home / ".cache/kelvane/review.html").permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  EXPECT_FALSE(std::filesystem::exists(home / "Scripts/review.html"));
}

TEST_F(Review, replacesItsOwnPageAndNoOtherFile) {
  EXPECT_EQ(printed({"review", "--output", at("page.html")}), "The page is in \"" + at("page.html") + "\".\n");
  const std::size_t size = home.bytes("page.html").size();
  EXPECT_EQ(printed({"review", "--output", at("page.html"), "--since", "2100-01-01"}),
            "The page is in \"" + at("page.html") + "\".\n");
  EXPECT_LT(home.bytes("page.html").size(), size);
  for (const char* name : {"Scripts/A.md", "other.html"}) {
    home.put(name, "<!DOCTYPE html>\n<p>mine</p>\n");
    EXPECT_EQ(kelvane({"review", "--output", at(name)}),
              (Outcome{1, "",
                       "\"" + at(name) +
                           "\" is another file, not a page of this command, so it stays. Choose another name.\n"}));
    EXPECT_EQ(home.bytes(name), "<!DOCTYPE html>\n<p>mine</p>\n");
  }
}

TEST_F(Review, letsOnlyItsOwnerReadAPageThatWasAnEmptyFile) {
  home.put("page.html", "");
  std::filesystem::permissions(home / "page.html", std::filesystem::perms(0644));
  printed({"review", "--output", at("page.html")});
  EXPECT_EQ(std::filesystem::status(home / "page.html").permissions(), std::filesystem::perms(0600));
}

TEST_F(Review, showsTheOtherScriptsIfOneCannotBeRead) {
  std::filesystem::resize_file(home / "Scripts/A.md", std::uintmax_t{300} << 20);
  const Outcome outcome = kelvane({"review", "--output", at("page.html")});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.errors, HasSubstr("A.md"));
  EXPECT_THAT(home.bytes("page.html"), HasSubstr("B.md: in B"));
}

TEST_F(Review, saysWhyThePageCannotBeWritten) {
  std::filesystem::create_symlink(at("elsewhere"), home / "link.html");
  EXPECT_EQ(kelvane({"review", "--output", at("Scripts")}).status, 1);
  EXPECT_EQ(kelvane({"review", "--output", at("missing/page.html")}).status, 1);
  EXPECT_EQ(kelvane({"review", "--output", at("link.html")}).status, 1);
  EXPECT_FALSE(std::filesystem::exists(home / "elsewhere"));
  EXPECT_THAT(kelvane({"review", "--output", at("missing/page.html")}).errors,
              HasSubstr("because its folder does not exist. Create the folder and try again."));
}

TEST_F(Review, opensThePageInABrowser) {
  home.put("bin/xdg-open", "#!/bin/sh\necho \"$1\" > \"$HOME/opened\"\n");
  std::filesystem::permissions(home / "bin/xdg-open", std::filesystem::perms::owner_all);
  Start how = start({"review", "--open"});
  how.environment.push_back("PATH=" + at("bin") + ":/usr/bin:/bin");
  how.environment.push_back("HOME=" + home.text());
  EXPECT_EQ(run(how).status, 0);
  EXPECT_EQ(home.bytes("opened"), at(".cache/kelvane/review.html") + "\n");
  how.environment = {"PATH=/nonexistent"};
  EXPECT_EQ(run(how).errors,
            "It could not be opened, because xdg-open did not do it. Open the file in your browser.\n");
}

TEST_F(Review, showsWhatIsGone) {
  std::filesystem::remove(home / "Scripts/A.md");
  printed({"review", "--output", at("page.html")});
  EXPECT_THAT(home.bytes("page.html"), HasSubstr("and then the script was gone"));
}

}  // namespace
}  // namespace kelvane::tests
