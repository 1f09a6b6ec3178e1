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
const std::string older = ".claude/.config.json";
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

TEST(ConnectPlaces, allFilesThatExistAreChangedElseTheCommandLines) {
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
      {"the older file", "claude", {}, {older}, {older}},
      {"the older file beside the command line's and the desktop's",
       "claude",
       {},
       {older, commandLine, desktopOnLinux},
       {older, desktopOnLinux}},
      {"the older file in a folder of its own",
       "claude",
       {"CLAUDE_CONFIG_DIR=HOME/own"},
       {"own/.config.json", "own/.claude.json", older},
       {"own/.config.json"}},
      {"the older file of the home beside a folder of its own",
       "claude",
       {"CLAUDE_CONFIG_DIR=HOME/own"},
       {older},
       {"own/.claude.json"}},
      {"a file of that name in the home itself", "claude", {}, {".config.json"}, {commandLine}},
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
      disconnected += home.disconnected(title, name) + home.keptBeside(name, isPresent ? 2 : 1);
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

TEST(ConnectPlaces, aNewFolderIsForItsOwnerOnly) {
  const ClientHome home;
  EXPECT_EQ(home.kelvane({"connect", "codex"}).status, 0);
  EXPECT_EQ(home.mode(".codex"), 0700U);
  EXPECT_EQ(home.mode(".codex/config.toml"), 0600U);
}

TEST(ConnectPlaces, aLinkThatLeadsToNoFileYetCounts) {
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

TEST(ConnectPlaces, aLinkInPlaceOfTheOlderFileThatLeadsToNoFileDoesNotCount) {
  const ClientHome home;
  std::filesystem::create_directory(home / ".claude");
  std::filesystem::create_symlink("nowhere", home / older);
  EXPECT_EQ(home.kelvane({"connect", "claude"}), (Outcome{0, home.connected("Claude", commandLine), ""}));
  home.put(".claude/nowhere", "{}\n");
  EXPECT_EQ(home.kelvane({"connect", "claude"}),
            (Outcome{0, home.connected("Claude", older) + home.keptBeside(older), ""}));
}

TEST(ConnectPlaces, aFileThatThePersonNamesIsTheOnlyOneChanged) {
  const ClientHome home;
  home.put(commandLine, "{}");
  home.put("other.json", "{\"mcpServers\":{}}");
  EXPECT_EQ(home.kelvane({"connect", "claude", "--config", (home / "other.json").native()}),
            (Outcome{0, home.connected("Claude", "other.json") + home.keptBeside("other.json"), ""}));
  EXPECT_EQ(home.bytes("other.json"), withProgram(R"({"mcpServers":{"kelvane":{"args":[],"command":"/bin/k"}}})"));
  EXPECT_EQ(home.bytes(commandLine), "{}");
  EXPECT_EQ(home.kelvane({"disconnect", "claude", "--config=" + (home / "other.json").native()}),
            (Outcome{0, home.disconnected("Claude", "other.json") + home.keptBeside("other.json", 2), ""}));
  EXPECT_EQ(home.bytes("other.json"), "{\"mcpServers\":{}}");
  EXPECT_EQ(home.kelvane({"connect", "codex", "--config", (home / "new.toml").native()}),
            (Outcome{0, home.connected("Codex", "new.toml"), ""}));
  EXPECT_EQ(home.bytes("new.toml"), codexLines());
  EXPECT_FALSE(std::filesystem::exists(home / ".codex"));
}

TEST(ConnectPlaces, aRelativePathIsBelowTheCurrentFolder) {
  const ClientHome home;
  home.put("Scripts/mine.toml", "a = 1\n");
  Start start = home.start({"connect", "codex", "--config", "mine.toml"});
  start.folder = home / "Scripts";
  EXPECT_EQ(run(start), (Outcome{0,
                                 "Codex now starts this program. It is registered in \"mine.toml\".\n"
                                 "The old text is in \"mine.toml.before-kelvane\".\n",
                                 ""}));
  EXPECT_EQ(home.bytes("Scripts/mine.toml"), "a = 1\n\n" + codexLines());
  EXPECT_EQ(home.bytes("Scripts/mine.toml.before-kelvane"), "a = 1\n");
}

// The sentence names what is in the way, whichever piece of the path it is.
TEST(ConnectPlaces, aPathBelowSomethingThatIsNotAFolderIsRefusedForThatReason) {
  const struct {
    const char* description;
    Names words;
    const char* variable;
    std::string file;
    std::string happened;
    std::string obstacle;
  } cases[] = {
      {"the client's own folder", {"codex"}, "", ".codex", R"(".codex/config.toml" could not be read)", ".codex"},
      {"a folder above a named one",
       {"codex"},
       "CODEX_HOME=HOME/.config/codex",
       ".config",
       R"(".config/codex/config.toml" could not be read)",
       ".config"},
      {"two folders above a named one",
       {"claude"},
       "CLAUDE_CONFIG_DIR=HOME/.config/a/b",
       ".config",
       R"(".config/a/b/.claude.json" could not be read)",
       ".config"},
      {"a folder of a named file",
       {"codex", "--config", "HOME/file/c.toml"},
       "",
       "file",
       R"("file/c.toml" could not be read)",
       "file"},
      {"a folder above a named file's",
       {"codex", "--config", "HOME/file/b/c.toml"},
       "",
       "file",
       R"("file/b/c.toml" could not be read)",
       "file"},
  };
  for (const auto& row : cases) {
    const ClientHome home;
    std::filesystem::remove_all(home / ".config");
    home.put(row.file, "not a folder");
    const auto census = home.census();
    std::string sentence =
        row.happened + ", because " + home.quoted(row.obstacle) + " is not a folder. Move it away and try again.";
    sentence.insert(sentence.find('"') + 1, home.text() + '/');
    for (const bool isDryRun : {true, false}) {
      SCOPED_TRACE(std::string(row.description) + (isDryRun ? ", tried" : ""));
      Start start = home.start({"connect"});
      for (const std::string& word : row.words) start.arguments.push_back(inHome(word, home));
      if (isDryRun) start.arguments.emplace_back("--dry-run");
      if (*row.variable != '\0') start.environment.push_back(inHome(row.variable, home));
      const bool isClaude = row.words.front() == "claude";
      EXPECT_EQ(run(start), (Outcome{1, "", refused(sentence, isClaude ? claudeLines() : codexLines())}));
      EXPECT_EQ(home.census(), census);
    }
  }
}

TEST(ConnectPlaces, aFileThatThePersonNamesNeedsAFolder) {
  const ClientHome home;
  const auto census = home.census();
  const std::string file = (home / "slip/config.toml").native();
  const std::string sentence =
      home.quoted("slip/config.toml") +
      " could not be written, because its folder does not exist. Create the folder and try again.";
  for (const Names& option : {Names{}, Names{"--dry-run"}}) {
    Names words = {"connect", "codex", "--config", file};
    words.insert(words.end(), option.begin(), option.end());
    EXPECT_EQ(home.kelvane(words), (Outcome{1, "", refused(sentence, codexLines())}));
    words.front() = "disconnect";
    EXPECT_EQ(home.kelvane(words), (Outcome{0, home.notConnected("slip/config.toml"), ""}));
  }
  EXPECT_EQ(home.census(), census);
}

TEST(ConnectPlaces, oneFileIsRegisteredThoughAnotherIsRefused) {
  const ClientHome home;
  home.put(commandLine, "{ // mine\n}");
  home.put(desktopOnLinux, "{}\n");
  EXPECT_EQ(home.kelvane({"connect", "claude"}),
            (Outcome{1, home.connected("Claude", desktopOnLinux) + home.keptBeside(desktopOnLinux),
                     refused(home.quoted(commandLine) + ": The file is not valid JSON at line 1, column 3. The file is "
                                                        "unchanged. Fix it there and try again.",
                             claudeLines())}));
  EXPECT_EQ(home.bytes(commandLine), "{ // mine\n}");
  EXPECT_EQ(home.bytes(desktopOnLinux), claudeLines());
}

}  // namespace
}  // namespace kelvane::tests
