#include "program/configuration/CodexConfigFile.h"

#include <gtest/gtest.h>

#include <functional>

#include "host/CodexConfig.h"

namespace kelvane {
namespace {

using Dropped = std::vector<std::string>;

#define SECTION "[mcp_servers.kelvane]\nargs = []\ncommand = \"/bin/k\"\n"
#define OTHER "[mcp_servers.other]\ncommand = \"x\"\n"

std::string refusal(const std::function<void()>& body) {
  try {
    body();
  } catch (const ConfigRefused& error) {
    return error.what();
  }
  return "not refused";
}

std::string inCRLF(std::string_view text) {
  std::string result;
  for (const char byte : text) result.append(byte == '\n' ? "\r\n" : std::string(1, byte));
  return result;
}

struct EditCase {
  const char* description;
  std::string before;
  std::string after;
  Dropped dropped;
};

TEST(CodexConfigFile, addsTheTableAsTheConfigurationDoes) {
  const EditCase cases[] = {
      {"no file", "", SECTION, {}},
      {"blank lines", "\n\n", SECTION, {}},
      {"other keys, numbers as they are spelled",
       "n = 1_000\nf = nan # x\n[t]\nd = 1979-05-27T07:32:00Z\n",
       "n = 1_000\nf = nan # x\n[t]\nd = 1979-05-27T07:32:00Z\n\n" SECTION,
       {}},
      {"another server", OTHER, OTHER "\n" SECTION, {}},
      {"the table already", "a = 1\n\n" SECTION, "a = 1\n\n" SECTION, {}},
      {"the table for another command", "[mcp_servers.kelvane]\nargs = []\ncommand = \"/old\"\n", SECTION, {}},
      {"a table in the middle", "a = 1\n\n" SECTION "\n" OTHER, "a = 1\n\n" OTHER "\n" SECTION, {}},
      {"more in the table",
       "[mcp_servers.kelvane]\n# about it\ncommand = \"/old\" # note\nargs = [\"-v\"]\n\n[mcp_servers.kelvane.env]\nT "
       "= "
       "\"x\"\n# about other\n" OTHER,
       OTHER "\n" SECTION,
       {"# about it", "command = \"/old\" # note", "args = [\"-v\"]", "[mcp_servers.kelvane.env]", "T = \"x\"",
        "# about other"}},
      {"CR LF", inCRLF("a = 1\n" SECTION OTHER), inCRLF("a = 1\n" OTHER "\n" SECTION), {}},
      {"CR LF without a last line break", "a = 1\r\nb = 2", inCRLF("a = 1\nb = 2\n\n" SECTION), {}},
      {"CR LF in a text of several lines",
       inCRLF("a = \"\"\"x\ny\"\"\"\n"),
       inCRLF("a = \"\"\"x\ny\"\"\"\n\n" SECTION),
       {}},
      {"a letter outside ASCII behind a folded line",
       "a = \"\"\"x \\\n \u00E9\"\"\"\n",
       "a = \"\"\"x \\\n \u00E9\"\"\"\n\n" SECTION,
       {}},
      {"line breaks of both kinds, where it can be proven", "a = 1\r\nb = 2\n", "a = 1\r\nb = 2\n\n" SECTION, {}},
      {"a byte-order mark",
       "\xEF\xBB\xBF"
       "a = 1\n",
       "\xEF\xBB\xBF"
       "a = 1\n\n" SECTION,
       {}},
      {"a table right behind a byte-order mark", "\xEF\xBB\xBF" SECTION OTHER, "\xEF\xBB\xBF" OTHER "\n" SECTION, {}},
      {"a table below dotted keys",
       "mcp_servers.other.command = \"x\"\n",
       "mcp_servers.other.command = \"x\"\n\n" SECTION,
       {}},
      {"the needle in a comment", "# command = \"/bin/k\"\n", "# command = \"/bin/k\"\n\n" SECTION, {}},
      {"line breaks, comments and a last comma in an inline table",
       "p = {\n  a = 1, # one\n  b = [\n  ],\n}\n",
       "p = {\n  a = 1, # one\n  b = [\n  ],\n}\n\n" SECTION,
       {}},
      {"another server as an inline table of several lines",
       "mcp_servers.other = {\r\n  command = \"x\",\r\n}\r\n",
       "mcp_servers.other = {\r\n  command = \"x\",\r\n}\r\n" + inCRLF("\n" SECTION),
       {}},
      {"escapes by \\e and \\x",
       "a = \"\\e[0m\\x41\\xe9\"\nb = \"\"\"\\x00\"\"\"\n",
       "a = \"\\e[0m\\x41\\xe9\"\nb = \"\"\"\\x00\"\"\"\n\n" SECTION,
       {}},
      {"times without seconds",
       "a = 07:32\nb = 1979-05-27 07:32Z\n",
       "a = 07:32\nb = 1979-05-27 07:32Z\n\n" SECTION,
       {}},
      {"our table with what TOML 1.1 has",
       "[mcp_servers.kelvane]\ncommand = \"\\x2Fold\"\nenv = {\n  A = \"\\e\",\n}\n[z]\n",
       "[z]\n\n" SECTION,
       {"command = \"\\x2Fold\"", "env = {", "  A = \"\\e\",", "}"}},
      {"an entry of that name elsewhere", "[tools.kelvane]\na = 1\n", "[tools.kelvane]\na = 1\n\n" SECTION, {}},
  };
  for (const EditCase& row : cases) {
    SCOPED_TRACE(row.description);
    const ConfigEdit edit = CodexConfigFile::adding("/bin/k", row.before);
    EXPECT_EQ(edit.text, row.after);
    EXPECT_EQ(edit.dropped, row.dropped);
    EXPECT_EQ(CodexConfigFile::command(edit.text), "/bin/k");
    EXPECT_EQ(CodexConfigFile::adding("/bin/k", edit.text), (ConfigEdit{edit.text, {}}));
    if (row.before.find('\r') == std::string::npos && row.before.find('\xEF') == std::string::npos) {
      EXPECT_EQ(edit.text, CodexConfig::adding("/bin/k", row.before));
    }
  }
}

TEST(CodexConfigFile, removesTheTableAsTheConfigurationDoes) {
  const EditCase cases[] = {
      {"no file", "", "", {}},
      {"nothing of ours, line breaks and all", "a = 1\n\n\n", "a = 1\n\n\n", {}},
      {"nothing of ours in CR LF", "a = 1\r\n", "a = 1\r\n", {}},
      {"only the table", SECTION, "", {}},
      {"the last table", "a = 1\n\n" SECTION, "a = 1", {}},
      {"a table in the middle", OTHER "\n" SECTION "\n[z]\n", OTHER "\n[z]", {}},
      {"the table and what is below it",
       SECTION "\n[mcp_servers.kelvane.env]\nT = \"x\"\n",
       "",
       {"[mcp_servers.kelvane.env]", "T = \"x\""}},
      {"only a table below it",
       "a = 1\n[mcp_servers.kelvane.env]\nT = \"x\"\n",
       "a = 1",
       {"[mcp_servers.kelvane.env]", "T = \"x\""}},
      {"a comment above the next table", SECTION "# about z\n[z]\n", "[z]", {"# about z"}},
      {"CR LF", inCRLF("a = 1\n\n" SECTION "\n[z]\nb = 2\n"), inCRLF("a = 1\n\n[z]\nb = 2"), {}},
      {"a byte-order mark", "\xEF\xBB\xBF" SECTION "[z]", "\xEF\xBB\xBF[z]", {}},
  };
  for (const EditCase& row : cases) {
    SCOPED_TRACE(row.description);
    const ConfigEdit edit = CodexConfigFile::removing(row.before);
    EXPECT_EQ(edit.text, row.after);
    EXPECT_EQ(edit.dropped, row.dropped);
    EXPECT_EQ(CodexConfigFile::command(edit.text), std::nullopt);
    EXPECT_EQ(CodexConfigFile::removing(edit.text), (ConfigEdit{edit.text, {}}));
  }
}

TEST(CodexConfigFile, refusesATextThatIsNotTOMLAndSaysWhere) {
  const struct {
    const char* description;
    std::string text;
    const char* place;
  } cases[] = {
      {"no value", "a = 1\nb =\n", "line 2, column 4"},
      {"a key twice", "a = 1\n  a = 2\n", "line 2, column 7"},
      {"a table twice", "[t]\n[u]\n[t]\n", "line 3, column 1"},
      {"an open text", "a = \"x\n", "line 1, column 7"},
      {"a lone CR", "a = 1\rb = 2", "line 1, column 7"},
      {"JSON", "{\"mcpServers\": {}}", "line 1, column 1"},
      {"our table twice", SECTION SECTION, "line 4, column 1"},
      {"a comma first in an inline table", "a = {\n  ,\n}\n", "line 2, column 3"},
      {"two last commas in an inline table", "a = {\n  b = 1,\n  ,\n}\n", "line 3, column 3"},
      {"a line break between a key and its value", "a = {\n  b =\n  1\n}\n", "line 2, column 6"},
      {"an inline table that stays open", "a = {\n  b = 1,\n", "line 2, column 10"},
      {"an escape by \\x with one digit", "a = \"\\x4\"\n", "line 1, column 9"},
      {"an escape by a capital", "a = \"\\E\"\n", "line 1, column 7"},
      {"a bare key with a plus", "a = 1\nb+ = 2\n", "line 2, column 2"},
      {"a bare key outside ASCII", "a = 1\n\u00E9 = 2\n", "line 2, column 1"},
      {"a hexadecimal fraction", "a = 1\nb = [1.5, { c.d = -0x1.8p3 }]\n", "line 2, column 19"},
      {"a hexadecimal number with an exponent", "a = 0x1p4\n", "line 1, column 5"},
  };
  for (const auto& row : cases) {
    for (const std::string& sentences : {refusal([&] { CodexConfigFile::adding("/bin/k", row.text); }),
                                         refusal([&] { CodexConfigFile::removing(row.text); }),
                                         refusal([&] { CodexConfigFile::command(row.text); })}) {
      EXPECT_EQ(sentences.rfind("The file is not valid TOML at " + std::string(row.place) + " (", 0), 0U)
          << row.description << ": " << sentences;
      EXPECT_TRUE(sentences.ends_with("). The file is unchanged. Fix it there and try again.")) << sentences;
    }
  }
  EXPECT_EQ(
      refusal([] { CodexConfigFile::adding("/bin/k", "a = \"\xFF\"\n"); }).rfind("The file is not valid TOML at ", 0),
      0U);
}

TEST(CodexConfigFile, findsTheEntryInAFormThatIsNotOursAndLeavesIt) {
  const struct {
    const char* description;
    std::string text;
    int line;
  } cases[] = {
      {"a quoted name", "a = 1\n[mcp_servers.\"kelvane\"]\ncommand = \"/old\"\n", 2},
      {"single quotes", "[mcp_servers.'kelvane']\ncommand = \"/old\"\n", 1},
      {"blanks in the header", "[ mcp_servers . kelvane ]\ncommand = \"/old\"\n", 1},
      {"a comment behind the header", "\n\n[mcp_servers.kelvane] # mine\ncommand = \"/old\"\n", 3},
      {"dotted keys", "mcp_servers.kelvane.command = \"/old\"\n", 1},
      {"dotted keys in the table of servers", "[mcp_servers]\nkelvane.command = \"/old\"\n", 2},
      {"an inline table", "[mcp_servers]\nother = {}\nkelvane = { command = \"/old\" }\n", 3},
      {"an inline table of servers", "mcp_servers = { kelvane = { command = \"/old\" } }\n", 1},
      {"an inline table of several lines",
       "mcp_servers = {\n  other = {},\n  kelvane = {\n    command = \"/old\",\n  },\n}\n", 3},
      {"an entry that is no table", "[mcp_servers]\nkelvane = \"/old\"\n", 2},
      {"an array of tables", "[[mcp_servers.kelvane]]\ncommand = \"/old\"\n", 1},
      {"ours in CR LF among LF", "a = 1\n[mcp_servers.kelvane]\r\ncommand = \"/old\"\r\n", 2},
      {"a quoted name with our table below it",
       "[mcp_servers.\"kelvane\"]\ncommand = \"/old\"\n[mcp_servers.kelvane.env]\nT = \"x\"\n", 1},
  };
  for (const auto& row : cases) {
    const std::string sentence = "The file registers \"kelvane\" at line " + std::to_string(row.line) +
                                 " in another form than ours: dotted keys, an inline table, a header with quotes, "
                                 "spaces or a comment, or mixed line endings. ";
    EXPECT_EQ(refusal([&] { CodexConfigFile::adding("/bin/k", row.text); }),
              sentence +
                  "A second entry would keep the client from starting, so the file is unchanged. Remove that entry by "
                  "hand and try again.")
        << row.description;
    EXPECT_EQ(refusal([&] { CodexConfigFile::removing(row.text); }),
              sentence + "The file is unchanged. Remove that entry by hand.")
        << row.description;
  }
}

TEST(CodexConfigFile, refusesAnEditThatWouldBreakTheFile) {
  const struct {
    const char* description;
    std::string text;
    bool removes;  // there is something of ours, or so it looks
  } cases[] = {
      {"an array in our table with a line that looks like a header", "[mcp_servers.kelvane]\nargs = [\n[\"x\"],\n]\n",
       true},
      {"an inline table with a line that looks like ours", "a = {\n  b = '''\n" SECTION "''',\n}\n", true},
      {"a text with a line that looks like ours", "a = \"\"\"\n" SECTION "\"\"\"\n", true},
      {"a table of servers that takes no others", "mcp_servers = { other = { command = \"x\" } }\n", false},
      {"servers that are an array", "mcp_servers = [1]\n", false},
      {"servers that are a text", "mcp_servers = \"none\"\n", false},
  };
  const std::string sentences =
      "With our lines changed, the file would no longer be valid TOML: they are inside a value, or the table of "
      "servers is in a form that takes no other server. The file is unchanged. Edit it by hand.";
  for (const auto& row : cases) {
    EXPECT_EQ(refusal([&] { CodexConfigFile::adding("/bin/k", row.text); }), sentences) << row.description;
    if (row.removes) {
      EXPECT_EQ(refusal([&] { CodexConfigFile::removing(row.text); }),
                "With our lines removed, the file would no longer be valid TOML: they are inside a value. The file is "
                "unchanged. Remove them by hand.")
          << row.description;
    } else {
      EXPECT_EQ(CodexConfigFile::removing(row.text).text, row.text) << row.description;
    }
  }
}

TEST(CodexConfigFile, refusesAnEditThatWouldChangeMoreThanOurEntry) {
  const std::string sentences =
      "Changing our entry would change other parts of the file too. The file is unchanged. Edit it by hand.";
  // The lines that look like ours end with a header inside the text, so what is left is TOML and says something else.
  const std::string text = "a = \"\"\"\n[mcp_servers.kelvane]\nx\n[y]\n\"\"\"\n";
  EXPECT_EQ(refusal([&] { CodexConfigFile::adding("/bin/k", text); }), sentences);
  EXPECT_EQ(refusal([&] { CodexConfigFile::removing(text); }), sentences);
  // The new table becomes part of the last server of an array.
  EXPECT_EQ(refusal([&] { CodexConfigFile::adding("/bin/k", "[[mcp_servers]]\na = 1\n"); }), sentences);
}

TEST(CodexConfigFile, refusesACommandThatCannotStandForItself) {
  for (const std::string command : {"/a\"b", "/a\\b", "/a\nb", "/a\tb", "/a\x01", "/a\x7F"}) {
    EXPECT_EQ(refusal([&] { CodexConfigFile::adding(command, ""); }),
              "The path of this program contains a quote, a backslash or a control character, which must be escaped in "
              "this file. Move the program to another folder, or paste the lines by hand.");
    EXPECT_EQ(CodexConfigFile::command(CodexConfigFile::example(command)), command);
  }
  EXPECT_EQ(refusal([] { CodexConfigFile::adding("/\xFF", ""); }),
            "The path of this program is not UTF-8, so no TOML file can hold it. Move the program to another folder.");
  for (const std::string command : {"/bin/k", "/a b/k", "/caf\u00E9", "/it's", "/#k", "/{[=]}"}) {
    const ConfigEdit edit = CodexConfigFile::adding(command, "a = 1\n");
    EXPECT_EQ(CodexConfigFile::command(edit.text), command);
    EXPECT_EQ(CodexConfigFile::example(command), CodexConfig::adding(command, ""));
  }
}

TEST(CodexConfigFile, findsTheCommandInWhateverForm) {
  for (const char* text :
       {SECTION, "[mcp_servers.\"kelvane\"]\r\ncommand = '/bin/k'\r\n", "mcp_servers.kelvane.command = \"/bin/k\"",
        "[mcp_servers]\nkelvane = {command=\"/bin/k\"}"}) {
    EXPECT_EQ(CodexConfigFile::command(text), "/bin/k") << text;
  }
  for (const char* text : {"", OTHER, "[mcp_servers.kelvane]\n", "[mcp_servers.kelvane]\ncommand = 1\n",
                           "[[mcp_servers]]\nkelvane.command = \"x\"", "mcp_servers = 1"}) {
    EXPECT_EQ(CodexConfigFile::command(text), std::nullopt) << text;
  }
}

TEST(CodexConfigFile, findsWhatElseTheEntrySays) {
  const struct {
    const char* text;
    std::optional<std::string> home;
    bool isSwitchedOff;
  } cases[] = {
      {"", std::nullopt, false},
      {SECTION, std::nullopt, false},
      {SECTION "enabled = true\n", std::nullopt, false},
      {SECTION "enabled = false\n", std::nullopt, true},
      {SECTION "enabled = \"false\"\n", std::nullopt, false},
      {SECTION "enabled = 0\n", std::nullopt, false},
      {SECTION OTHER "enabled = false\n", std::nullopt, false},
      {SECTION "env = { HOME = \"/h\" }\n", "/h", false},
      {SECTION "[mcp_servers.kelvane.env]\nHOME = ''\n", "", false},
      {SECTION "env = { HOME = 1 }\n", std::nullopt, false},
      {SECTION "env = [\"HOME\"]\nenv_vars = [\"HOME\"]\n", std::nullopt, false},
      {SECTION "[mcp_servers.other.env]\nHOME = \"/h\"\n", std::nullopt, false},
      {"mcp_servers.kelvane = { enabled = false, env.HOME = \"/h\" }\n", "/h", true},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(CodexConfigFile::home(row.text), row.home) << row.text;
    EXPECT_EQ(CodexConfigFile::isSwitchedOff(row.text), row.isSwitchedOff) << row.text;
  }
}

TEST(CodexConfigFile, findsTheEntryInTheLinesOfATextThatIsNoTOML) {
  const struct {
    const char* description;
    std::string text;
    bool isNamed;
  } cases[] = {
      {"the lines", SECTION "oops\n", true},
      {"the lines in CR LF", inCRLF(SECTION "oops\n"), true},
      {"another command", "[mcp_servers.kelvane]\ncommand = \"/old\"\noops\n", false},
      {"none", "oops\n", false},
  };
  for (const auto& row : cases) {
    EXPECT_NE(refusal([&] { CodexConfigFile::command(row.text); }), "not refused") << row.description;
    EXPECT_EQ(CodexConfigFile::names("/bin/k", row.text), row.isNamed) << row.description;
  }
}

TEST(CodexConfigFile, doesNotLookThroughWhatIsTooDeep) {
  std::string deep = "a";
  for (int i = 0; i < 10'001; ++i) deep += ".a";
  EXPECT_EQ(refusal([&] { CodexConfigFile::adding("/bin/k", deep + " = 1\n"); }),
            "The file has more than 10000 dots in its keys, too many to check safely. The file is unchanged. Edit it "
            "by hand.");
  EXPECT_NE(refusal([&] { CodexConfigFile::adding("/bin/k", "[" + deep + "]\n"); }), "not refused");
  EXPECT_NE(refusal([&] { CodexConfigFile::adding("/bin/k", "a = [{\n" + deep + " = 1}]\n"); }), "not refused");
  // Our header has one more.
  EXPECT_EQ(
      refusal([&] { CodexConfigFile::adding("/bin/k", deep.substr(2) + " = 1\n"); }),
      "With our lines, the file would have more than 10000 dots in its keys, too many to check safely. The file is "
      "unchanged. Edit it by hand.");
  EXPECT_EQ(CodexConfigFile::command(CodexConfigFile::adding("/bin/k", deep.substr(4) + " = 1\n").text), "/bin/k");
  const std::string bearable = deep.substr(0, deep.size() - 2 * 10) + " = 1\n";
  EXPECT_EQ(CodexConfigFile::command(CodexConfigFile::adding("/bin/k", bearable).text), "/bin/k");
  EXPECT_NE(refusal([] { CodexConfigFile::adding("/bin/k", "a = " + std::string(100'000, '[')); }), "not refused");
}

TEST(CodexConfigFile, takesAnyNumberOfDotsElsewhere) {
  const std::string dots(20'000, '.');
  std::string numbers = "a = [";
  for (int i = 0; i < 20'000; ++i) numbers += "1.5,";
  for (const std::string& text :
       {"# " + dots + "\n", "a = 1 # " + dots + "\n", "a = \"" + dots + "\"\n", "a = '" + dots + "'\n",
        "a = \"\"\"\n" + dots + "\"\"\"\"\n", "a = '''" + dots + "''\n" + dots + "'''\n", "\"" + dots + "\" = 1\n",
        numbers + "]\n"}) {
    EXPECT_EQ(CodexConfigFile::command(CodexConfigFile::adding("/bin/k", text).text), "/bin/k") << text.substr(0, 20);
  }
}

}  // namespace
}  // namespace kelvane
