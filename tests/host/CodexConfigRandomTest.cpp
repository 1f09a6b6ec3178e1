#include <gtest/gtest.h>

#include "host/CodexConfig.h"
#include "host/CodexLines.h"
#include "tests/host/CodexConfigOracle.h"
#include "tests/support/Random.h"

namespace kelvane {
namespace {

/// Random texts of the pieces that the rules are about, complete and broken.
std::string generatedText(std::mt19937_64& random) {
  static const std::string pieces[] = {"[mcp_servers.kelvane]",
                                       "[mcp_servers.kelvane.env]",
                                       "[mcp_servers.kelvane.",
                                       "[mcp_servers.other]",
                                       "[[t]]",
                                       "[",
                                       "]",
                                       ".",
                                       "command = \"k\"",
                                       "args = []",
                                       "# note",
                                       "a",
                                       " ",
                                       "\t",
                                       "\u00A0",
                                       "\u3000",
                                       "\u200B",
                                       "\u0301",
                                       "\u200D",
                                       "\uFEFF",
                                       "\u0600",
                                       "\xFF",
                                       "\xE2\x82",
                                       "\r",
                                       "\r\n",
                                       "\"",
                                       "\\",
                                       "\v"};
  std::string text;
  for (std::size_t i = tests::below(24, random); i > 0; --i) {
    // More line breaks than other pieces, so that lines are short and headers have lines of their own.
    text += tests::below(2, random) == 0 ? "\n" : tests::oneOf(pieces, random);
  }
  return text;
}

/// The smallest part of the text that still fails.
template <class Fails>
std::string shrunk(std::string text, Fails fails) {
  for (std::size_t length = text.size(); length > 0; length /= 2) {
    for (std::size_t at = 0; at + length <= text.size();) {
      std::string shorter = text;
      shorter.erase(at, length);
      if (fails(shorter)) {
        text = std::move(shorter);
      } else {
        ++at;
      }
    }
  }
  return text;
}

struct Property {
  const char* description;
  bool (*fails)(const std::string& text);
};

std::string added(const std::string& text) {
  return CodexConfig::adding("k", text);
}

TEST(CodexConfig, keepsItsPromisesForRandomTexts) {
  const Property properties[] = {
      {"removing is what the rules say",
       [](const std::string& text) { return CodexConfig::removing(text) != oracle::removing(text); }},
      {"adding is what the rules say",
       [](const std::string& text) { return added(text) != oracle::adding("k", text); }},
      {"naming is what the rules say",
       [](const std::string& text) { return CodexConfig::names("k", text) != oracle::names("k", text); }},
      {"what was added is named", [](const std::string& text) { return !CodexConfig::names("k", added(text)); }},
      {"what was removed is not named",
       [](const std::string& text) { return CodexConfig::names("k", CodexConfig::removing(text)); }},
      {"adding twice is adding once",
       [](const std::string& text) {
         return !CodexConfig::removing(text).ends_with('\r') && added(added(text)) != added(text);
       }},
      {"adding another command first makes no difference",
       [](const std::string& text) {
         return !CodexConfig::removing(text).ends_with('\r') && added(CodexConfig::adding("old", text)) != added(text);
       }},
      {"removing after adding gives back what was not ours",
       [](const std::string& text) {
         const std::string others = CodexConfig::removing(text);
         return !others.ends_with('\r') && CodexConfig::removing(added(text)) != others;
       }},
      {"removing after adding gives back a text that had no table",
       [](const std::string& text) {
         if (CodexConfig::removing(text) != withoutTrailingLineBreaks(text) || text.ends_with('\r')) return false;
         return CodexConfig::removing(added(text)) != withoutTrailingLineBreaks(text);
       }},
      {"the lines are the text",
       [](const std::string& text) {
         std::string joined;
         for (const CodexLine& line : codexLines(text)) joined.append(line.text).append("\n");
         return joined != text + "\n";
       }},
  };
  std::mt19937_64 random = tests::seededGenerator();
  std::size_t withTables = 0;
  for (int i = 0; i < 3000; ++i) {
    const std::string text = generatedText(random);
    withTables += CodexConfig::removing(text) != withoutTrailingLineBreaks(text) ? 1 : 0;
    for (const Property& property : properties) {
      ASSERT_FALSE(property.fails(text)) << property.description << " fails for "
                                         << ::testing::PrintToString(shrunk(text, property.fails));
    }
  }
  EXPECT_GT(withTables, 300U) << "The texts hold too few tables to prove anything.";
}

}  // namespace
}  // namespace kelvane
