#include <algorithm>
#include <fstream>

#include "tests/end-to-end/ClientHome.h"
#include "tests/end-to-end/Home.h"

namespace kelvane::tests {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// Our entry with these arguments.
std::string entry(const std::string& arguments) {
  const std::string program = std::filesystem::canonical(KELVANE_PROGRAM).native();
  return R"({"mcpServers":{"kelvane":{"command":")" + program + R"(","args":)" + arguments + "}}}";
}

class Doctor : public Home {
 protected:
  // Everything as a newcomer has it after the first commands.
  void setUp() const {
    home.put("Scripts/Talk.md", "hello");
    home.put("Scripts/Talks/Other.md", "hello");
    printed({"settings", "library", at("Scripts")});
    printed({"settings", "enable"});
    printed({"connect", "claude"});
    printed({"connect", "codex"});
  }

  std::string claude() const { return "ok     \"" + at(".claude.json") + "\" makes Claude start this program.\n"; }
  std::string codex() const { return "ok     \"" + at(".codex/config.toml") + "\" makes Codex start this program.\n"; }

  static constexpr const char* reading =
      "ok     The server is switched on, and AI clients can only read. To let them write, run: kelvane settings "
      "allow-writes\n";
  static constexpr const char* noHistory = "ok     There is no version history yet. The first change creates it.\n";
  static constexpr const char* answers =
      "ok     Started as an AI client starts it, this program answers, with 6 tools.\n";

  std::string holds(const std::string& count) const {
    return "ok     \"" + at("Scripts") + "\" can be read and written, and holds " + count + ".\n";
  }
};

TEST_F(Doctor, findsAllRightAfterTheFirstCommandsAndChangesNothing) {
  setUp();
  const auto before = home.census();
  EXPECT_EQ(kelvane({"doctor"}),
            (Outcome{0, reading + holds("2 scripts") + noHistory + claude() + codex() + answers, ""}));
  EXPECT_EQ(home.census(), before);
}

TEST_F(Doctor, saysWhatToDoInAHomeWhereNothingIsSetUp) {
  EXPECT_EQ(kelvane({"doctor"}),
            (Outcome{1,
                     "wrong  The server is switched off. Run: kelvane settings enable\n"
                     "wrong  No script folder is set. Give one with --library DIR, or run: kelvane settings "
                     "library DIR\n"
                     "wrong  Claude does not start this program. To register it in \"" +
                         at(".claude.json") +
                         "\", run: kelvane connect claude\n"
                         "wrong  Codex does not start this program. To register it in \"" +
                         at(".codex/config.toml") + "\", run: kelvane connect codex\n",
                     ""}));
}

TEST_F(Doctor, printsJSONForOtherPrograms) {
  setUp();
  std::filesystem::remove(home / ".codex/config.toml");
  const std::string lines = printed({"doctor"});
  const auto findings = JSON::decoded(printed({"doctor", "--json"}));
  ASSERT_TRUE(findings && findings->items() != nullptr);
  std::string again;
  for (const JSON& finding : *findings->items()) {
    std::string kind(*finding["kind"]->string());
    kind.resize(7, ' ');
    again += kind + std::string(*finding["text"]->string()) + '\n';
  }
  EXPECT_EQ(again, lines);
  EXPECT_THAT(lines, HasSubstr("note   Codex does not start this program."));
}

TEST_F(Doctor, tellsOfWritesAndTheirHistory) {
  setUp();
  printed({"settings", "allow-writes"});
  printed({"call", "update_script", "id=Talk.md", "text=new", "note=n", "--allow-writes"});
  const std::string output = printed({"doctor"});
  EXPECT_THAT(output, StartsWith("ok     The server is switched on, and AI clients can change scripts.\n"));
  EXPECT_THAT(output, HasSubstr("ok     The version history is sound: 1 version of 1 script.\n"));
  EXPECT_THAT(output, HasSubstr("answers, with 17 tools.\n"));
}

TEST_F(Doctor, findsNothingWrongWithSwitchesThatNoClientGoesBy) {
  home.put("Scripts/Talk.md", "hello");
  printed({"settings", "library", at("Scripts")});
  home.put(".claude.json", entry("[\"serve\",\"--library\",\"" + at("Scripts") + "\",\"--allow-writes\"]"));
  EXPECT_EQ(printed({"doctor"}), "note   The server is switched off. Run: kelvane settings enable\n" +
                                     holds("1 script") + noHistory + "ok     \"" + at(".claude.json") +
                                     "\" makes Claude start this program with \"serve --library " + at("Scripts") +
                                     " --allow-writes\", which answers, with 17 tools.\n"
                                     "note   Codex does not start this program. To register it in \"" +
                                     at(".codex/config.toml") + "\", run: kelvane connect codex\n");
}

TEST_F(Doctor, looksAtTheLibraryThatIsTyped) {
  setUp();
  home.put("Other/One.md", "x");
  printed({"settings", "disable"});
  const Outcome outcome = kelvane({"doctor", "--library", at("Other")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.output,
              HasSubstr("ok     \"" + at("Other") + "\" can be read and written, and holds 1 script.\n"));
  EXPECT_THAT(outcome.output, HasSubstr(answers));
}

TEST_F(Doctor, looksAtALibraryWhoseNameLooksLikeAnOption) {
  setUp();
  home.put("--help/One.md", "x");
  Start asking = start({"doctor", "--library=--help"});
  asking.folder = home.path();
  const Outcome outcome = run(asking);
  EXPECT_EQ(outcome.status, 0) << outcome;
  EXPECT_THAT(outcome.output, HasSubstr(answers));
}

// What is done to a home that is right, and the line that tells of it.
struct Ailment {
  const char* name;
  void (*inflict)(const Folder& home);
  std::string line;
  int status = 1;
  bool answers = true;  // whether the server answers all the same

  friend void PrintTo(const Ailment& row, std::ostream* out) { *out << row.name; }
};

class Ailing : public Doctor, public testing::WithParamInterface<Ailment> {};

TEST_P(Ailing, isFoundAndSaid) {
  setUp();
  printed({"call", "update_script", "id=Talk.md", "text=new", "note=n", "--allow-writes"});
  GetParam().inflict(home);
  const Outcome outcome = kelvane({"doctor"});
  std::string line = GetParam().line;
  for (std::size_t found; (found = line.find("HOME/")) != std::string::npos;) line.replace(found, 4, home.text());
  EXPECT_THAT(outcome.output, HasSubstr("\n" + line + "\n"));
  EXPECT_EQ(outcome.status, GetParam().status) << outcome;
  EXPECT_EQ(outcome.errors, "");
  EXPECT_EQ(outcome.output.find("\n" + std::string(answers)) != std::string::npos, GetParam().answers) << outcome;
}

const Ailment ailments[] = {
    {"theLibraryIsGone", [](const Folder& home) { std::filesystem::rename(home / "Scripts", home / "Moved"); },
     "wrong  There is no folder \"HOME/Scripts\". Give an existing one: kelvane settings library DIR.", 1, false},
    {"anotherProgramIsRegistered",
     [](const Folder& home) { home.put(".claude.json", R"({"mcpServers":{"kelvane":{"command":"/bin/sh"}}})"); },
     "wrong  \"HOME/.claude.json\" makes Claude start \"/bin/sh\", which is not this program. Run: kelvane connect "
     "claude"},
    {"whatIsRegisteredIsGone",
     [](const Folder& home) { home.put(".codex/config.toml", "[mcp_servers.kelvane]\ncommand = \"/gone\"\n"); },
     "wrong  \"HOME/.codex/config.toml\" makes Codex start \"/gone\", which does not exist. Run: kelvane connect "
     "codex"},
    {"aRelativePathIsRegistered",
     [](const Folder& home) { home.put(".claude.json", R"({"mcpServers":{"kelvane":{"command":"kelvane"}}})"); },
     "wrong  \"HOME/.claude.json\" makes Claude start \"kelvane\", which is not an absolute path. Run: kelvane connect "
     "claude"},
    {"aLinkToThisProgramIsRegistered",
     [](const Folder& home) {
       std::filesystem::create_symlink(KELVANE_PROGRAM, home / "link");
       home.put(".claude.json", R"({"mcpServers":{"kelvane":{"command":")" + home.text() + R"(/link"}}})");
     },
     "ok     \"HOME/.claude.json\" makes Claude start this program, as \"HOME/link\".", 0},
    {"theArgumentsAreWrong", [](const Folder& home) { home.put(".claude.json", entry("[\"serve\", \"--bad\"]")); },
     "wrong  \"HOME/.claude.json\" makes Claude start this program with \"serve --bad\", which does not answer. It "
     "said: \"kelvane serve\" has no option \"--bad\". Run: kelvane serve --help"},
    {"theArgumentsInTOMLAreWrong",
     [](const Folder& home) {
       home.put(".codex/config.toml", "mcp_servers.kelvane = { args = [\"serve\", \"--library\"], command = \"" +
                                          std::filesystem::canonical(KELVANE_PROGRAM).native() + "\" }\n");
     },
     "wrong  \"HOME/.codex/config.toml\" makes Codex start this program with \"serve --library\", which does not "
     "answer. It said: --library needs a folder: --library DIR."},
    {"theArgumentsAreAString", [](const Folder& home) { home.put(".claude.json", entry("\"settings disable\"")); },
     "wrong  \"HOME/.claude.json\" makes Claude start this program, with arguments that are not an array of strings. "
     "Run: kelvane connect claude"},
    {"anArgumentIsAnArray", [](const Folder& home) { home.put(".claude.json", entry("[[\"doctor\"]]")); },
     "wrong  \"HOME/.claude.json\" makes Claude start this program, with arguments that are not an array of strings. "
     "Run: kelvane connect claude"},
    {"anArgumentBesideAStringIsANumber", [](const Folder& home) { home.put(".claude.json", entry("[1,\"serve\"]")); },
     "wrong  \"HOME/.claude.json\" makes Claude start this program, with arguments that are not an array of strings. "
     "Run: kelvane connect claude"},
    {"theArgumentsInTOMLAreAString",
     [](const Folder& home) {
       home.put(".codex/config.toml", "mcp_servers.kelvane = { args = \"settings disable\", command = \"" +
                                          std::filesystem::canonical(KELVANE_PROGRAM).native() + "\" }\n");
     },
     "wrong  \"HOME/.codex/config.toml\" makes Codex start this program, with arguments that are not an array of "
     "strings. Run: kelvane connect codex"},
    {"theArgumentsNameALibrary",
     [](const Folder& home) { home.put(".claude.json", entry("[\"serve\",\"--library\",\"/usr\"]")); },
     "ok     \"HOME/.claude.json\" makes Claude start this program with \"serve --library /usr\", which answers, with "
     "6 tools.",
     0},
    {"aCommandForgesALine",
     [](const Folder& home) { home.put(".claude.json", R"({"mcpServers":{"kelvane":{"command":"/x\nok\u001b"}}})"); },
     "wrong  \"HOME/.claude.json\" makes Claude start \"/x\xEF\xBF\xBDok\xEF\xBF\xBD\", which does not exist. Run: "
     "kelvane connect claude"},
    {"oneClientIsNotConnected", [](const Folder& home) { home.put(".claude.json", "{}"); },
     "note   Claude does not start this program. To register it in \"HOME/.claude.json\", run: kelvane connect claude",
     0},
    {"theDesktopAppIsNotConnected",
     [](const Folder& home) { home.put(".config/Claude/claude_desktop_config.json", ""); },
     "note   Claude does not start this program. To register it in \"HOME/.config/Claude/claude_desktop_config.json\", "
     "run: kelvane connect claude",
     0},
    {"aConfigurationIsNoJSON", [](const Folder& home) { home.put(".claude.json", "{\n  // mine\n}"); },
     "wrong  \"HOME/.claude.json\": The file is not valid JSON at line 2, column 3. The file is unchanged. Fix it "
     "there and try again."},
    {"theHistoryIsDamaged",
     [](const Folder& home) { home.put("Scripts/.kelvane/history.sqlite", std::string(8192, 'x')); },
     "wrong  The version history of this library (.kelvane/history.sqlite) is damaged, so it cannot be read. Move that "
     "file away to start a new one, or restore it from a backup."},
    {"theEntryIsSwitchedOff",
     [](const Folder& home) {
       home.put(".codex/config.toml", home.bytes(".codex/config.toml") + "enabled = false # for now\n");
     },
     "wrong  \"HOME/.codex/config.toml\" registers this program but disables it, so Codex does not start it. Remove "
     "\"enabled = false\" there, or rewrite the entry. Run: kelvane connect codex"},
    {"theEntryInTOMLSetsAnotherHome",
     [](const Folder& home) {
       home.put(".codex/config.toml", home.bytes(".codex/config.toml") + "env = { HOME = \"/elsewhere\" }\n");
     },
     "wrong  \"HOME/.codex/config.toml\" makes Codex start this program with HOME set to \"/elsewhere\", so it does "
     "not read your settings. Remove HOME there, or rewrite the entry. Run: kelvane connect codex"},
    {"theEntryInJSONSetsAnotherHome",
     [](const Folder& home) { home.put(".claude.json", entry("[\"serve\"],\"env\":{\"A\":\"b\",\"HOME\":\"\"}")); },
     "wrong  \"HOME/.claude.json\" makes Claude start this program with HOME set to \"\", so it does not read your "
     "settings. Remove HOME there, or rewrite the entry. Run: kelvane connect claude"},
    {"theEntrySetsTheSameHome",
     [](const Folder& home) {
       home.put(".claude.json", entry("[],\"env\":{\"HOME\":\"" + home.text() + "/Scripts/..\"}"));
     },
     "ok     \"HOME/.claude.json\" makes Claude start this program.", 0},
    {"theEntrySetsAnotherHomeAndNamesItsLibrary",
     [](const Folder& home) {
       home.put(".claude.json", entry("[\"serve\",\"--library=/usr\"],\"env\":{\"HOME\":\"/elsewhere\"}"));
     },
     "ok     \"HOME/.claude.json\" makes Claude start this program with \"serve --library=/usr\", which answers, with "
     "6 tools.",
     0},
    {"theFileThatTheCommandLineReadsInsteadHoldsNoEntry",
     [](const Folder& home) { home.put(".claude/.config.json", "{}"); },
     "note   Claude does not start this program. To register it in \"HOME/.claude/.config.json\", run: kelvane connect "
     "claude",
     0},
    {"aNameIsNotUTF8", [](const Folder& home) { home.put("Scripts/\xFF.md", "x"); },
     "note   1 name in it is not UTF-8 and cannot be listed. Rename the files so that AI clients see them.", 0},
};

INSTANTIATE_TEST_SUITE_P(Ailments, Ailing, testing::ValuesIn(ailments),
                         [](const auto& ailment) { return std::string(ailment.param.name); });

// An entry's arguments are a stranger's: whatever else the program can do, it is not done to see whether it serves.
TEST_F(Doctor, startsNothingButAServerWhateverAnEntrySays) {
  setUp();
  for (const char* arguments : {"settings disable", "settings", "doctor", "connect codex", "disconnect claude",
                                "restore Talk 1", "call create_script name=New --allow-writes", "history",
                                "show Talk 1", "--version", "--help", "frobnicate", "--bad"}) {
    SCOPED_TRACE(arguments);
    std::string list(arguments);
    for (std::size_t at = 0; (at = list.find(' ', at)) != std::string::npos; at += 3) list.replace(at, 1, "\",\"");
    home.put(".claude.json", entry("[\"" + list + "\"]"));
    const auto before = home.census();
    const Outcome outcome = kelvane({"doctor"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output,
                HasSubstr("\nwrong  \"" + at(".claude.json") + "\" makes Claude start this program with \"" +
                          arguments + "\", which does not serve. Run: kelvane connect claude\n"));
    ASSERT_EQ(home.census(), before) << "the first of them would be seen before one starts processes without end";
  }
}

TEST_F(Doctor, countsTheSwitchesForAClientWhoseLinesAreAllThatCanBeRead) {
  setUp();
  home.put(".claude.json", entry("[\"serve\",\"--library\",\"" + at("Scripts") + "\"]"));
  home.put(".codex/config.toml", home.bytes(".codex/config.toml") + "oops\n");
  printed({"settings", "disable"});
  const std::string named = kelvane({"doctor"}).output;
  EXPECT_THAT(named, StartsWith("wrong  The server is switched off"));
  EXPECT_THAT(
      named, HasSubstr(" The file is unchanged. Fix it there and try again. It contains an entry for this program.\n"));
  home.put(".codex/config.toml", "oops\n");
  EXPECT_THAT(kelvane({"doctor"}).output, StartsWith("note   The server is switched off"));
}

// As a service may be started.
TEST_F(Doctor, looksAtALibraryThatIsTypedWithoutAHome) {
  if (::geteuid() != 0) GTEST_SKIP() << "Only root can become a user of no database.";
  home.put("Scripts/Talk.md", "hello");
  copyProgramTo(home / "kelvane");
  for (const char* folder : {".", "Scripts"}) {
    std::filesystem::permissions(home / folder, std::filesystem::perms(0777));
  }
  Start asking = start({"doctor", "--library", at("Scripts")});
  asking.program = home / "kelvane";
  asking.home = "";
  asking.asUnknown = true;
  EXPECT_EQ(run(asking),
            (Outcome{0,
                     "note   There is no home folder, so there are no settings and no AI client is set up. Set HOME to "
                     "one.\n" +
                         holds("1 script") + noHistory + answers,
                     ""}));
  asking.arguments = {"doctor"};
  const Outcome outcome = run(asking);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "");
  EXPECT_THAT(outcome.output,
              StartsWith("wrong  There is no home folder to store the settings in. Set HOME to one.\n"));
  // A client's own folder is found without one.
  home.put("own/config.toml", "");
  asking.environment.push_back("CODEX_HOME=" + at("own"));
  EXPECT_THAT(run(asking).output, HasSubstr("\"" + at("own/config.toml") + "\", run: kelvane connect codex\n"));
  // An entry that names its library and switches needs no settings.
  asking.arguments = {"doctor", "--library", at("Scripts")};
  const std::string serving = "serve --library " + at("Scripts");
  home.put("own/config.toml", "[mcp_servers.kelvane]\ncommand = \"" + at("kelvane") +
                                  "\"\nargs = [\"serve\", \"--library\", \"" + at("Scripts") + "\"]\n");
  EXPECT_EQ(run(asking), (Outcome{0,
                                  "note   There is no home folder, so there are no settings. Set HOME to one.\n" +
                                      holds("1 script") + noHistory + "ok     \"" + at("own/config.toml") +
                                      "\" makes Codex start this program with \"" + serving +
                                      "\", which answers, with 6 tools.\n" + answers,
                                  ""}));
  for (const char* arguments : {"[]", "[\"--\"]"}) {
    home.put("own/config.toml",
             "[mcp_servers.kelvane]\ncommand = \"" + at("kelvane") + "\"\nargs = " + arguments + "\n");
    EXPECT_THAT(run(asking).output,
                StartsWith("wrong  There is no home folder to store the settings in. Set HOME to one.\n"))
        << arguments;
  }
  asking.arguments = {"connect", "claude"};
  EXPECT_EQ(run(asking),
            (Outcome{1, "", "There is no home folder to look for the client's configuration in. Set HOME to one.\n"}));
}

// A folder that may be written to and not entered is of no use.
TEST_F(Doctor, saysThatTheFoldersOfALibraryToBeWrittenCannotBeEntered) {
  if (::geteuid() != 0) GTEST_SKIP() << "Only root can become another user.";
  setUp();
  printed({"call", "update_script", "id=Talk.md", "text=new", "note=n", "--allow-writes"});
  printed({"settings", "allow-writes"});
  home.giveToNobody();
  std::filesystem::permissions(home / "Scripts/.kelvane", std::filesystem::perms(0600));
  Start asking = start({"doctor"});
  asking.asNobody = true;
  EXPECT_THAT(run(asking).output,
              HasSubstr("but \"" + at("Scripts/.kelvane") +
                        "\" cannot be written, because the system does not permit it. Allow your user to write there"));
}

TEST_F(Doctor, saysThatALibraryToBeWrittenCannotBe) {
  setUp();
  printed({"call", "update_script", "id=Talk.md", "text=new", "note=n", "--allow-writes"});
  const std::string holds = "\"" + at("Scripts") + "\" holds 2 scripts, but \"";
  const std::string refused =
      "\" cannot be written, because the system does not permit it. Allow your user to write there, or run: kelvane "
      "settings read-only\n";
  for (const char* name : {"Scripts", "Scripts/.kelvane", "Scripts/.kelvane/lock", "Scripts/.kelvane/history.sqlite"}) {
    SCOPED_TRACE(name);
    home.giveToNobody();
    const auto usual = std::filesystem::status(home / name).permissions();
    std::filesystem::permissions(home / name, usual & ~std::filesystem::perms::owner_write);
    Start asking = start({"doctor"});
    asking.asNobody = true;
    printed({"settings", "read-only"});
    home.giveToNobody();
    EXPECT_THAT(run(asking).output,
                HasSubstr("ok     \"" + at("Scripts") + "\" can be read but not written, and holds 2 scripts.\n"));
    printed({"settings", "allow-writes"});
    home.giveToNobody();
    const Outcome outcome = run(asking);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_THAT(outcome.output, HasSubstr("wrong  " + holds + at(name) + refused));
    std::filesystem::permissions(home / name, usual);
  }
}

}  // namespace
}  // namespace kelvane::tests
