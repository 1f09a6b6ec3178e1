#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/end-to-end/ClientHome.h"

namespace kelvane::tests {
namespace {

/// What a client's file goes through when it is connected and disconnected again. "/bin/k" stands for the program.
struct ShapeCase {
  const char* description;
  std::optional<std::string> before;
  std::string connected;
  std::string disconnected;
  std::vector<std::string> dropped = {};  // by connecting
};

#define ENTRY R"({"args":[],"command":"/bin/k"})"
#define SECTION "[mcp_servers.kelvane]\nargs = []\ncommand = \"/bin/k\"\n"
#define BYTE_ORDER_MARK "\xEF\xBB\xBF"

std::string inCRLF(std::string_view text) {
  std::string result;
  for (const char byte : text) result.append(byte == '\n' ? "\r\n" : std::string(1, byte));
  return result;
}

const std::string codexFile = ".codex/config.toml";

void goThrough(const ShapeCase& row, const std::string& client, const std::string& title, const std::string& name) {
  SCOPED_TRACE(client + ": " + row.description);
  const ClientHome home;
  if (row.before) {
    home.put(name, *row.before);
    std::filesystem::permissions(home / name, std::filesystem::perms(0640));
  }
  const std::string copy = name + ".before-kelvane";
  const std::string connected = withProgram(row.connected);

  EXPECT_EQ(
      home.kelvane({"connect", client}),
      (Outcome{0, home.connected(title, name) + (row.before ? home.keptBeside(name) : "") + droppedLines(row.dropped),
               ""}));
  EXPECT_EQ(home.bytes(name), connected);
  EXPECT_EQ(home.mode(name), row.before ? 0640U : 0600U);
  ASSERT_EQ(std::filesystem::exists(home / copy), row.before.has_value());
  if (row.before) {
    EXPECT_EQ(home.bytes(copy), *row.before);
    EXPECT_EQ(home.mode(copy), 0600U);
  }

  const auto census = home.census();
  EXPECT_EQ(home.kelvane({"connect", client}), (Outcome{0, home.connectedAlready(name), ""}));
  EXPECT_EQ(home.census(), census);

  EXPECT_EQ(home.kelvane({"disconnect", client}),
            (Outcome{0, home.disconnected(title, name) + home.keptBeside(name, row.before ? 2 : 1), ""}));
  EXPECT_EQ(home.bytes(name), row.disconnected);
  const std::string later = row.before ? copy + "-2" : copy;
  EXPECT_EQ(home.bytes(later), connected);
  EXPECT_EQ(home.mode(name), row.before ? 0640U : 0600U);
  EXPECT_EQ(home.mode(later), 0600U);
  if (row.before) {
    EXPECT_EQ(home.bytes(copy), *row.before);
  }

  const auto afterwards = home.census();
  EXPECT_EQ(home.kelvane({"disconnect", client}), (Outcome{0, home.notConnected(name), ""}));
  EXPECT_EQ(home.census(), afterwards);
}

TEST(Connect, putsItsEntryIntoAJSONFileOfEveryShapeAndTakesItOutAgain) {
  const std::string lines = claudeLines("/bin/k");
  const std::string noServers = "{\n  \"mcpServers\": {}\n}\n";
  const ShapeCase cases[] = {
      {"missing", std::nullopt, lines, noServers},
      {"empty", "", lines, noServers},
      {"blanks", "\n\n", lines, noServers},
      {"an empty object", "{}\n", lines, noServers},
      {"an array", "[1, 2]\n", lines, noServers, {"The file was not an object: [1, 2]"}},
      {"a text", "\"x\"\n", lines, noServers, {"The file was not an object: \"x\""}},
      {"servers that are no object",
       R"({"mcpServers": "none", "a": 1})",
       R"({"mcpServers": {"kelvane": {"args": [], "command": "/bin/k"}}, "a": 1})",
       R"({"mcpServers": {}, "a": 1})",
       {R"("mcpServers" was not an object: "none")"}},
      {"other servers and members, numbers as they are spelled",
       R"({"id":12345678901234567890,"x":1.50e+1,"z":-0,"mcpServers":{"other":{"command":"x\/y"}},"u":"\u0041"})",
       R"({"id":12345678901234567890,"x":1.50e+1,"z":-0,"mcpServers":{"other":{"command":"x\/y"},"kelvane":)" ENTRY
       R"(},"u":"\u0041"})",
       R"({"id":12345678901234567890,"x":1.50e+1,"z":-0,"mcpServers":{"other":{"command":"x\/y"}},"u":"\u0041"})"},
      {"laid out in its own way", "{\n\t\"a\" :  1 ,\n\n\t\"mcpServers\": {\n\t\t\"b\": {}\n\t}\n}\n",
       "{\n\t\"a\" :  1 ,\n\n\t\"mcpServers\": {\n\t\t\"b\": {},\n\t\t\"kelvane\": {\n\t\t\t\"args\" :  "
       "[],\n\t\t\t\"command\" :  \"/bin/k\"\n\t\t}\n\t}\n}\n",
       "{\n\t\"a\" :  1 ,\n\n\t\"mcpServers\": {\n\t\t\"b\": {}\n\t}\n}\n"},
      {"CR LF", inCRLF("{\n  \"a\": 1,\n  \"mcpServers\": {}\n}\n"),
       inCRLF("{\n  \"a\": 1,\n  \"mcpServers\": {\n    \"kelvane\": {\n      \"args\": [],\n      \"command\": "
              "\"/bin/k\"\n    }\n  }\n}\n"),
       inCRLF("{\n  \"a\": 1,\n  \"mcpServers\": {}\n}\n")},
      {"a byte-order mark", BYTE_ORDER_MARK R"({"mcpServers":{}})",
       BYTE_ORDER_MARK R"({"mcpServers":{"kelvane":)" ENTRY "}}", BYTE_ORDER_MARK R"({"mcpServers":{}})"},
      {"a byte-order mark alone", BYTE_ORDER_MARK, BYTE_ORDER_MARK + lines, BYTE_ORDER_MARK + noServers},
      {"another command, with more beside it",
       R"({"mcpServers":{"kelvane":{"command":"/old","args":["--x"],"env":{"TOKEN":"s"},"type":"stdio"},"b":{}}})",
       R"({"mcpServers":{"kelvane":)" ENTRY R"(,"b":{}}})",
       R"({"mcpServers":{"b":{}}})",
       {R"(The entry had "args": ["--x"])", R"(The entry had "env": {"TOKEN":"s"})",
        R"(The entry had "type": "stdio")"}},
      {"an entry that is no object",
       R"({"mcpServers":{"kelvane":null}})",
       R"({"mcpServers":{"kelvane":)" ENTRY "}}",
       R"({"mcpServers":{}})",
       {"The entry was not an object: null"}},
      {"equal tables of servers, of which the last counts", R"({"mcpServers":{"kelvane":1},"mcpServers":{"b":{}}})",
       R"({"mcpServers":{"kelvane":1},"mcpServers":{"b":{},"kelvane":)" ENTRY "}}",
       R"({"mcpServers":{"kelvane":1},"mcpServers":{"b":{}}})"},
  };
  for (const ShapeCase& row : cases) goThrough(row, "claude", "Claude", claudeFile);
}

TEST(Connect, putsItsTableIntoATOMLFileOfEveryShapeAndTakesItOutAgain) {
  const ShapeCase cases[] = {
      {"missing", std::nullopt, SECTION, ""},
      {"empty", "", SECTION, ""},
      {"blank lines", "\n\n", SECTION, ""},
      {"other keys, comments, numbers as they are spelled", "# mine\nn = 1_000 # note\nf = +1.50\n\n[t]\nx = 0xFF\n",
       "# mine\nn = 1_000 # note\nf = +1.50\n\n[t]\nx = 0xFF\n\n" SECTION,
       "# mine\nn = 1_000 # note\nf = +1.50\n\n[t]\nx = 0xFF"},
      {"another server", "[mcp_servers.b]\ncommand = \"x\"\n", "[mcp_servers.b]\ncommand = \"x\"\n\n" SECTION,
       "[mcp_servers.b]\ncommand = \"x\""},
      {"CR LF", inCRLF("a = 1\n[b]\n"), inCRLF("a = 1\n[b]\n\n" SECTION), inCRLF("a = 1\n[b]")},
      {"CR LF with a table of ours", inCRLF("a = 1\n[mcp_servers.kelvane]\ncommand = \"/old\"\n\n[b]\nc = 1\n"),
       inCRLF("a = 1\n[b]\nc = 1\n\n" SECTION), inCRLF("a = 1\n[b]\nc = 1")},
      {"line breaks of both kinds, where it can be proven", "a = 1\r\nb = 2\n", "a = 1\r\nb = 2\n\n" SECTION,
       "a = 1\r\nb = 2"},
      {"a byte-order mark", BYTE_ORDER_MARK "a = 1\n", BYTE_ORDER_MARK "a = 1\n\n" SECTION, BYTE_ORDER_MARK "a = 1"},
      {"another command, with more below it",
       "[mcp_servers.kelvane]\n# why\ncommand = \"/old\"\nargs = [\"-v\"]\n[mcp_servers.kelvane.env]\nT = \"s\"\n# "
       "about b\n[b]\n",
       "[b]\n\n" SECTION,
       "[b]",
       {"# why", "args = [\"-v\"]", "[mcp_servers.kelvane.env]", "T = \"s\"", "# about b"}},
  };
  for (const ShapeCase& row : cases) goThrough(row, "codex", "Codex", codexFile);
}

TEST(Connect, saysWhatTakingOutDropsToo) {
  const ClientHome home;
  home.put(claudeFile, R"({"mcpServers":{"kelvane":{"command":"/old","env":{"TOKEN":"s"}}}})");
  EXPECT_EQ(home.kelvane({"disconnect", "claude"}),
            (Outcome{0,
                     home.disconnected("Claude", claudeFile) + home.keptBeside(claudeFile) +
                         droppedLines({R"(The entry had "env": {"TOKEN":"s"})"}),
                     ""}));
  EXPECT_EQ(home.bytes(claudeFile), R"({"mcpServers":{}})");
  home.put(codexFile, SECTION "startup_timeout_sec = 20\n");
  EXPECT_EQ(home.kelvane({"disconnect", "codex"}),
            (Outcome{0,
                     home.disconnected("Codex", codexFile) + home.keptBeside(codexFile) +
                         droppedLines({"startup_timeout_sec = 20"}),
                     ""}));
  EXPECT_EQ(home.bytes(codexFile), "");
}

TEST(Connect, showsWhatItWouldChangeAndWritesNothing) {
  const std::string lines = withProgram(R"(+  "mcpServers": {
+    "kelvane": {
+      "args": [],
+      "command": "/bin/k"
+    }
+  }
)");
  const struct {
    const char* description;
    std::vector<std::string> words;
    std::string file;
    std::optional<std::string> text;
    std::string shown;
  } cases[] = {
      {"a missing file", {"connect", "claude"}, claudeFile, std::nullopt, "@@ line 1 @@\n+{\n" + lines + "+}\n"},
      {"a folder that is missing too",
       {"connect", "codex"},
       codexFile,
       std::nullopt,
       withProgram("@@ line 1 @@\n+[mcp_servers.kelvane]\n+args = []\n+command = \"/bin/k\"\n")},
      {"a member more",
       {"connect", "claude"},
       claudeFile,
       "{\n  \"a\": 1\n}\n",
       "@@ line 1 @@\n {\n-  \"a\": 1\n+  \"a\": 1,\n" + lines + " }\n"},
      {"an entry less",
       {"disconnect", "claude"},
       claudeFile,
       "{\"mcpServers\": {\n  \"kelvane\": {\"env\": {}}\n}}",
       "@@ line 1 @@\n-{\"mcpServers\": {\n-  \"kelvane\": {\"env\": {}}\n-}}\n\\ No line break at the end\n"
       "+{\"mcpServers\": {}}\n\\ No line break at the end\n" +
           droppedLines({"The entry had \"env\": {}"})},
      {"a table less",
       {"disconnect", "codex"},
       codexFile,
       withProgram("a = 1\n\n" SECTION),
       withProgram("@@ line 1 @@\n-a = 1\n-\n-[mcp_servers.kelvane]\n-args = []\n-command = \"/bin/k\"\n+a = 1\n"
                   "\\ No line break at the end\n")},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.description);
    const ClientHome home;
    if (row.text) home.put(row.file, *row.text);
    const auto census = home.census();
    std::vector<std::string> words = row.words;
    words.emplace_back("--dry-run");
    EXPECT_EQ(home.kelvane(words), (Outcome{0, home.wouldChange(row.file) + row.shown, ""}));
    EXPECT_EQ(home.census(), census);
  }
}

TEST(Connect, showsThatNothingWouldChange) {
  const ClientHome home;
  for (const char* client : {"claude", "codex"}) {
    const std::string name = client == std::string("claude") ? claudeFile : codexFile;
    const auto before = home.census();
    for (const auto& words :
         std::vector<std::vector<std::string>>{{"disconnect", client}, {"disconnect", client, "--dry-run"}}) {
      EXPECT_EQ(home.kelvane(words), (Outcome{0, home.notConnected(name), ""}));
    }
    EXPECT_EQ(home.census(), before);
    home.kelvane({"connect", client});
    const auto connected = home.census();
    EXPECT_EQ(home.kelvane({"connect", client, "--dry-run"}), (Outcome{0, home.connectedAlready(name), ""}));
    EXPECT_EQ(home.census(), connected);
  }
}

}  // namespace
}  // namespace kelvane::tests
