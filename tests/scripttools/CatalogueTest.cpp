#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "protocol/Server.h"
#include "scripttools/ScriptTools.h"
#include "tests/scripttools/Workbench.h"

namespace kelvane::tests {
namespace {

// The catalogue as clients see it if writing is allowed, one tool per line. Otherwise it is the first six lines.
std::vector<std::string> expectedCatalogue() {
  std::ifstream file(KELVANE_SOURCE_DIR "/tests/scripttools/catalogue.txt");
  EXPECT_TRUE(file);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

std::string listed(const std::vector<std::string>& entries) {
  std::string joined;
  for (const auto& entry : entries) joined += (joined.empty() ? "" : ",") + entry;
  return R"({"id":1,"jsonrpc":"2.0","result":{"tools":[)" + joined + "]}}";
}

class Catalogue : public WorkbenchTest {
 protected:
  std::string reply(bool allowingWrites) const {
    const Server server("kelvane", ScriptTools(library, versions).tools(allowingWrites));
    return server.handle(R"({"id":1,"method":"tools/list"})").value_or("");
  }
};

TEST_F(Catalogue, hasSeventeenToolsIfWritingIsAllowed) {
  const auto expected = expectedCatalogue();
  ASSERT_EQ(expected.size(), 17U);
  EXPECT_EQ(reply(true), listed(expected));
}

TEST_F(Catalogue, hasTheReadingToolsIfWritingIsNotAllowed) {
  auto expected = expectedCatalogue();
  expected.resize(6);
  EXPECT_EQ(reply(false), listed(expected));
}

TEST_F(Catalogue, hidesTheWritingToolsIfWritingIsNotAllowed) {
  const Server server("kelvane", ScriptTools(library, versions).tools(false));
  EXPECT_EQ(
      server.handle(R"({"id":1,"method":"tools/call","params":{"name":"create_folder","arguments":{"name":"x"}}})"),
      R"({"error":{"code":-32602,"message":"No such tool: create_folder"},"id":1,"jsonrpc":"2.0"})");
  EXPECT_TRUE(watch->accesses.empty());
}

TEST_F(Catalogue, isMadeWithoutReadingTheLibrary) {
  EXPECT_EQ(tools.size(), 17U);
  EXPECT_TRUE(watch->accesses.empty());
}

// The names in back quotes in the first column of the README's table of tools, in their order, and how many of them
// stand above the row about writing.
std::pair<std::vector<std::string>, std::size_t> toolsOfTheReadme() {
  std::ifstream file(KELVANE_SOURCE_DIR "/README.md");
  EXPECT_TRUE(file);
  std::vector<std::string> names;
  std::size_t reading = 0;
  bool isInTable = false;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("## ")) isInTable = line == "## The tools";
    if (!isInTable || !line.starts_with("| ")) continue;
    const std::string column = line.substr(1, line.find('|', 1) - 1);
    if (column == " where writing is allowed: ") reading = names.size();
    for (std::size_t open = column.find('`'); open != std::string::npos;) {
      const std::size_t close = column.find('`', open + 1);
      names.push_back(column.substr(open + 1, close - open - 1));
      open = column.find('`', close + 1);
    }
  }
  return {names, reading};
}

TEST_F(Catalogue, isListedInTheReadmeInTheSameOrder) {
  const auto [listed, reading] = toolsOfTheReadme();
  std::vector<std::string> names;
  for (const Tool& tool : ScriptTools(library, versions).tools(true)) names.push_back(tool.name());
  EXPECT_EQ(names, listed);
  EXPECT_EQ(ScriptTools(library, versions).tools(false).size(), reading);
}

TEST(CatalogueDeathTest, needsALibraryAndAHistory) {
  const auto history = std::make_shared<InMemoryVersionStore>();
  EXPECT_DEATH(ScriptTools(nullptr, history), "^Fatal error: ");
  EXPECT_DEATH(ScriptTools(std::make_shared<InMemoryScriptLibrary>("/"), nullptr), "^Fatal error: ");
}

}  // namespace
}  // namespace kelvane::tests
