#include "host/CodexConfig.h"

#include <gtest/gtest.h>

#include "host/ClaudeConfig.h"

namespace kelvane {
namespace {

struct TextCase {
  const char* description;
  std::string before;
  std::string after;
};

#define HEADER "[mcp_servers.kelvane]"
#define SECTION HEADER "\nargs = []\ncommand = \"/bin/k\"\n"
#define OTHER "[mcp_servers.other]\ncommand = \"x\""

TEST(CodexConfig, addsItsTableAtTheEnd) {
  const TextCase cases[] = {
      {"an empty text", "", SECTION},
      {"only line breaks", "\n\n\n", SECTION},
      {"one line", "a = 1", "a = 1\n\n" SECTION},
      {"one line and its break", "a = 1\n", "a = 1\n\n" SECTION},
      {"line breaks at the end become one empty line", "a = 1\n\n\n", "a = 1\n\n" SECTION},
      {"spaces at the end are a line that stays", "a = 1\n \n", "a = 1\n \n\n" SECTION},
      {"the same table already", SECTION, SECTION},
      {"the same table for another command", HEADER "\nargs = []\ncommand = \"/old\"\n", SECTION},
      {"a table in the middle moves to the end", "a = 1\n\n" HEADER "\ncommand = \"/old\"\n\n" OTHER "\n",
       "a = 1\n\n" OTHER "\n\n" SECTION},
      {"a table at the start moves to the end", HEADER "\ncommand = \"/old\"\n\n" OTHER, OTHER "\n\n" SECTION},
      {"its sub-tables go", HEADER "\n[mcp_servers.kelvane.env]\nK = \"v\"\n" OTHER, OTHER "\n\n" SECTION},
      {"several tables become one", HEADER "\na = 1\n" OTHER "\n" HEADER "\nb = 1\n", OTHER "\n\n" SECTION},
      {"another's lines in CR LF", "a = 1\r\nb = 2\r\n", "a = 1\r\nb = 2\r\n\n\n" SECTION},
      {"bytes that are not UTF-8", "a = \"\xFF\xC3\"\n# \xE2\x82", "a = \"\xFF\xC3\"\n# \xE2\x82\n\n" SECTION},
  };
  for (const TextCase& row : cases) {
    EXPECT_EQ(CodexConfig::adding("/bin/k", row.before), row.after) << row.description;
    EXPECT_EQ(CodexConfig::adding("/bin/k", row.after), row.after) << row.description;
    EXPECT_TRUE(CodexConfig::names("/bin/k", row.after)) << row.description;
  }
}

TEST(CodexConfig, writesTheCommandUnescaped) {
  const std::string commands[] = {"", " /a b/k ", R"(C:\k "x".exe)", "~/$HOME/k", "/caf\u00E9", std::string("a\0b", 3)};
  for (const std::string& command : commands) {
    const std::string text = CodexConfig::adding(command, "");
    EXPECT_EQ(text, HEADER "\nargs = []\ncommand = \"" + command + "\"\n");
    EXPECT_TRUE(CodexConfig::names(command, text));
    EXPECT_FALSE(CodexConfig::names(command + "x", text));
    EXPECT_EQ(CodexConfig::adding(command, text), text);
  }
}

TEST(CodexConfig, removesItsTablesAndTheLineBreaksAtTheEnd) {
  const TextCase cases[] = {
      {"an empty text", "", ""},
      {"only line breaks", "\n\n", ""},
      {"only the table", SECTION, ""},
      {"only a sub-table", "[mcp_servers.kelvane.env]\nK = 1\n", ""},
      {"no table", "a = 1\n" OTHER "\n\n\n", "a = 1\n" OTHER},
      {"no table and no line break", "a = 1", "a = 1"},
      {"everything to the end", "a = 1\n" HEADER "\nb = 2\n\n# end\nc = 3", "a = 1"},
      {"up to the next header", HEADER "\nb = 2\n" OTHER "\n", OTHER},
      {"empty lines before it stay", "a = 1\n\n\n" HEADER "\nb = 2\n" OTHER, "a = 1\n\n\n" OTHER},
      {"empty lines inside it go", "a = 1\n" HEADER "\n\nb = 2\n\n\n" OTHER, "a = 1\n" OTHER},
      {"empty lines between the rest stay", "a = 1\n\n\n[t]\n\n" HEADER "\nb = 2\n[u]\n\n\n[v]",
       "a = 1\n\n\n[t]\n\n[u]\n\n\n[v]"},
      {"empty lines before a table at the end go", "a = 1\n\n\n" HEADER "\nb = 2\n", "a = 1"},
      {"a comment above the next table goes", HEADER "\nb = 2\n# about other\n" OTHER, OTHER},
      {"a comment above the table stays", "# ours\n" HEADER "\nb = 2\n" OTHER, "# ours\n" OTHER},
      {"sub-tables go on the way", HEADER "\n[mcp_servers.kelvane.env]\nK = 1\n[mcp_servers.kelvane.x.y]\n" OTHER,
       OTHER},
      {"a sub-table apart", OTHER "\n[mcp_servers.kelvane.env]\nK = 1\n[z]", OTHER "\n[z]"},
      {"a second table", HEADER "\na = 1\n[x]\n" HEADER "\nb = 1\n[y]", "[x]\n[y]"},
      {"a table right behind another", HEADER "\n" HEADER "\na = 1\n[y]", "[y]"},
      {"an array of tables ends it", HEADER "\na = 1\n[[projects]]\nb = 1", "[[projects]]\nb = 1"},
      {"a value line that begins with a bracket ends it", HEADER "\nargs = [\n  [\"x\"]\n]", "  [\"x\"]\n]"},
      {"a bare bracket ends it", HEADER "\na = 1\n[\nb", "[\nb"},
      {"an unfinished sub-table header is ours", "[mcp_servers.kelvane.\na = 1", ""},
      {"line breaks alone after it", SECTION "\n\n\n", ""},
      {"bytes that are not UTF-8 stay", "\xFF = 1\n" HEADER "\n\xC3\n[\xE2\x82]\n\x80", "\xFF = 1\n[\xE2\x82]\n\x80"},
      {"a NUL stays", std::string("a\0b\n", 4) + HEADER, std::string("a\0b", 3)},
      {"a lone CR breaks no line", "a = 1\r" HEADER "\nb = 2\n", "a = 1\r" HEADER "\nb = 2"},
      {"other line breaks do not end a line", "a\u2028" HEADER "\n\u0085" HEADER "\n\v" HEADER,
       "a\u2028" HEADER "\n\u0085" HEADER "\n\v" HEADER},
      {"a CR LF at the end is no line break", "a = 1\r\n", "a = 1\r\n"},
      {"line breaks after a CR LF go", "a = 1\r\n\n\n", "a = 1\r\n"},
      {"line breaks before a CR LF stay", "a = 1\n\n\r\n", "a = 1\n\n\r\n"},
  };
  for (const TextCase& row : cases) {
    EXPECT_EQ(CodexConfig::removing(row.before), row.after) << row.description;
    EXPECT_EQ(CodexConfig::removing(row.after), row.after) << row.description;
  }
}

struct HeaderCase {
  const char* description;
  std::string line;
};

// Each stands between a line of ours and one of the next table, so that both ends of the removed part are checked.
std::string around(const std::string& line) {
  return "a = 1\n" + line + "\nb = 2\n" OTHER;
}

TEST(CodexConfig, ownsAHeaderInItsExactForm) {
  const HeaderCase owned[] = {
      {"plain", HEADER},
      {"indented by spaces", "   " HEADER},
      {"indented by a tab", "\t" HEADER},
      {"followed by spaces and tabs", HEADER " \t "},
      {"between no-break spaces", "\u00A0" HEADER "\u00A0"},
      {"between ideographic spaces", "\u3000" HEADER "\u3000"},
      {"between an ogham space and an en quad", "\u1680" HEADER "\u2000"},
      {"between a narrow and a mathematical space", "\u202F" HEADER "\u205F"},
      {"a sub-table", "[mcp_servers.kelvane.env]"},
      {"a sub-table with a comment", "[mcp_servers.kelvane.env] # secrets"},
      {"a sub-table with a quoted name", "[mcp_servers.kelvane.\"a b\"]"},
      {"an indented sub-table", "\t[mcp_servers.kelvane.env]"},
      {"a sub-table without a name", "[mcp_servers.kelvane.]"},
      {"a sub-table with a CR at its end", "[mcp_servers.kelvane.env]\r\rx"},
  };
  for (const HeaderCase& row : owned) {
    EXPECT_EQ(CodexConfig::removing(around(row.line)), "a = 1\n" OTHER) << row.description;
  }
}

TEST(CodexConfig, doesNotOwnAHeaderInAnyOtherForm) {
  const HeaderCase others[] = {
      {"a comment behind it", HEADER " # ours"},
      {"spaces inside the brackets", "[ mcp_servers.kelvane ]"},
      {"spaces around the dot", "[mcp_servers . kelvane]"},
      {"its name in quotes", "[mcp_servers.\"kelvane\"]"},
      {"its name in single quotes", "[mcp_servers.'kelvane']"},
      {"both names in quotes", "[\"mcp_servers\".\"kelvane\"]"},
      {"an array of tables", "[[mcp_servers.kelvane]]"},
      {"a longer name", "[mcp_servers.kelvane2]"},
      {"a dashed name", "[mcp_servers.kelvane-2]"},
      {"other letters", "[mcp_servers.Kelvane]"},
      {"no closing bracket", "[mcp_servers.kelvane"},
      {"a CR behind it", HEADER "\r\rx"},
      {"a CR before it", "\r" HEADER},
      {"a zero width space before it", "\u200B" HEADER},
      {"a byte-order mark before it", "\uFEFF" HEADER},
      {"an invalid byte after it", HEADER "\xFF"},
      {"a mark on its opening bracket", "[\u0301mcp_servers.kelvane]"},
      {"a mark on its closing bracket", HEADER "\u0301"},
      {"a mark on the dot of a sub-table", "[mcp_servers.kelvane.\u0301env]"},
      {"a joiner on the dot of a sub-table", "[mcp_servers.kelvane.\u200Denv]"},
      {"a mark before it", "\u0301" HEADER},
      {"a mark on the space before it", " \u0301" HEADER},
      {"a comment", "# " HEADER},
      {"dotted keys", "mcp_servers.kelvane.command = \"x\""},
  };
  for (const HeaderCase& row : others) {
    const std::string text = around(row.line);
    EXPECT_EQ(CodexConfig::removing(text), text) << row.description;
    EXPECT_FALSE(CodexConfig::names("x", text)) << row.description;
  }
}

TEST(CodexConfig, removesUpToTheNextHeaderOnly) {
  const HeaderCase headers[] = {
      {"a table", "[t]"},
      {"an indented table", " \t[t]"},
      {"a table behind a no-break space", "\u00A0[t]"},
      {"ours with a comment", HEADER " # ours"},
      {"ours in CR LF", HEADER "\r\nx"},
  };
  for (const HeaderCase& row : headers) {
    EXPECT_EQ(CodexConfig::removing("a = 1\n" HEADER "\nb = 2\n" + row.line + "\nc"), "a = 1\n" + row.line + "\nc")
        << row.description;
  }
  const HeaderCase others[] = {
      {"a comment", "# [t]"},
      {"a key", "key = [1]"},
      {"a closing bracket", "]"},
      {"a bracket with a mark", "[\u0301t]"},
      {"a bracket with a variation selector", "[\uFE0Ft]"},
      {"a bracket behind a mark", "\u0301[t]"},
      {"a bracket behind a CR", "\r[t]"},
      {"a bracket behind a CR LF", "\r\n[t]"},
      {"a bracket after an invalid byte", "\xFF[t]"},
      {"an empty line", ""},
  };
  for (const HeaderCase& row : others) {
    EXPECT_EQ(CodexConfig::removing("a = 1\n" HEADER "\nb = 2\n" + row.line + "\nc"), "a = 1") << row.description;
  }
}

TEST(CodexConfig, readsAFileInCRLFAsOneLine) {
  const std::string windows = "a = 1\r\n\r\n" HEADER "\r\nargs = []\r\ncommand = \"/bin/k\"\r\n";
  EXPECT_EQ(CodexConfig::removing(windows), windows);
  EXPECT_FALSE(CodexConfig::names("/bin/k", windows));
  EXPECT_EQ(CodexConfig::adding("/bin/k", windows), windows + "\n\n" SECTION);

  const std::string itsTableFirst = HEADER "\r\ncommand = \"/bin/k\"\r\n";
  EXPECT_EQ(CodexConfig::removing(itsTableFirst), itsTableFirst);
  EXPECT_FALSE(CodexConfig::names("/bin/k", itsTableFirst));

  const std::string itsSubTableFirst = "[mcp_servers.kelvane.env]\r\nK = 1\r\n[t]\r\ncommand = \"/bin/k\"\r\n";
  EXPECT_EQ(CodexConfig::removing(itsSubTableFirst), "");
  EXPECT_TRUE(CodexConfig::names("/bin/k", itsSubTableFirst));
  EXPECT_EQ(CodexConfig::adding("/bin/k", itsSubTableFirst), SECTION);
}

// A CR at the end joins the line break that is written after it, so that the content has one more empty line, which
// stays from then on.
TEST(CodexConfig, joinsALoneCRAtTheEndWithTheNextLineBreak) {
  const std::string once = CodexConfig::adding("/bin/k", "a = 1\r");
  EXPECT_EQ(once, "a = 1\r\n\n" SECTION);
  const std::string twice = CodexConfig::adding("/bin/k", once);
  EXPECT_EQ(twice, "a = 1\r\n\n\n" SECTION);
  EXPECT_EQ(CodexConfig::adding("/bin/k", twice), twice);
}

struct NamesCase {
  const char* description;
  std::string text;
  bool names;
};

TEST(CodexConfig, namesACommandIfThereIsATableAndTheLineIsAnywhere) {
  const NamesCase cases[] = {
      {"its table", SECTION, true},
      {"its table among others", "a = 1\n" SECTION "\n" OTHER, true},
      {"an empty text", "", false},
      {"only line breaks", "\n\n", false},
      {"no table of ours", "command = \"/bin/k\"\n", false},
      {"another's table", "[mcp_servers.other]\ncommand = \"/bin/k\"\n", false},
      {"our table in another form", "[mcp_servers.\"kelvane\"]\ncommand = \"/bin/k\"\n", false},
      {"another command", HEADER "\ncommand = \"/bin/k2\"\n", false},
      {"a command in other letters", HEADER "\ncommand = \"/bin/K\"\n", false},
      {"the end of another command", HEADER "\ncommand = \"/usr/bin/k\"\n", false},
      {"no command", HEADER "\n", false},
      {"our table without it and another's with it", HEADER "\n[t]\ncommand = \"/bin/k\"", true},
      {"another's with it before ours", "[t]\ncommand = \"/bin/k\"\n" HEADER, true},
      {"a comment with it", "# command = \"/bin/k\"\n" HEADER, true},
      {"a longer key", HEADER "\nother_command = \"/bin/k\"\n", true},
      {"only a sub-table", "command = \"/bin/k\"\n[mcp_servers.kelvane.env]", true},
      {"no spaces around the equals sign", HEADER "\ncommand=\"/bin/k\"\n", false},
      {"more spaces around it", HEADER "\ncommand  = \"/bin/k\"\n", false},
      {"a tab", HEADER "\ncommand\t= \"/bin/k\"\n", false},
      {"single quotes", HEADER "\ncommand = '/bin/k'\n", false},
      {"line breaks at the end do not count as a table", "command = \"/bin/k\"\n\n\n", false},
  };
  for (const NamesCase& row : cases) {
    EXPECT_EQ(CodexConfig::names("/bin/k", row.text), row.names) << row.description;
  }
}

TEST(CodexConfig, comparesCommandsByteForByte) {
  const std::string text = CodexConfig::adding("/caf\u00E9", "");
  EXPECT_TRUE(CodexConfig::names("/caf\u00E9", text));
  EXPECT_FALSE(CodexConfig::names("/cafe\u0301", text));
  EXPECT_TRUE(CodexConfig::names("/\xFF", CodexConfig::adding("/\xFF", "")));
  EXPECT_FALSE(CodexConfig::names("/\xFF", CodexConfig::adding("/\xFE", "")));
}

TEST(CodexConfig, usesTheSameServerNameAsTheOtherClient) {
  EXPECT_EQ(CodexConfig::serverName, ClaudeConfig::serverName);
}

}  // namespace
}  // namespace kelvane
