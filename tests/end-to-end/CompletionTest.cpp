#include <filesystem>

#include "tests/end-to-end/Home.h"

namespace kelvane::tests {
namespace {

class Completions : public Home {
 protected:
  Completions() {
    home.put("Scripts/Talks/Opening night.md", "one");
    home.put("Scripts/Closing.md", "two");
    printed({"settings", "library", at("Scripts")});
    printed({"call", "update_script", "id=Closing.md", "text=x", "note=n", "--allow-writes"});
  }

  std::string complete(std::vector<std::string> typed) const {
    typed.insert(typed.begin(), {"complete", "--"});
    return printed(std::move(typed));
  }
};

TEST_F(Completions, knowScriptsAndVersions) {
  EXPECT_EQ(complete({"history", ""}), "Talks/Opening night.md\nClosing.md\n");
  EXPECT_EQ(complete({"show", "C"}), "Closing.md\n");
  EXPECT_EQ(complete({"show", "Closing", ""}), "1\n");
  EXPECT_EQ(complete({"list", ""}), "Talks\n");
  EXPECT_EQ(complete({"connect", ""}), "claude\ncodex\n");
  EXPECT_EQ(complete({"call", "read_chapter", "c"}), "chapter=\n");
}

TEST_F(Completions, areEmptyWhereNothingIsKnown) {
  EXPECT_EQ(complete({"show", "Nowhere", ""}), "");
  EXPECT_EQ(complete({"history", "--library", at("nowhere"), ""}), "");
}

TEST_F(Completions, workInBash) {
  if (!std::filesystem::exists("/bin/bash")) GTEST_SKIP() << "bash is not here";
  const std::string bin = std::filesystem::path(KELVANE_PROGRAM).parent_path();
  const auto typed = [&](const std::string& words, int index) {
    Start bash =
        start({"--norc", "-c",
               "source <(kelvane completions bash); compopt() { :; }; COMP_WORDS=(kelvane " + words +
                   "); COMP_CWORD=" + std::to_string(index) + "; _kelvane; printf '%s\\n' \"${COMPREPLY[@]}\""});
    bash.program = "/bin/bash";
    bash.environment.push_back("PATH=" + bin + ":/usr/bin:/bin");
    return run(bash);
  };
  EXPECT_EQ(typed("his", 1), (Outcome{0, "history\n", ""}));
  EXPECT_EQ(typed("history Ta", 2), (Outcome{0, "Talks/Opening\\ night.md\n", ""}));
  EXPECT_EQ(typed("call read_script i", 3), (Outcome{0, "id=\n", ""}));
}

}  // namespace
}  // namespace kelvane::tests
