#include <fcntl.h>
#include <unistd.h>

#include "tests/end-to-end/Home.h"

namespace kelvane::tests {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

constexpr const char* switchedOff = "The server is switched off. Run: kelvane settings enable\n";

class Settings : public Home {
 protected:
  // What is shown of them.
  std::string shown(const std::string& server, const std::string& writing, const std::string& library) const {
    return "server    " + server + "\nwriting   " + writing + "\nlibrary   " + library + "\nfile      " +
           at(settingsFile) + "\n";
  }

  // What an AI client gets: how many tools, or what the server said when it ended at once.
  std::string served() const {
    Program program(start({}));
    program.write("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"tools/list\"}\n");
    const Outcome outcome = program.finish();
    if (outcome.status != 0) return outcome.output + outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    const auto reply = JSON::decoded(outcome.output);
    if (!reply || (*reply)["result"] == nullptr) return outcome.output;
    return std::to_string((*(*reply)["result"])["tools"]->items()->size()) + " tools";
  }
};

TEST_F(Settings, areJSONForOtherPrograms) {
  const std::string file = R"("file":")" + at(settingsFile) + R"(",)";
  EXPECT_EQ(printed({"settings", "--json"}), "{" + file + R"("library":null,"server":false,"writing":false})" + "\n");
  printed({"settings", "library", at("Scripts")});
  printed({"settings", "allow-writes"});
  EXPECT_EQ(printed({"settings", "show", "--json"}),
            "{" + file + R"("library":")" + at("Scripts") + R"(","server":false,"writing":true})" + "\n");
  EXPECT_EQ(kelvane({"settings", "enable", "--json"}),
            (Outcome{2, "", "Only \"kelvane settings show\" takes --json. Leave it out.\n"}));
}

TEST_F(Settings, decideWhatAnAIClientGets) {
  const std::string library = at("Scripts");
  const struct {
    std::vector<std::string> arguments;
    std::string server, writing, library;
    std::string served;
  } steps[] = {
      {{}, "off", "not allowed", "none", switchedOff},
      {{"show"}, "off", "not allowed", "none", switchedOff},
      {{"enable"},
       "on",
       "not allowed",
       "none",
       "No script folder is set. Give one with --library DIR, or run: kelvane settings library DIR\n"},
      {{"library", library}, "on", "not allowed", library, "6 tools"},
      {{"allow-writes"}, "on", "allowed", library, "17 tools"},
      {{"allow-writes"}, "on", "allowed", library, "17 tools"},
      {{"disable"}, "off", "allowed, once the server is on", library, switchedOff},
      {{"enable"}, "on", "allowed", library, "17 tools"},
      {{"read-only"}, "on", "not allowed", library, "6 tools"},
      {{"disable"}, "off", "not allowed", library, switchedOff},
      {{"allow-writes"}, "off", "allowed, once the server is on", library, switchedOff},
  };
  for (const auto& step : steps) {
    std::vector<std::string> arguments = step.arguments;
    arguments.insert(arguments.begin(), "settings");
    SCOPED_TRACE(testing::PrintToString(arguments));
    EXPECT_EQ(kelvane(arguments), (Outcome{0, shown(step.server, step.writing, step.library), ""}));
    EXPECT_EQ(served(), step.served);
  }
}

TEST_F(Settings, thatAreOffEndTheServerBeforeItReads) {
  Program program(start({}));
  EXPECT_EQ(program.line(), std::nullopt);  // its input is still open
  EXPECT_EQ(program.finish(), (Outcome{1, "", switchedOff}));
  EXPECT_THAT(home.census(), SizeIs(2)) << "looking makes no file";
}

TEST_F(Settings, areReadHoweverTheyAreWritten) {
  const std::string folder = "\"libraryFolder\":\"" + at("Scripts") + "\"";
  const std::pair<std::string, std::string> cases[] = {
      {"{\"mcpEnabled\":true," + folder + "}", "6 tools"},
      {"{\"mcpEnabled\":\"YES\",\"mcpAllowsWrites\":1," + folder + "}", "17 tools"},
      {"{\"mcpEnabled\":\"on\"," + folder + "}", switchedOff},
      {"{\"mcpEnabled\":false,\"mcpAllowsWrites\":true," + folder + "}", switchedOff},
      {"{\"mcpAllowsWrites\":true," + folder + "}", switchedOff},
      {"{\"MCPEnabled\":true," + folder + "}", switchedOff},
      {"", switchedOff},
      {"{\"mcpEnabled\":true,\"libraryFolder\":\"Scripts\"}",
       "The settings name the library \"Scripts\", which is not an absolute path. Run: kelvane settings library "
       "DIR\n"},
      {"{\"mcpEnabled\":true,\"libraryFolder\":\"" + at("Scripts") + "\\u0000/x\"}",
       "The settings name the library \"" + at("Scripts") +
           "\xEF\xBF\xBD/x\", which is not an absolute path. Run: kelvane settings library DIR\n"},
      {"{\"mcpEnabled\":true,\"libraryFolder\":\"" + at("gone") + "\"}",
       "There is no folder \"" + at("gone") + "\". Give an existing one: kelvane settings library DIR.\n"},
      {"{\"mcpEnabled\":true,\"libraryFolder\":\"" + at(settingsFile) + "\"}",
       "\"" + at(settingsFile) +
           "\" is not a folder. Give the folder that holds the scripts: kelvane settings library DIR.\n"},
      {"{\"mcpEnabled\":true",
       "The settings in \"" + at(settingsFile) +
           "\" are damaged, so all of them are off. Fix the file, or set them again, which saves a copy of it. " +
           switchedOff},
  };
  for (const auto& [text, outcome] : cases) {
    home.put(settingsFile, text);
    EXPECT_EQ(served(), outcome) << text;
    EXPECT_EQ(home.bytes(settingsFile), text) << "serving changes nothing";
  }
}

TEST_F(Settings, thatAreDamagedAreShownAsSuchAndCopiedBeforeTheyAreSet) {
  home.put(settingsFile, "{oops");
  const Outcome outcome = kelvane({"settings"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, shown("off", "not allowed", "none"));
  EXPECT_THAT(outcome.errors, HasSubstr("are damaged"));
  EXPECT_EQ(printed({"settings", "enable"}), "The settings were damaged. Their old text is now in \"" +
                                                 at(settingsFile) + ".damaged\".\n" +
                                                 shown("on", "not allowed", "none"));
  EXPECT_EQ(home.bytes(std::string(settingsFile) + ".damaged"), "{oops");
}

TEST_F(Settings, keepTheLayoutOfTheirFile) {
  home.put(settingsFile, "{\r\n\t\"mine\" : 1.50,\r\n\t\"mcpEnabled\" : \"no\"\r\n}\r\n");
  printed({"settings", "enable"});
  EXPECT_EQ(home.bytes(settingsFile), "{\r\n\t\"mine\" : 1.50,\r\n\t\"mcpEnabled\" : true\r\n}\r\n");
}

TEST_F(Settings, takeAFolderAsItIsTypedWhereverThatIs) {
  home.put("Scripts/Talk.md", "hello");
  const std::pair<std::string, std::string> cases[] = {
      {"Scripts", "Scripts"},     {".", ""},        {"./Scripts/", "Scripts"}, {"Scripts/../Scripts", "Scripts"},
      {at("Scripts"), "Scripts"}, {"link", "link"},
  };
  std::filesystem::create_directory_symlink("Scripts", home / "link");
  for (const auto& [typed, folder] : cases) {
    Start typing = start({"settings", "library", typed});
    typing.folder = home.path();
    const std::string expected = folder.empty() ? home.text() : at(folder);
    EXPECT_THAT(run(typing).output, HasSubstr("library   " + expected + "\n")) << typed;
  }
  EXPECT_EQ(printed({"call", "read_script", "id=Talk.md"}), "hello\n") << "the library of the settings is the default";
}

TEST_F(Settings, takeAFolderThatBeginsWithADashBehindTwo) {
  std::filesystem::create_directory(home / "-dash");
  Start typing = start({"settings", "library", "--", "-dash"});
  typing.folder = home.path();
  EXPECT_EQ(run(typing), (Outcome{0, shown("off", "not allowed", at("-dash")), ""}));
  typing.arguments = {"settings", "library", "--", "--help"};
  EXPECT_EQ(run(typing), (Outcome{1, "",
                                  "There is no folder \"" + at("--help") +
                                      "\". Give an existing one: kelvane settings library DIR.\n"}));
  typing.arguments = {"settings", "--", "library", "-dash"};
  EXPECT_EQ(run(typing).status, 0);
}

TEST_F(Settings, refuseTheCurrentFolderWhenItIsNotThereAnyMore) {
  std::filesystem::create_directory(home / "gone");
  const int folder = ::open(at("gone").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  std::filesystem::remove(home / "gone");
  Start typing = start({"settings", "library", "."});
  typing.folder = "/proc/self/fd/" + std::to_string(folder);
  EXPECT_EQ(run(typing), (Outcome{1, "", "The current folder no longer exists. Give the folder's absolute path.\n"}));
  ::close(folder);
}

TEST_F(Settings, refuseAFolderThatIsNone) {
  home.put("file", "");
  const std::pair<std::string, std::string> cases[] = {
      {at("gone"), "There is no folder \"" + at("gone") + "\". Give an existing one: kelvane settings library DIR.\n"},
      {at("file"), "\"" + at("file") +
                       "\" is not a folder. Give the folder that holds the scripts: kelvane settings library "
                       "DIR.\n"},
  };
  for (const auto& [typed, sentence] : cases) {
    EXPECT_EQ(kelvane({"settings", "library", typed}), (Outcome{1, "", sentence}));
  }
  std::filesystem::create_directory(home / "not UTF-8 \xFF");
  const Outcome outcome = kelvane({"settings", "library", at("not UTF-8 \xFF")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("UTF-8"));
  EXPECT_FALSE(std::filesystem::exists(home / settingsFile));
}

TEST_F(Settings, thatCannotBeWrittenAreASentence) {
  home.put(settingsFile, "{}");
  home.giveToNobody();
  std::filesystem::permissions(home / settingsFile, std::filesystem::perms::owner_read);
  Start typing = start({"settings", "enable"});
  typing.asNobody = true;
  const Outcome outcome = run(typing);
  EXPECT_EQ(outcome, (Outcome{1, "",
                              "\"" + at(settingsFile) +
                                  "\" could not be written, because the system does not permit it. Check who may read "
                                  "and write there.\n"}));
  EXPECT_EQ(home.bytes(settingsFile), "{}");
}

TEST_F(Settings, doNotGuess) {
  const std::string help = " Run: kelvane settings --help\n";
  const struct {
    std::vector<std::string> arguments;
    std::string sentence;
  } cases[] = {
      {{"enabel"}, "There is no \"kelvane settings enabel\". Did you mean \"enable\"?\n"},
      {{"frobnicate"}, "There is no \"kelvane settings frobnicate\"." + help},
      {{""}, "There is no \"kelvane settings \"." + help},
      {{"enable", "now"}, "\"kelvane settings enable\" does not take \"now\"." + help},
      {{"library"}, "Say which folder holds the scripts: kelvane settings library DIR.\n"},
      {{"library", ""}, "Say which folder holds the scripts: kelvane settings library DIR.\n"},
      {{"library", "a", "b"}, "\"kelvane settings library\" does not take \"b\"." + help},
      {{"--library", "a"}, "\"kelvane settings\" has no option \"--library\"." + help},
  };
  for (const auto& [arguments, sentence] : cases) {
    std::vector<std::string> all = arguments;
    all.insert(all.begin(), "settings");
    EXPECT_EQ(kelvane(all), (Outcome{2, "", sentence})) << testing::PrintToString(all);
  }
  EXPECT_FALSE(std::filesystem::exists(home / ".config"));
}

TEST_F(Settings, doNotBindServeAndCall) {
  home.put("Scripts/Talk.md", "hello");
  printed({"settings", "library", at("Scripts")});
  EXPECT_EQ(printed({"call", "read_script", "id=Talk.md"}), "hello\n") << "the server being off";
  printed({"settings", "enable"});
  printed({"settings", "allow-writes"});
  const Outcome outcome = kelvane({"call", "create_script", "name=New"});
  EXPECT_EQ(outcome, (Outcome{2, "", "The tool \"create_script\" changes scripts. Add --allow-writes.\n"}));
  Client reading(start({"serve"}));
  EXPECT_THAT(reading.tools(), SizeIs(6));
  reading.finish();
  Client writing(start({"serve", "--allow-writes"}));
  EXPECT_THAT(writing.tools(), SizeIs(17));
  writing.finish();
}

TEST_F(Settings, dependOnTheHomeAlone) {
  home.put("elsewhere/kelvane/org.quorvel.Quorvel.json", R"({"mcpEnabled":true})");
  Start asking = start({"settings"});
  asking.environment.push_back("XDG_CONFIG_HOME=" + at("elsewhere"));
  EXPECT_EQ(run(asking).output, shown("off", "not allowed", "none"));
}

}  // namespace
}  // namespace kelvane::tests
