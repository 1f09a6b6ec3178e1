#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "tests/house/IncludeGraph.h"

namespace kelvane::house {
namespace {

/// How often a pattern stands in a source, comments not looked at.
std::ptrdiff_t count(const std::string& text, const char* pattern) {
  static const std::regex comment(R"(//[^\n]*)");
  const std::string code = std::regex_replace(text, comment, "");
  const std::regex wanted(pattern);
  return std::distance(std::sregex_iterator(code.begin(), code.end(), wanted), std::sregex_iterator());
}

// So the switches are those that an application would find. What ships is what is tested.
TEST(Settings, areFoundByTheProgramThroughPreferencesOnly) {
  constexpr const char* way = R"(\bPreferences::defaults\s*\()";
  constexpr const char* wayAround =
      R"(\bUserDefaults::(standard|suite)\b|\bFileDefaults::domain\b|\bmake_\w+<[\w :]*FileDefaults>)";
  std::ptrdiff_t calls = 0;
  for (const auto& [path, text] : sourcesBelow(KELVANE_SOURCE_DIR)) {
    if (!path.starts_with("program/")) continue;
    calls += count(text, way);
    EXPECT_EQ(count(text, wayAround), 0) << path;
  }
  EXPECT_EQ(calls, 1);

  EXPECT_EQ(count("std::make_shared<const quorvel::FileDefaults>(file)", wayAround), 1);
  EXPECT_EQ(count("std::shared_ptr<const quorvel::FileDefaults> store_;  // UserDefaults::suite()", wayAround), 0);
}

}  // namespace
}  // namespace kelvane::house
