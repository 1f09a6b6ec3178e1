#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/end-to-end/Client.h"
#include "tests/end-to-end/Folder.h"

namespace kelvane::tests {
namespace {

using testing::HasSubstr;

TEST(Usage, thatIsWrongIsStatusTwoAndASentence) {
  const std::string program = " Run: kelvane --help";
  const std::string serve = " Run: kelvane serve --help";
  const struct {
    std::vector<std::string> arguments;
    std::string sentence;
  } cases[] = {
      {{"sevre"}, "There is no command \"sevre\". Did you mean \"serve\"?"},
      {{"srv"}, "There is no command \"srv\"." + program},
      {{"Serve"}, "There is no command \"Serve\". Did you mean \"serve\"?"},
      {{"calls", "list_scripts"}, "There is no command \"calls\". Did you mean \"call\"?"},
      {{"sevre", "--help"}, "There is no command \"sevre\". Did you mean \"serve\"?"},
      {{"sevre", "--library", "x"}, "There is no command \"sevre\". Did you mean \"serve\"?"},
      {{"restor"}, "There is no command \"restor\". Did you mean \"restore\"?"},
      {{"conect", "claude"}, "There is no command \"conect\". Did you mean \"connect\"?"},
      {{"history", "--allow-writes"},
       "\"kelvane history\" has no option \"--allow-writes\". Run: kelvane history --help"},
      {{"doctor", "now"}, "\"kelvane doctor\" does not take \"now\". Run: kelvane doctor --help"},
      {{"frobnicate"}, "There is no command \"frobnicate\"." + program},
      {{""}, "There is no command \"\"." + program},
      {{"/"}, "There is no command \"/\"." + program},
      {{"--hlep"}, "\"kelvane\" has no option \"--hlep\". Did you mean \"--help\"?"},
      {{"--versoin"}, "\"kelvane\" has no option \"--versoin\". Did you mean \"--version\"?"},
      {{"--library", "x"}, "\"kelvane\" has no option \"--library\"." + program},
      {{"-x"}, "\"kelvane\" has no option \"-x\"." + program},
      {{"serve", "--libary", "x"}, "\"kelvane serve\" has no option \"--libary\". Did you mean \"--library\"?"},
      {{"serve", "--libary=x"}, "\"kelvane serve\" has no option \"--libary=x\". Did you mean \"--library\"?"},
      {{"serve", "--allow-write"},
       "\"kelvane serve\" has no option \"--allow-write\". Did you mean \"--allow-writes\"?"},
      {{"serve", "--zzz"}, "\"kelvane serve\" has no option \"--zzz\"." + serve},
      {{"serve", "-l", "x"}, "\"kelvane serve\" has no option \"-l\"." + serve},
      {{"serve", "--version"}, "\"kelvane serve\" has no option \"--version\"." + serve},
      {{"serve", "folder"}, "\"kelvane serve\" does not take \"folder\"." + serve},
      {{"serve", "call"}, "\"kelvane serve\" does not take \"call\"." + serve},
      {{"serve", "serve"}, "\"kelvane serve\" does not take \"serve\"." + serve},
      {{"serve", "--", "--x"}, "\"kelvane serve\" does not take \"--x\"." + serve},
      {{"serve", "--", "folder"}, "\"kelvane serve\" does not take \"folder\"." + serve},
      {{"serve", "--libary", "x", "--", "--x"},
       "\"kelvane serve\" has no option \"--libary\". Did you mean \"--library\"?"},
      {{"--x", "serve", "--zzz"}, "\"kelvane\" has no option \"--x\"." + program},
      {{"x", "serve"}, "There is no command \"x\"." + program},
      {{"serve", "--library"}, "--library needs a folder: --library DIR."},
      {{"serve", "--library", ""}, "--library needs a folder: --library DIR."},
      {{"serve", "--library="}, "--library needs a folder: --library DIR."},
      {{"serve", "--library=", "--allow-writes"}, "--library needs a folder: --library DIR."},
      {{"serve", "--library", "a", "--library", "b"}, "--library is given twice. Give it once."},
      {{"serve", "--library", "x", "--allow-writes=no"}, "--allow-writes takes no value. Leave out \"=no\"."},
      {{"call", "raed_script", "--help"},
       "There is no tool \"raed_script\". Did you mean \"read_script\"? The tools are list_scripts, list_folders, "
       "list_versions, read_script, list_chapters, read_chapter and, with --allow-writes, create_script, "
       "create_folder, rename, save_version, update_script, append_to_script, add_chapter, rename_chapter, "
       "update_chapter, move_chapter, remove_chapter."},
      {{"hlep"}, "There is no command \"hlep\". Did you mean \"help\"?"},
      {{"help", "sevre"}, "There is no command \"sevre\". Did you mean \"serve\"?"},
      {{"tools", "read_script"}, "\"kelvane tools\" does not take \"read_script\". Run: kelvane tools --help"},
      {{"call", "list_scripts", "--allow"}, "\"kelvane call\" has no option \"--allow\". Run: kelvane call --help"},
  };
  for (const auto& [arguments, sentence] : cases) {
    EXPECT_EQ(run(arguments), (Outcome{2, "", sentence + '\n'})) << testing::PrintToString(arguments);
  }
}

TEST(Usage, withoutAFolderIsStatusOneAndASentence) {
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"serve"}, {"serve", "--allow-writes"}, {"call", "list_scripts"}, {"call", "--", "list_scripts"}}) {
    EXPECT_EQ(run(arguments), (Outcome{1, "",
                                       "No script folder is set. Give one with --library DIR, or run: kelvane "
                                       "settings library DIR\n"}));
  }
}

TEST(Usage, isExplainedWhenAsked) {
  const struct {
    std::vector<std::string> arguments;
    std::vector<std::string> mentions;
  } cases[] = {
      {{"--help"},
       {"Usage: kelvane COMMAND", "\n  settings ", "\n  connect ", "\n  disconnect ", "\n  doctor ", "\n  history ",
        "\n  show ", "\n  restore ", "\n  serve ", "\n  call ", "\n  list ", "\n  tools ", "--help", "--version"}},
      {{"setup", "--help"},
       {"Usage: kelvane setup", "--library DIR", "--allow-writes", "--client NAME", "--yes", "--help"}},
      {{"settings", "--help"},
       {"Usage: kelvane settings", "show", "enable", "disable", "allow-writes", "read-only", "library DIR", "--help"}},
      {{"connect", "--help"}, {"Usage: kelvane connect claude|codex", "--config FILE", "--dry-run", "--help"}},
      {{"disconnect", "--help"}, {"Usage: kelvane disconnect claude|codex", "--config FILE", "--dry-run", "--help"}},
      {{"doctor", "--help"}, {"Usage: kelvane doctor", "--library DIR", "--json", "--help"}},
      {{"history", "--help"},
       {"Usage: kelvane history [SCRIPT] [-n N] [--since WHEN] [--utc]", "--library DIR", "--json", "--help"}},
      {{"diff", "--help"}, {"Usage: kelvane diff SCRIPT [VERSION [VERSION]]", "--library DIR", "--help"}},
      {{"review", "--help"}, {"Usage: kelvane review", "--since WHEN", "--output FILE", "--open", "--help"}},
      {{"undo", "--help"}, {"Usage: kelvane undo [SCRIPT]", "--library DIR", "--help"}},
      {{"show", "--help"}, {"Usage: kelvane show SCRIPT VERSION", "--library DIR", "--help"}},
      {{"restore", "--help"}, {"Usage: kelvane restore SCRIPT VERSION", "--library DIR", "--help"}},
      {{"-h"}, {"Usage: kelvane COMMAND"}},
      {{"serve", "--help"}, {"Usage: kelvane serve", "--library DIR", "--allow-writes", "--help"}},
      {{"serve", "-h"}, {"Usage: kelvane serve"}},
      {{"serve", "--library", "/missing", "--help"}, {"Usage: kelvane serve"}},
      {{"serve", "--library", "--help"}, {"Usage: kelvane serve"}},
      {{"serve", "--libary", "--zzz", "-h"}, {"Usage: kelvane serve"}},
      {{"--help", "serve"}, {"Usage: kelvane serve"}},
      {{"--", "--help"}, {"Usage: kelvane COMMAND"}},
      {{"call", "--help"},
       {"Usage: kelvane call", "TOOL", "NAME=VALUE", "NAME=@FILE", "NAME=-", "NAME==VALUE", "--library DIR",
        "--allow-writes", "--help"}},
      {{"call", "--library", "x", "--help"}, {"Usage: kelvane call [TOOL"}},
      {{"call", "list_scripts", "--help"}, {"The whole script library", "Usage: kelvane call list_scripts [--library"}},
      {{"call", "read_chapter", "-h"},
       {"Usage: kelvane call read_chapter id=VALUE chapter=VALUE [--library DIR]", "\n  id        Identifier"}},
      {{"call", "create_script", "--help"},
       {"Usage: kelvane call create_script name=VALUE [folder=VALUE] [text=VALUE]", "--allow-writes"}},
      {{"help", "call", "rename"}, {"Usage: kelvane call rename id=VALUE name=VALUE --allow-writes"}},
      {{"help", "history"}, {"Usage: kelvane history [SCRIPT]"}},
      {{"help"}, {"Usage: kelvane COMMAND", "\n  help [COMMAND] "}},
      {{"list", "--help"}, {"Usage: kelvane list [FOLDER]", "--library DIR", "--json"}},
      {{"tools", "--help"}, {"Usage: kelvane tools", "--json"}},
      {{"tools"}, {"\n  list_scripts\n", "\n  create_script name [folder] [text]\n", "\n  rename id name\n"}},
      {{"call"}, {"\n  list_scripts\n", "run: kelvane call TOOL --help"}},
  };
  for (const auto& [arguments, mentions] : cases) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.errors, "");
    for (const std::string& mention : mentions) EXPECT_THAT(outcome.output, HasSubstr(mention));
    std::size_t longest = 0;
    for (std::size_t begin = 0, end; (end = outcome.output.find('\n', begin)) != std::string::npos; begin = end + 1) {
      longest = std::max(longest, end - begin);
    }
    EXPECT_LE(longest, 79u);
    EXPECT_EQ(outcome.output.back(), '\n');
  }
}

TEST(Usage, theVersionIsTheOneThatTheServerAnnounces) {
  const Folder library;
  Client client(library.text());
  const JSON result = client.request("initialize");
  const JSON* info = result["serverInfo"];
  ASSERT_TRUE(info != nullptr && (*info)["version"] != nullptr);
  EXPECT_EQ(run({"--version"}), (Outcome{0, "kelvane " + std::string(*(*info)["version"]->string()) + '\n', ""}));
  client.finish();
}

TEST(Usage, withoutACommandAtATerminalIsAShortHelp) {
  const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (terminal < 0) GTEST_SKIP() << "this machine has no terminals to give";
  ASSERT_EQ(::grantpt(terminal), 0);
  ASSERT_EQ(::unlockpt(terminal), 0);
  const int end = ::open(::ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(end, 0);
  Start start;
  start.input = end;
  EXPECT_EQ(run(start), run({"--help"}));
  ::close(end);
  ::close(terminal);
}

}  // namespace
}  // namespace kelvane::tests
