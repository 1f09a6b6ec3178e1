#include "program/configuration/ClaudeConfigFile.h"

#include <gtest/gtest.h>

#include <functional>

#include "host/ClaudeConfig.h"
#include "protocol/JSON.h"

namespace kelvane {
namespace {

using Dropped = std::vector<std::string>;

struct EditCase {
  const char* description;
  std::string before;
  std::string after;
  Dropped dropped;
};

constexpr std::string_view fresh = R"({
  "mcpServers": {
    "kelvane": {
      "args": [],
      "command": "/bin/k"
    }
  }
}
)";

std::string refusal(const std::function<void()>& body) {
  try {
    body();
  } catch (const ConfigRefused& error) {
    return error.what();
  }
  return "not refused";
}

std::string with(std::string text, std::string_view from, std::string_view to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

TEST(ClaudeConfigFile, addsTheEntryAndLeavesEveryOtherByte) {
  const EditCase cases[] = {
      {"no file", "", std::string(fresh), {}},
      {"blanks", " \r\n\t", std::string(fresh), {}},
      {"a byte-order mark alone", "\xEF\xBB\xBF", "\xEF\xBB\xBF" + std::string(fresh), {}},
      {"an empty object", "{}", std::string(fresh.substr(0, fresh.size() - 1)), {}},
      {"an empty object and a line break", "{ }\n", std::string(fresh), {}},
      {"other members, numbers as they are spelled",
       "{\n  \"n\": 12345678901234567890,\n  \"x\": 1.50e+1\n}",
       "{\n  \"n\": 12345678901234567890,\n  \"x\": 1.50e+1,\n  \"mcpServers\": {\n    \"kelvane\": {\n      \"args\": "
       "[],\n      \"command\": \"/bin/k\"\n    }\n  }\n}",
       {}},
      {"another server, in tabs",
       "{\n\t\"mcpServers\": {\n\t\t\"other\": {\"command\": \"x\"}\n\t},\n\t\"z\": 0\n}\n",
       "{\n\t\"mcpServers\": {\n\t\t\"other\": {\"command\": \"x\"},\n\t\t\"kelvane\": {\n\t\t\t\"args\": "
       "[],\n\t\t\t\"command\": \"/bin/k\"\n\t\t}\n\t},\n\t\"z\": 0\n}\n",
       {}},
      {"an empty table of servers",
       "{\n    \"mcpServers\": {},\n    \"z\": 0\n}",
       "{\n    \"mcpServers\": {\n        \"kelvane\": {\n            \"args\": [],\n            \"command\": "
       "\"/bin/k\"\n        }\n    },\n    \"z\": 0\n}",
       {}},
      {"one line",
       R"({"b":[1, 2],"mcpServers":{"other":{}},"a":null})",
       R"({"b":[1, 2],"mcpServers":{"other":{},"kelvane":{"args":[],"command":"/bin/k"}},"a":null})",
       {}},
      {"one line with blanks",
       R"({"a": 1})",
       R"({"a": 1, "mcpServers": {"kelvane": {"args": [], "command": "/bin/k"}}})",
       {}},
      {"CR LF and a byte-order mark",
       "\xEF\xBB\xBF{\r\n  \"a\": 1\r\n}\r\n",
       "\xEF\xBB\xBF{\r\n  \"a\": 1,\r\n  \"mcpServers\": {\r\n    \"kelvane\": {\r\n      \"args\": [],\r\n      "
       "\"command\": \"/bin/k\"\r\n    }\r\n  }\r\n}\r\n",
       {}},
      {"an entry of another command keeps its place",
       "{\n  \"mcpServers\": {\n    \"kelvane\": {\n      \"command\": \"/old\",\n      \"args\": [ ]\n    },\n    "
       "\"other\": {}\n  }\n}",
       "{\n  \"mcpServers\": {\n    \"kelvane\": {\n      \"args\": [],\n      \"command\": \"/bin/k\"\n    },\n    "
       "\"other\": {}\n  }\n}",
       {}},
      {"the entry already, written differently",
       R"({"mcpServers": { "kelvane" : {"command":"\/bin/k", "args":[ ]}}})",
       R"({"mcpServers": { "kelvane" : {"command":"\/bin/k", "args":[ ]}}})",
       {}},
      {"more in the entry",
       R"({"mcpServers":{"kelvane":{"env": {"TOKEN": "x y"},"command":"/old","args":["--v"],"type":"stdio"}}})",
       R"({"mcpServers":{"kelvane":{"args":[],"command":"/bin/k"}}})",
       {R"(The entry had "env": {"TOKEN": "x y"})", R"(The entry had "args": ["--v"])",
        R"(The entry had "type": "stdio")"}},
      {"a command that is no text",
       R"({"mcpServers":{"kelvane":{"command":[1]}}})",
       R"({"mcpServers":{"kelvane":{"args":[],"command":"/bin/k"}}})",
       {R"(The entry had "command": [1])"}},
      {"an entry that is no object",
       R"({"mcpServers":{"kelvane":"/old"}})",
       R"({"mcpServers":{"kelvane":{"args":[],"command":"/bin/k"}}})",
       {R"(The entry was not an object: "/old")"}},
      {"servers that are no object",
       R"({"mcpServers":["x"],"z":1})",
       R"({"mcpServers":{"kelvane":{"args":[],"command":"/bin/k"}},"z":1})",
       {R"("mcpServers" was not an object: ["x"])"}},
      {"a root that is no object", "[1, 2]\n", std::string(fresh), {"The file was not an object: [1, 2]"}},
      {"a root that is null",
       "null",
       std::string(fresh.substr(0, fresh.size() - 1)),
       {"The file was not an object: null"}},
      {"the last of equal tables of servers",
       R"({"mcpServers":{"kelvane":1},"mcpServers":{}})",
       R"({"mcpServers":{"kelvane":1},"mcpServers":{"kelvane":{"args":[],"command":"/bin/k"}}})",
       {}},
      {"the last of equal entries",
       R"({"mcpServers":{"kelvane":1,"b":2,"kelvane":{"x":3}}})",
       R"({"mcpServers":{"kelvane":1,"b":2,"kelvane":{"args":[],"command":"/bin/k"}}})",
       {R"(The entry had "x": 3)"}},
      {"an entry by an escaped name",
       R"({"mcpServers":{"kelv\u0061ne":{"command":"/old"}}})",
       R"({"mcpServers":{"kelv\u0061ne":{"args":[],"command":"/bin/k"}}})",
       {}},
      {"a table of servers elsewhere",
       R"({"projects":{"p":{"mcpServers":{"kelvane":{}}}}})",
       R"({"projects":{"p":{"mcpServers":{"kelvane":{}}}},"mcpServers":{"kelvane":{"args":[],"command":"/bin/k"}}})",
       {}},
  };
  for (const EditCase& row : cases) {
    const ConfigEdit edit = ClaudeConfigFile::adding("/bin/k", row.before);
    EXPECT_EQ(edit.text, row.after) << row.description;
    EXPECT_EQ(edit.dropped, row.dropped) << row.description;
    EXPECT_EQ(JSON::decoded(edit.text), ClaudeConfig::adding("/bin/k", JSON::decoded(row.before))) << row.description;
    EXPECT_EQ(ClaudeConfigFile::adding("/bin/k", edit.text), (ConfigEdit{edit.text, {}})) << row.description;
  }
}

TEST(ClaudeConfigFile, writesAnyCommandThatIsText) {
  for (const std::string command :
       {"", "/a b/k", R"(C:\k "x".exe)", "/caf\u00E9", "/cafe\u0301", "/a\nb\t\x01", "/\x7F"}) {
    const ConfigEdit edit = ClaudeConfigFile::adding(command, "{}");
    EXPECT_EQ(ClaudeConfig::command(JSON::decoded(edit.text)), command);
    EXPECT_EQ(ClaudeConfig::command(JSON::decoded(ClaudeConfigFile::example(command))), command);
  }
  EXPECT_EQ(ClaudeConfigFile::example("/bin/k"), fresh);
  EXPECT_EQ(refusal([] { ClaudeConfigFile::adding("/\xFF", "{}"); }),
            "The path of this program is not UTF-8, so no JSON file can hold it. Move the program to another folder.");
}

TEST(ClaudeConfigFile, removesTheEntryAndLeavesEveryOtherByte) {
  const EditCase cases[] = {
      {"no file", "", "", {}},
      {"blanks", " \n", " \n", {}},
      {"the only server", std::string(fresh), "{\n  \"mcpServers\": {}\n}\n", {}},
      {"the first of two",
       R"({"mcpServers": {"kelvane": {"command": "x"}, "other": {}}})",
       R"({"mcpServers": {"other": {}}})",
       {}},
      {"the last of two",
       "{\r\n\t\"mcpServers\": {\r\n\t\t\"other\": {},\r\n\t\t\"kelvane\": {}\r\n\t},\r\n\t\"n\": 1.0\r\n}",
       "{\r\n\t\"mcpServers\": {\r\n\t\t\"other\": {}\r\n\t},\r\n\t\"n\": 1.0\r\n}",
       {}},
      {"more in the entry",
       R"({"mcpServers":{"kelvane":{"command":"x","args":[],"env":{"A":"b"}}}})",
       R"({"mcpServers":{}})",
       {R"(The entry had "env": {"A":"b"})"}},
      {"an entry that is no object",
       R"({"mcpServers":{"kelvane":null}})",
       R"({"mcpServers":{}})",
       {"The entry was not an object: null"}},
      {"all of equal entries",
       R"({"mcpServers":{"kelvane":1,"b":2,"kelvane":{"command":"x"}}})",
       R"({"mcpServers":{"b":2}})",
       {"The entry was not an object: 1"}},
      {"the last of equal tables of servers",
       R"({"mcpServers":{"kelvane":1},"mcpServers":{"kelvane":2}})",
       R"({"mcpServers":{"kelvane":1},"mcpServers":{}})",
       {"The entry was not an object: 2"}},
      {"no entry", R"({"mcpServers":{ "other":1 }})", R"({"mcpServers":{ "other":1 }})", {}},
      {"no servers", "{ }", "{ }", {}},
      {"servers that are no object", R"({"mcpServers":["kelvane"]})", R"({"mcpServers":["kelvane"]})", {}},
      {"a root that is no object", "[1]", "[1]", {}},
  };
  for (const EditCase& row : cases) {
    const ConfigEdit edit = ClaudeConfigFile::removing(row.before);
    EXPECT_EQ(edit.text, row.after) << row.description;
    EXPECT_EQ(edit.dropped, row.dropped) << row.description;
    EXPECT_EQ(ClaudeConfigFile::removing(edit.text), (ConfigEdit{edit.text, {}})) << row.description;
    if (edit.text != row.before) {
      EXPECT_EQ(JSON::decoded(edit.text), ClaudeConfig::removing(JSON::decoded(row.before))) << row.description;
    }
  }
}

// JSON's grammar has them, although no double and no UTF-8 text is what they say.
TEST(ClaudeConfigFile, editsAroundNumbersAndSurrogatesThatNoValueHolds) {
  const struct {
    const char* description;
    std::string without;
    std::string with;
  } cases[] = {
      {"a number too large among the members", R"({"n":1e400,"mcpServers":{"other":{}},"m":[-1e999]})",
       R"({"n":1e400,"mcpServers":{"other":{},"kelvane":{"args":[],"command":"/bin/k"}},"m":[-1e999]})"},
      {"a lone surrogate among the members", R"({"s":"\ud800","mcpServers":{"other":{}},"\uDC00":"x\ud800\u0041"})",
       R"({"s":"\ud800","mcpServers":{"other":{},"kelvane":{"args":[],"command":"/bin/k"}},"\uDC00":"x\ud800\u0041"})"},
      {"both in another server", R"({"mcpServers":{"o\ud800":{"timeout":2e308,"env":{"A":"\udfff"}}}})",
       R"({"mcpServers":{"o\ud800":{"timeout":2e308,"env":{"A":"\udfff"}},"kelvane":{"args":[],"command":"/bin/k"}}})"},
      {"keys that differ in nothing but their lone surrogates", R"({"mcpServers":{"\ud800":1,"\ud801":2,"\ufffd":3}})",
       R"({"mcpServers":{"\ud800":1,"\ud801":2,"\ufffd":3,"kelvane":{"args":[],"command":"/bin/k"}}})"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.description);
    EXPECT_EQ(JSON::decoded(row.without), std::nullopt);
    EXPECT_EQ(ClaudeConfigFile::adding("/bin/k", row.without), (ConfigEdit{row.with, {}}));
    EXPECT_EQ(ClaudeConfigFile::adding("/bin/k", row.with), (ConfigEdit{row.with, {}}));
    EXPECT_EQ(ClaudeConfigFile::adding("/new", row.with).text, with(row.with, "/bin/k", "/new"));
    EXPECT_EQ(ClaudeConfigFile::removing(row.with), (ConfigEdit{row.without, {}}));
    EXPECT_EQ(ClaudeConfigFile::removing(row.without), (ConfigEdit{row.without, {}}));
    EXPECT_EQ(ClaudeConfigFile::command(row.with), "/bin/k");
    EXPECT_EQ(ClaudeConfigFile::command(row.without), std::nullopt);
    EXPECT_EQ(ClaudeConfigFile::arguments(row.with), std::vector<std::string>());
  }
}

TEST(ClaudeConfigFile, replacesAnEntryThatNoValueHoldsAndShowsWhatGoes) {
  const std::string entry =
      R"({"mcpServers":{"kelvane":{"command":"/\ud800","args":["\udc00",1e400,"x"],"timeout":1e400,"\ud800":"\udfff"}}})";
  EXPECT_EQ(ClaudeConfigFile::command(entry), "/\uFFFD");
  EXPECT_EQ(ClaudeConfigFile::arguments(entry), std::nullopt);
  EXPECT_EQ(ClaudeConfigFile::arguments(R"({"mcpServers":{"kelvane":{"args":["\udc00","x"]}}})"),
            (std::vector<std::string>{"\uFFFD", "x"}));
  const Dropped dropped = {R"(The entry had "args": ["\udc00",1e400,"x"])", R"(The entry had "timeout": 1e400)",
                           "The entry had \"\uFFFD\": \"\\udfff\""};
  EXPECT_EQ(ClaudeConfigFile::adding("/bin/k", entry),
            (ConfigEdit{R"({"mcpServers":{"kelvane":{"args":[],"command":"/bin/k"}}})", dropped}));
  EXPECT_EQ(ClaudeConfigFile::removing(entry), (ConfigEdit{R"({"mcpServers":{}})", dropped}));
}

TEST(ClaudeConfigFile, editsATextOfHundredsOfThousandsOfLevels) {
  const std::string deep = std::string(300'000, '[') + std::string(300'000, ']');
  const std::string text = R"({"a":)" + deep + R"(,"mcpServers":{"b":)" + deep + "}}";
  const ConfigEdit edit = ClaudeConfigFile::adding("/bin/k", text);
  EXPECT_EQ(edit.text.size(), text.size() + std::string_view(R"(,"kelvane":{"args":[],"command":"/bin/k"})").size());
  EXPECT_TRUE(ClaudeConfigFile::removing(edit.text).text == text);
}

TEST(ClaudeConfigFile, findsTheCommandOfTheEntry) {
  const struct {
    const char* description;
    const char* text;
    std::optional<std::string> command;
  } cases[] = {
      {"no file", "", std::nullopt},
      {"blanks behind a byte-order mark", "\xEF\xBB\xBF \r\n", std::nullopt},
      {"the entry", R"({"mcpServers": {"kelvane": {"command": "/bin/k", "env": {}}}})", "/bin/k"},
      {"escapes", R"({"mcpServers": {"kelv\u0061ne": {"command": "\/caf\u00e9"}}})", "/caf\u00E9"},
      {"behind a byte-order mark", "\xEF\xBB\xBF{\"mcpServers\":{\"kelvane\":{\"command\":\"\"}}}\r\n", ""},
      {"the last of equal tables of servers",
       R"({"mcpServers":{"kelvane":{"command":"1"}},"mcpServers":{"kelvane":{"command":"2"}}})", "2"},
      {"a last table of servers without it", R"({"mcpServers":{"kelvane":{"command":"1"}},"mcpServers":{}})",
       std::nullopt},
      {"the last of equal entries", R"({"mcpServers":{"kelvane":{"command":"1"},"kelvane":{"command":"2"}}})", "2"},
      {"the last of equal commands", R"({"mcpServers":{"kelvane":{"command":"1","command":"2"}}})", "2"},
      {"a command that is no text", R"({"mcpServers":{"kelvane":{"command":1}}})", std::nullopt},
      {"an entry that is no object", R"({"mcpServers":{"kelvane":"/bin/k"}})", std::nullopt},
      {"no entry", R"({"mcpServers":{}})", std::nullopt},
      {"a root that is no object", "[]", std::nullopt},
  };
  for (const auto& row : cases) EXPECT_EQ(ClaudeConfigFile::command(row.text), row.command) << row.description;
}

TEST(ClaudeConfigFile, findsTheHomeThatTheEntrySets) {
  const std::pair<const char*, std::optional<std::string>> cases[] = {
      {"", std::nullopt},
      {R"({"mcpServers": {"kelvane": {"command": "/bin/k", "env": {}}}})", std::nullopt},
      {R"({"mcpServers": {"kelvane": {"env": {"HOM\u0045": "\/h"}}}})", "/h"},
      {R"({"mcpServers": {"kelvane": {"env": {"HOME": ""}}}})", ""},
      {R"({"mcpServers": {"kelvane": {"env": {"HOME": 1}}}})", std::nullopt},
      {R"({"mcpServers": {"kelvane": {"env": ["HOME"]}}})", std::nullopt},
      {R"({"mcpServers": {"kelvane": {"env": {"home": "/h"}}, "other": {"env": {"HOME": "/h"}}}})", std::nullopt},
  };
  for (const auto& [text, home] : cases) EXPECT_EQ(ClaudeConfigFile::home(text), home) << text;
}

TEST(ClaudeConfigFile, refusesATextThatIsNotJSONAndSaysWhere) {
  const struct {
    const char* description;
    std::string text;
    const char* place;
  } cases[] = {
      {"a comment", "{\n  // servers\n  \"a\": 1\n}", "line 2, column 3"},
      {"a comment behind a member", "{\n  \"a\": 1 /* x */\n}", "line 2, column 10"},
      {"a comma at the end", "{\r\n  \"a\": 1,\r\n}", "line 3, column 1"},
      {"cut short", "{\"a\": \"b", "line 1, column 9"},
      {"a number too large that ends wrong", "{\"a\":\n1e400.}", "line 2, column 6"},
      {"a lone surrogate in an escape cut short", R"({"a":"\ud800\ud8"})", "line 1, column 6"},
      {"not UTF-8", "{\"\u00E9\": \"\xFF\"}", "line 1, column 8"},
      {"two documents", "{}\n{}", "line 2, column 1"},
      {"behind a byte-order mark", "\xEF\xBB\xBFx", "line 1, column 1"},
      {"TOML", "[a]\nb = 1", "line 1, column 2"},
  };
  for (const auto& row : cases) {
    const std::string sentences = std::string("The file is not valid JSON at ") + row.place +
                                  ". The file is unchanged. Fix it there and try again.";
    EXPECT_EQ(refusal([&] { ClaudeConfigFile::adding("/bin/k", row.text); }), sentences) << row.description;
    EXPECT_EQ(refusal([&] { ClaudeConfigFile::removing(row.text); }), sentences) << row.description;
    EXPECT_EQ(refusal([&] { ClaudeConfigFile::command(row.text); }), sentences) << row.description;
  }
}

TEST(ClaudeConfigFile, givesTheTextBackWhenTheEntryGoesAgain) {
  for (const char* lineEnd : {"\n", "\r\n"}) {
    for (const char* before : {"{\n  \"mcpServers\": {\n    \"other\": {}\n  }\n}\n", "{\"mcpServers\":{\"a\":1}}",
                               "{\n  \"mcpServers\": {}\n}", "{\"mcpServers\":{},\"x\":[1, 2]}"}) {
      const std::string text = with(before, "\n", lineEnd);
      EXPECT_EQ(ClaudeConfigFile::removing(ClaudeConfigFile::adding("/bin/k", text).text).text, text);
    }
  }
}

}  // namespace
}  // namespace kelvane
