#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/end-to-end/Home.h"

namespace kelvane::tests {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// A home in which nothing is set up, and no client can be started.
class Setup : public Home {
 protected:
  Setup() { std::filesystem::remove(home / "Scripts"); }

  bool isThere(std::string_view name) const { return std::filesystem::exists(home / name); }
  std::string settings() const { return printed({"settings"}); }
};

TEST_F(Setup, takesTheDefaultsIfAsked) {
  const std::string scripts = "\"" + at("Scripts") + "\"";
  const Outcome outcome = kelvane({"setup", "--yes"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "");
  EXPECT_THAT(outcome.output,
              AllOf(StartsWith("The folder " + scripts +
                               " is made.\nIt has a first script, \"Welcome.md\".\n"
                               "AI clients get the scripts in " +
                               scripts + " and can only read them.\n\nok  "),
                    HasSubstr("\nNo AI client is connected yet.\n"), HasSubstr("kelvane connect CLIENT")));
  EXPECT_EQ(printed({"list"}), "Welcome\n");
  EXPECT_THAT(settings(), HasSubstr("server    on\nwriting   not allowed\nlibrary   " + at("Scripts") + "\n"));
}

TEST_F(Setup, leavesAFolderThatIsThereAsItIs) {
  home.put("Texts/Talk.md", "mine");
  const Outcome outcome = kelvane({"setup", "--yes", "--library", at("Texts"), "--allow-writes", "--client", "none"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, StartsWith("AI clients get the scripts in \"" + at("Texts") + "\" and can change them."));
  EXPECT_EQ(printed({"list"}), "Talk\n");
  EXPECT_EQ(home.bytes("Texts/Talk.md"), "mine");
  EXPECT_FALSE(isThere("Texts/.kelvane"));
  EXPECT_THAT(settings(), HasSubstr("writing   allowed\n"));
}

TEST_F(Setup, keepsWhatIsSetAlready) {
  printed({"setup", "--yes", "--library", at("Mine"), "--allow-writes", "--client", "none"});
  printed({"setup", "--yes", "--client", "none"});
  EXPECT_THAT(settings(), HasSubstr("server    on\nwriting   allowed\nlibrary   " + at("Mine") + "\n"));
  EXPECT_FALSE(isThere("Scripts"));
}

TEST_F(Setup, connectsTheClientsThatAreFound) {
  home.put(".codex/auth.json", "{}");
  const std::string output = printed({"setup", "--yes"});
  EXPECT_THAT(output, AllOf(HasSubstr("Codex now starts this program."),
                            HasSubstr("\nRestart your AI client, and it can use the scripts.\n")));
  EXPECT_TRUE(isThere(".codex/config.toml"));
  EXPECT_FALSE(isThere(".claude.json"));
}

TEST_F(Setup, findsAClientThatCanBeStarted) {
  home.put("bin/claude", "#!/bin/sh\n");
  std::filesystem::permissions(home / "bin/claude", std::filesystem::perms::owner_all);
  Start how = start({"setup", "--yes"});
  how.environment.push_back("PATH=/nonexistent:" + at("bin"));
  EXPECT_EQ(run(how).status, 0);
  EXPECT_TRUE(isThere(".claude.json"));
}

TEST_F(Setup, connectsTheClientsThatAreNamed) {
  home.put(".codex/auth.json", "{}");
  printed({"setup", "--yes", "--client", "claude", "--client=codex"});
  EXPECT_TRUE(isThere(".claude.json") && isThere(".codex/config.toml"));
  printed({"setup", "--yes", "--client", "none"});
  EXPECT_TRUE(isThere(".claude.json")) << "it only adds";
}

TEST_F(Setup, saysWhetherAClientIsConnectedWhoeverConnectedIt) {
  printed({"setup", "--yes", "--client", "claude"});
  EXPECT_THAT(printed({"setup", "--yes", "--client", "none"}),
              AllOf(HasSubstr("Restart your AI client"), Not(HasSubstr("No AI client is connected"))));
}

TEST_F(Setup, failsIfTheCheckFindsSomethingWrong) {
  home.put("Texts/Talk.md", "mine");
  home.put("Texts/.kelvane/history.sqlite", "this is not a history, and it is long enough to be looked at");
  const Outcome outcome = kelvane({"setup", "--yes", "--library", at("Texts"), "--client", "none"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.output, AllOf(HasSubstr("\nwrong  "), Not(HasSubstr("wrong  Claude"))));
}

TEST_F(Setup, storesNoVariables) {
  std::filesystem::create_directory(home / "Elsewhere");
  Start how = start({"setup", "--yes"});
  how.environment = {"KELVANE_ALLOW_WRITES=1", "KELVANE_LIBRARY=" + at("Elsewhere")};
  EXPECT_EQ(run(how).status, 0);
  EXPECT_THAT(settings(), HasSubstr("writing   not allowed\nlibrary   " + at("Scripts") + "\n"));
}

TEST_F(Setup, connectsTheOthersIfOneCannotBe) {
  home.put(".claude.json", "{ this is not JSON");
  const Outcome outcome = kelvane({"setup", "--yes", "--client", "claude", "--client", "codex"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(home.bytes(".claude.json"), "{ this is not JSON");
  EXPECT_TRUE(isThere(".codex/config.toml"));
  EXPECT_TRUE(isThere("Scripts/Welcome.md"));
}

TEST_F(Setup, thatCannotBeDoneSaysSoAndChangesNothing) {
  home.put("file", "");
  const auto before = home.census();
  const struct {
    std::vector<std::string> arguments;
    int status;
    std::string errors;
  } cases[] = {
      {{}, 2, "Setup cannot ask here, because standard input is not a terminal. Run: kelvane setup --yes\n"},
      {{"--yes", "--client", "cladue"},
       2,
       "There is no client \"cladue\". Did you mean \"claude\"? Run: kelvane connect --help\n"},
      {{"--yes", "--library", "/"},
       1,
       "\"/\" is the whole disk. Give the folder that holds the scripts: --library DIR.\n"},
      {{"--yes", "--library", at("file")},
       1,
       "\"" + at("file") + "\" is not a folder. Give the folder that holds the scripts: --library DIR.\n"},
      {{"--yes", "--library", at("file/below")},
       1,
       "The folder \"" + at("file/below") + "\" could not be made, because a file is in its way. Choose another.\n"},
  };
  for (const auto& [arguments, status, errors] : cases) {
    std::vector<std::string> typed = {"setup"};
    typed.insert(typed.end(), arguments.begin(), arguments.end());
    EXPECT_EQ(kelvane(typed), (Outcome{status, "", errors}));
    EXPECT_EQ(home.census(), before);
  }
}

TEST_F(Setup, asksAtATerminal) {
  const struct {
    const char* what;
    std::string typed;
    int status;
    const char* settings;  // part of what they are afterwards
    bool isConnected;
  } cases[] = {
      {"an enter for each question", "\n\n\n", 0, "server    on\nwriting   not allowed\n", true},
      {"answers", "~/Other\ny\nno\n", 0, "writing   allowed\n", false},
      {"answers in capitals", "\nYES\nNo\n", 0, "writing   allowed\n", false},
      {"capital letters", "\nN\nY\n", 0, "writing   not allowed\n", true},
      {"an answer that is neither yes nor no", "\nmaybe\nyes\nn\n", 0, "writing   allowed\n", false},
      {"the end of the input", "~/Other\n\x04", 1, "server    off\n", false},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.what);
    for (const char* name : {".config", ".codex", "Scripts", "Other"}) std::filesystem::remove_all(home / name);
    home.put(".codex/auth.json", "{}");
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal < 0 || ::grantpt(terminal) != 0 || ::unlockpt(terminal) != 0) GTEST_SKIP() << "no terminals here";
    const int end = ::open(::ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(::write(terminal, row.typed.data(), row.typed.size()), static_cast<ssize_t>(row.typed.size()));
    Start how = start({"setup"});
    how.input = end;
    const Outcome outcome = run(how);
    ::close(end);
    ::close(terminal);
    EXPECT_EQ(outcome.status, row.status) << outcome;
    EXPECT_THAT(outcome.output, StartsWith("Where are your scripts?"));
    EXPECT_THAT(settings(), HasSubstr(row.settings));
    EXPECT_EQ(isThere(".codex/config.toml"), row.isConnected);
    if (row.status != 0) {
      EXPECT_EQ(outcome.errors, "The input ended. Nothing was changed.\n");
      EXPECT_FALSE(isThere("Other"));
    }
  }
}

}  // namespace
}  // namespace kelvane::tests
