#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/end-to-end/ClientHome.h"

namespace kelvane::tests {
namespace {

using Names = std::vector<std::string>;

const std::string commandLine = ".claude.json";
const std::string desktopOnLinux = ".config/Claude/claude_desktop_config.json";
const std::string desktopOnMacOS = "Library/Application Support/Claude/claude_desktop_config.json";

struct PlaceCase {
  const char* description;
  const char* client;
  Names environment;  // "HOME" stands for the home
  Names present;      // with an empty object in each, or nothing in a TOML file
  Names registered;
};

std::string inHome(std::string text, const ClientHome& home) {
  const std::size_t at = text.find("HOME/");
  return at == std::string::npos ? text : text.replace(at, 4, home.text());
}

TEST(ConnectPlaces, areAllTheFilesOfTheClientThatExistElseTheCommandLines) {
  const PlaceCase cases[] = {
      {"no file of Claude", "claude", {}, {}, {commandLine}},
      {"its command line's", "claude", {}, {commandLine}, {commandLine}},
      {"its desktop's on Linux alone", "claude", {}, {desktopOnLinux}, {desktopOnLinux}},
      {"its desktop's on macOS alone", "claude", {}, {desktopOnMacOS}, {desktopOnMacOS}},
      {"all of them",
       "claude",
       {},
       {commandLine, desktopOnLinux, desktopOnMacOS},
       {commandLine, desktopOnLinux, desktopOnMacOS}},
      {"a folder of its own", "claude", {"CLAUDE_CONFIG_DIR=HOME/own"}, {"own/.claude.json"}, {"own/.claude.json"}},
      {"a folder of its own that is missing", "claude", {"CLAUDE_CONFIG_DIR=HOME/a/b"}, {}, {"a/b/.claude.json"}},
      {"a folder of its own beside the home's",
       "claude",
       {"CLAUDE_CONFIG_DIR=HOME/own"},
       {commandLine, "own/.claude.json", desktopOnLinux},
       {"own/.claude.json", desktopOnLinux}},
      {"a variable without a folder", "claude", {"CLAUDE_CONFIG_DIR="}, {}, {commandLine}},
      {"another client's variable", "claude", {"CODEX_HOME=HOME/own"}, {}, {commandLine}},
      {"no file of Codex", "codex", {}, {}, {".codex/config.toml"}},
      {"one of Codex", "codex", {}, {".codex/config.toml"}, {".codex/config.toml"}},
      {"a home of its own", "codex", {"CODEX_HOME=HOME/own"}, {".codex/config.toml"}, {"own/config.toml"}},
      {"a home of its own that is missing", "codex", {"CODEX_HOME=HOME/a/b"}, {}, {"a/b/config.toml"}},
      {"a variable without a home", "codex", {"CODEX_HOME="}, {}, {".codex/config.toml"}},
      {"places that Codex does not look at", "codex", {"XDG_CONFIG_HOME=HOME/x"}, {}, {".codex/config.toml"}},
  };
  for (const PlaceCase& row : cases) {
    SCOPED_TRACE(row.description);
    const ClientHome home;
    const bool isClaude = row.client == std::string("claude");
    const std::string title = isClaude ? "Claude" : "Codex";
    for (const std::string& name : row.present) home.put(name, isClaude ? "{}\n" : "");
    Start start = home.start({"connect", row.client});
    for (const std::string& variable : row.environment) start.environment.push_back(inHome(variable, home));

    std::string connected, already, disconnected;
    for (const std::string& name : row.registered) {
      const bool isPresent = std::filesystem::exists(home / name);
      connected += home.connected(title, name) + (isPresent ? home.keptBeside(name) : "");
      already += home.connectedAlready(name);
      disconnected += home.disconnected(title, name) + home.keptBeside(name);
    }
    EXPECT_EQ(run(start), (Outcome{0, connected, ""}));
    for (const std::string& name : row.registered) {
      EXPECT_EQ(home.bytes(name), isClaude ? claudeLines() : codexLines()) << name;
    }
    for (const std::string& name : row.present) {
      const bool isRegistered = std::find(row.registered.begin(), row.registered.end(), name) != row.registered.end();
      if (!isRegistered) {
        EXPECT_EQ(home.bytes(name), isClaude ? "{}\n" : "") << name;
      }
    }
    EXPECT_EQ(run(start), (Outcome{0, already, ""}));
    start.arguments.front() = "disconnect";
    EXPECT_EQ(run(start), (Outcome{0, disconnected, ""}));
  }
}

TEST(ConnectPlaces, thatAreFoldersAreMadeForTheirOwnerOnly) {
  const ClientHome home;
  EXPECT_EQ(home.kelvane({"connect", "codex"}).status, 0);
  EXPECT_EQ(home.mode(".codex"), 0700U);
  EXPECT_EQ(home.mode(".codex/config.toml"), 0600U);
}

TEST(ConnectPlaces, areALinkTooThatLeadsToNoFileYet) {
  const ClientHome home;
  home.put(desktopOnLinux, "{}\n");
  std::filesystem::create_symlink("Scripts/claude.json", home / commandLine);
  EXPECT_EQ(home.kelvane({"connect", "claude"}),
            (Outcome{0,
                     home.connected("Claude", commandLine) + home.connected("Claude", desktopOnLinux) +
                         home.keptBeside(desktopOnLinux),
                     ""}));
  EXPECT_EQ(home.bytes("Scripts/claude.json"), claudeLines());
  EXPECT_EQ(home.bytes(desktopOnLinux), claudeLines());
}

TEST(ConnectPlaces, areAFileThatThePersonNames) {
  const ClientHome home;
  home.put(commandLine, "{}");
  home.put("other.json", "{\"mcpServers\":{}}");
  EXPECT_EQ(home.kelvane({"connect", "claude", "--config", (home / "other.json").native()}),
            (Outcome{0, home.connected("Claude", "other.json") + home.keptBeside("other.json"), ""}));
  EXPECT_EQ(home.bytes("other.json"), withProgram(R"({"mcpServers":{"kelvane":{"args":[],"command":"/bin/k"}}})"));
  EXPECT_EQ(home.bytes(commandLine), "{}");
  EXPECT_EQ(home.kelvane({"disconnect", "claude", "--config=" + (home / "other.json").native()}),
            (Outcome{0, home.disconnected("Claude", "other.json") + home.keptBeside("other.json"), ""}));
  EXPECT_EQ(home.bytes("other.json"), "{\"mcpServers\":{}}");
  EXPECT_EQ(home.kelvane({"connect", "codex", "--config", (home / "new.toml").native()}),
            (Outcome{0, home.connected("Codex", "new.toml"), ""}));
  EXPECT_EQ(home.bytes("new.toml"), codexLines());
  EXPECT_FALSE(std::filesystem::exists(home / ".codex"));
}

TEST(ConnectPlaces, areReadFromTheCurrentFolderAsTyped) {
  const ClientHome home;
  home.put("Scripts/mine.toml", "a = 1\n");
  Start start = home.start({"connect", "codex", "--config", "mine.toml"});
  start.folder = home / "Scripts";
  EXPECT_EQ(run(start), (Outcome{0,
                                 "Codex starts this program now: it was registered in \"mine.toml\".\n"
                                 "The text before is in \"mine.toml.before-kelvane\".\n",
                                 ""}));
  EXPECT_EQ(home.bytes("Scripts/mine.toml"), "a = 1\n\n" + codexLines());
  EXPECT_EQ(home.bytes("Scripts/mine.toml.before-kelvane"), "a = 1\n");
}

TEST(ConnectPlaces, thatAPersonNamesAndThatHaveNoFolderAreRefused) {
  const ClientHome home;
  const auto census = home.census();
  const std::string file = (home / "slip/config.toml").native();
  const std::string sentence =
      home.quoted("slip/config.toml") + " could not be written, because there is no such folder.";
  for (const Names& option : {Names{}, Names{"--dry-run"}}) {
    Names words = {"connect", "codex", "--config", file};
    words.insert(words.end(), option.begin(), option.end());
    EXPECT_EQ(home.kelvane(words), (Outcome{1, "", refused(sentence, codexLines())}));
    words.front() = "disconnect";
    EXPECT_EQ(home.kelvane(words), (Outcome{0, home.notConnected("slip/config.toml"), ""}));
  }
  EXPECT_EQ(home.census(), census);
}

TEST(ConnectPlaces, thatAreFineAreRegisteredThoughAnotherIsNot) {
  const ClientHome home;
  home.put(commandLine, "{ // mine\n}");
  home.put(desktopOnLinux, "{}\n");
  EXPECT_EQ(
      home.kelvane({"connect", "claude"}),
      (Outcome{1, home.connected("Claude", desktopOnLinux) + home.keptBeside(desktopOnLinux),
               refused(home.quoted(commandLine) +
                           ": The file is not JSON: it cannot be read from line 1, column 3 on. It was left as it "
                           "is; mend it there and try again.",
                       claudeLines())}));
  EXPECT_EQ(home.bytes(commandLine), "{ // mine\n}");
  EXPECT_EQ(home.bytes(desktopOnLinux), claudeLines());
}

}  // namespace
}  // namespace kelvane::tests
