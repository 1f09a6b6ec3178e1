#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/end-to-end/ClientHome.h"

namespace kelvane::tests {
namespace {

using Words = std::vector<std::string>;

struct RefusalCase {
  const char* description;
  const char* client;
  std::string text;
  std::string sentences;
  std::string disconnecting = sentences;  // where they are others then
};

constexpr const char* notOurs =
    " in another form than ours: dotted keys, an inline table, a header with quotes, spaces or a comment, or mixed "
    "line endings. ";
constexpr const char* aSecond =
    "A second entry would keep the client from starting, so the file is unchanged. Remove that entry by hand and try "
    "again.";
constexpr const char* notTakenOut = "The file is unchanged. Remove that entry by hand.";
constexpr const char* inTheWay =
    "With our lines changed, the file would no longer be valid TOML: they are inside a value, or the table of servers "
    "is in a form that takes no other server. The file is unchanged. Edit it by hand.";
constexpr const char* inTheWayOfRemoving =
    "With our lines removed, the file would no longer be valid TOML: they are inside a value. The file is unchanged. "
    "Remove them by hand.";
constexpr const char* changesMore =
    "Changing our entry would change other parts of the file too. The file is unchanged. Edit it by hand.";

std::string notJSON(const std::string& place) {
  return "The file is not valid JSON at " + place + ". The file is unchanged. Fix it there and try again.";
}

std::string notTOML(const std::string& place, const std::string& reason) {
  return "The file is not valid TOML at " + place + " (" + reason +
         "). The file is unchanged. Fix it there and try again.";
}

RefusalCase entryAt(const std::string& line, const char* description, const std::string& text) {
  const std::string sentence = "The file registers \"kelvane\" at line " + line + notOurs;
  return {description, "codex", text, sentence + aSecond, sentence + notTakenOut};
}

// By connecting and by disconnecting, tried or not, and nothing is written.
TEST(ConnectRefusals, whatCannotBeReadOrProvenIsLeftAndTheLinesToPasteAreShown) {
  const RefusalCase cases[] = {
      {"a comment in JSON", "claude", "{\n  // servers\n  \"a\": 1\n}\n", notJSON("line 2, column 3")},
      {"a comment in JSON, in CR LF", "claude", "{\r\n  \"\u00E9\": 1 /* x */\r\n}", notJSON("line 2, column 10")},
      {"a comma too many", "claude", "\xEF\xBB\xBF{\"a\": 1,}", notJSON("line 1, column 9")},
      {"a text cut short", "claude", "{\"mcpServers\": {\"ke", notJSON("line 1, column 20")},
      {"bytes that are not UTF-8", "claude", "{\"a\": \"\xFF\"}", notJSON("line 1, column 8")},
      {"TOML where JSON belongs", "claude", "a = 1\n", notJSON("line 1, column 1")},
      {"a key twice", "codex", "a = 1\na = 2\n",
       notTOML("line 2, column 5", "Error while parsing key-value pair: cannot redefine existing integer 'a'")},
      {"JSON where TOML belongs", "codex", "{}\n",
       notTOML("line 1, column 1",
               "Error while parsing root table: expected keys, tables, whitespace or comments, saw '{'")},
      {"our table twice", "codex", codexLines() + codexLines(),
       notTOML("line 4, column 1",
               "Error while parsing table header: cannot redefine existing table 'mcp_servers.kelvane'")},
      entryAt("2", "a quoted name", "a = 1\n[mcp_servers.\"kelvane\"]\ncommand = \"/old\"\n"),
      entryAt("1", "dotted keys", "mcp_servers.kelvane.command = \"/old\"\n"),
      entryAt("2", "dotted keys in the table of servers", "[mcp_servers]\nkelvane.command = \"/old\"\n"),
      entryAt("2", "an inline table", "[mcp_servers]\nkelvane = { command = \"/old\" }\n"),
      entryAt("1", "an inline table of servers", "mcp_servers = { kelvane = { command = \"/old\" } }\n"),
      entryAt("1", "a header with a comment", "[mcp_servers.kelvane] # mine\ncommand = \"/old\"\n"),
      entryAt("2", "line breaks of both kinds around our table",
              "a = 1\n[mcp_servers.kelvane]\r\ncommand = \"/old\"\r\n"),
      {"our lines in the middle of a value", "codex", "a = \"\"\"\n[mcp_servers.kelvane]\n\"\"\"\n", inTheWay,
       inTheWayOfRemoving},
      {"our lines and another header in the middle of a value", "codex",
       "a = \"\"\"\n[mcp_servers.kelvane]\nx\n[y]\n\"\"\"\n", changesMore},
  };
  for (const RefusalCase& row : cases) {
    SCOPED_TRACE(row.description);
    const ClientHome home;
    const bool isClaude = row.client == std::string("claude");
    const std::string name = isClaude ? ".claude.json" : ".codex/config.toml";
    home.put(name, row.text);
    const auto census = home.census();
    const std::string sentences = home.quoted(name) + ": " + row.sentences;
    const std::string withLines = refused(sentences, isClaude ? claudeLines() : codexLines());
    for (const Words& option : {Words{}, Words{"--dry-run"}}) {
      Words words = {"connect", row.client};
      words.insert(words.end(), option.begin(), option.end());
      EXPECT_EQ(home.kelvane(words), (Outcome{1, "", withLines}));
      words.front() = "disconnect";
      EXPECT_EQ(home.kelvane(words), (Outcome{1, "", home.quoted(name) + ": " + row.disconnecting + '\n'}));
    }
    EXPECT_EQ(home.census(), census);
  }
}

TEST(ConnectRefusals, onlyConnectingIsRefusedWhereThereIsNoEntryOfOurs) {
  for (const char* text : {"mcp_servers = { b = { command = \"x\" } }\n", "mcp_servers = \"none\"\n"}) {
    const ClientHome home;
    home.put(".codex/config.toml", text);
    const auto census = home.census();
    EXPECT_EQ(home.kelvane({"connect", "codex"}),
              (Outcome{1, "", refused(home.quoted(".codex/config.toml") + ": " + inTheWay, codexLines())}));
    EXPECT_EQ(home.kelvane({"disconnect", "codex"}), (Outcome{0, home.notConnected(".codex/config.toml"), ""}));
    EXPECT_EQ(home.census(), census);
  }
}

TEST(ConnectUsage, thatIsWrongIsStatusTwoAndASentence) {
  const struct {
    Words words;
    std::string sentences;
  } cases[] = {
      {{"connect"}, "Say which AI client: kelvane connect claude, or codex."},
      {{"disconnect"}, "Say which AI client: kelvane disconnect claude, or codex."},
      {{"connect", "--dry-run"}, "Say which AI client: kelvane connect claude, or codex."},
      {{"connect", "cladue"},
       "\"cladue\" is not a known AI client. Did you mean \"claude\"? The clients are claude and codex."},
      {{"disconnect", "codx"},
       "\"codx\" is not a known AI client. Did you mean \"codex\"? The clients are claude and codex."},
      {{"connect", "editor"}, "\"editor\" is not a known AI client. The clients are claude and codex."},
      {{"connect", "Claude"},
       "\"Claude\" is not a known AI client. Did you mean \"claude\"? The clients are claude and codex."},
      {{"connect", "claude", "codex"}, "\"kelvane connect\" does not take \"codex\". Run: kelvane connect --help"},
      {{"connect", "claude", "--dryrun"},
       "\"kelvane connect\" has no option \"--dryrun\". Did you mean \"--dry-run\"?"},
      {{"disconnect", "claude", "--library", "x"},
       "\"kelvane disconnect\" has no option \"--library\". Run: kelvane disconnect --help"},
      {{"connect", "claude", "--config"}, "--config needs a file: --config FILE."},
      {{"connect", "claude", "--config="}, "--config needs a file: --config FILE."},
      {{"connect", "claude", "--config", ""}, "--config needs a file: --config FILE."},
      {{"connect", "claude", "--config", "a", "--config", "b"}, "--config is given twice. Give it once."},
      {{"connect", "claude", "--dry-run=no"}, "--dry-run takes no value. Leave out \"=no\"."},
  };
  const ClientHome home;
  const auto census = home.census();
  for (const auto& row : cases) {
    EXPECT_EQ(home.kelvane(row.words), (Outcome{2, "", row.sentences + '\n'})) << testing::PrintToString(row.words);
  }
  EXPECT_EQ(home.census(), census);
}

}  // namespace
}  // namespace kelvane::tests
