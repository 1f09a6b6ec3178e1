#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "protocol/Server.h"
#include "scripttools/ScriptTools.h"
#include "tests/scripttools/Workbench.h"

namespace kelvane::tests {
namespace {

// The catalogue as clients see it with writes allowed, a tool a line; the first six lines are all of it without.
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

TEST_F(Catalogue, holdsSeventeenToolsWithWrites) {
  const auto expected = expectedCatalogue();
  ASSERT_EQ(expected.size(), 17U);
  EXPECT_EQ(reply(true), listed(expected));
}

TEST_F(Catalogue, holdsTheReadingToolsWithoutWrites) {
  auto expected = expectedCatalogue();
  expected.resize(6);
  EXPECT_EQ(reply(false), listed(expected));
}

TEST_F(Catalogue, knowsNoWritingToolWithoutWrites) {
  const Server server("kelvane", ScriptTools(library, versions).tools(false));
  EXPECT_EQ(
      server.handle(R"({"id":1,"method":"tools/call","params":{"name":"create_folder","arguments":{"name":"x"}}})"),
      R"({"error":{"code":-32602,"message":"No such tool: create_folder"},"id":1,"jsonrpc":"2.0"})");
  EXPECT_TRUE(watch->accesses.empty());
}

TEST_F(Catalogue, isMadeWithoutALookAtTheLibrary) {
  EXPECT_EQ(tools.size(), 17U);
  EXPECT_TRUE(watch->accesses.empty());
}

TEST(CatalogueDeathTest, needsALibraryAndAHistory) {
  const auto history = std::make_shared<InMemoryVersionStore>();
  EXPECT_DEATH(ScriptTools(nullptr, history), "^Fatal error: ");
  EXPECT_DEATH(ScriptTools(std::make_shared<InMemoryScriptLibrary>("/"), nullptr), "^Fatal error: ");
}

}  // namespace
}  // namespace kelvane::tests
