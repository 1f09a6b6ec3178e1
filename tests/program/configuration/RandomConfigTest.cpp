#include <gtest/gtest.h>

#include <string>

#include "program/configuration/CodexConfigFile.h"
#include "program/configuration/ConfigEdit.h"
#include "tests/program/configuration/ConfigProperties.h"
#include "tests/support/Random.h"

namespace kelvane {
namespace {

std::string aCommand(std::mt19937_64& random) {
  static const std::string pieces[] = {"/bin/k", "/", " ", "\u00E9", "e\u0301", "'", "#"};
  static const std::string odd[] = {"\"", "\\", "\n", "\x01", "\xFF"};
  std::string command = tests::below(6, random) == 0 ? tests::oneOf(odd, random) : "";
  for (std::size_t count = tests::below(4, random); count > 0; --count) command += tests::oneOf(pieces, random);
  return command;
}

/// An object of the keys that matter, nested as a client's configuration is.
std::string anObject(std::size_t depth, const std::string& space, std::mt19937_64& random) {
  static const std::string keys[] = {R"("mcpServers")", R"("kelvane")", R"("command")",      R"("args")",
                                     R"("a")",          R"("\u0061")",  R"("kelv\u0061ne")", R"("\ud800")"};
  static const std::string values[] = {"null",        "[]",    "[ 1.50 ]",      "12345678901234567890",
                                       R"("/bin/k")", "{}",    "{ }",           R"({"env":{"T":"x"}})",
                                       "-1e400",      "2e308", R"(["\ud800"])", R"("\udc00\ud800\udc00")"};
  std::string text = "{";
  const std::size_t count = tests::below(4, random);
  for (std::size_t i = 0; i < count; ++i) {
    const bool isNested = depth > 0 && tests::below(3, random) != 0;
    text +=
        (i > 0 ? "," : "") + space + tests::oneOf(keys, random) + ":" + (space.empty() ? "" : " ") +
        (isNested ? anObject(depth - 1, space.empty() ? space : space + "  ", random) : tests::oneOf(values, random));
  }
  return text + space + "}";
}

TEST(ClaudeConfigFile, keepsItsPromisesForTextsOfEveryShape) {
  static const std::string spaces[] = {"", "\n  ", "\r\n\t", " "};
  static const std::string ends[] = {"", "\n", "\r\n", " ", "x", "/* */"};
  std::mt19937_64 random = tests::seededGenerator();
  for (int i = 0; i < 4000; ++i) {
    const std::string text = std::string(tests::below(8, random) == 0 ? "\xEF\xBB\xBF" : "") +
                             anObject(3, tests::oneOf(spaces, random), random) + tests::oneOf(ends, random);
    const std::string command = aCommand(random);
    ASSERT_EQ(brokenByClaudeConfig(text, command), "")
        << ::testing::PrintToString(text) << " with " << ::testing::PrintToString(command);
  }
}

TEST(CodexConfigFile, keepsItsPromisesForTextsOfEveryShape) {
  static const std::string lines[] = {"a = 1",
                                      "b = \"\"\"",
                                      "\"\"\"",
                                      "c = [",
                                      "]",
                                      "# note",
                                      "",
                                      "",
                                      "[mcp_servers]",
                                      "[mcp_servers.other]",
                                      "[mcp_servers.kelvane]",
                                      "[mcp_servers.kelvane] # c",
                                      "[mcp_servers.\"kelvane\"]",
                                      "[mcp_servers.kelvane.env]",
                                      "[[mcp_servers.kelvane]]",
                                      "[[t]]",
                                      "[u]",
                                      "command = \"/bin/k\"",
                                      "args = []",
                                      "mcp_servers.kelvane.x = 1",
                                      "kelvane = {command = \"y\"}",
                                      "kelvane = {",
                                      "mcp_servers.other = { a.b = 1, # {",
                                      "e = {",
                                      "k = 1,",
                                      "}",
                                      "},",
                                      "g = \"\\e[\\x5d\"",
                                      "h = 07:32",
                                      "i = 0x1.8p3",
                                      "\u00E9 = 1",
                                      "f = nan",
                                      " [v]",
                                      "\u00A0[w]",
                                      "d = 1979-05-27"};
  std::mt19937_64 random = tests::seededGenerator();
  int changed = 0;
  for (int i = 0; i < 4000; ++i) {
    const std::string lineEnd = tests::below(4, random) == 0 ? "\r\n" : "\n";
    std::string text = tests::below(8, random) == 0 ? "\xEF\xBB\xBF" : "";
    for (std::size_t count = tests::below(9, random); count > 0; --count) {
      text += tests::oneOf(lines, random) + (tests::below(40, random) == 0 ? "\r\n" : lineEnd);
    }
    const std::string command = aCommand(random);
    ASSERT_EQ(brokenByCodexConfig(text, command), "")
        << ::testing::PrintToString(text) << " with " << ::testing::PrintToString(command);
    try {
      changed += CodexConfigFile::removing(text).text != text ? 1 : 0;
    } catch (const ConfigRefused&) {
    }
  }
  EXPECT_GT(changed, 40) << "Too few texts had a table of ours and were TOML.";
}

}  // namespace
}  // namespace kelvane
