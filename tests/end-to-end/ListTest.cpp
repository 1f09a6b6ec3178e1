#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/end-to-end/Client.h"
#include "tests/end-to-end/Home.h"

namespace kelvane::tests {
namespace {

class List : public Home {
 protected:
  List() {
    home.put("Scripts/Talks/Opening.md", "1");
    home.put("Scripts/Talks/Take 10.md", "2");
    home.put("Scripts/Talks/Take 2.md", "3");
    home.put("Scripts/Talks/Old/First.md", "4");
    home.put("Scripts/Zebra.md", "5");
    home.put("Scripts/notes.txt", "6");
  }

  Outcome list(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "list");
    arguments.insert(arguments.end(), {"--library", at("Scripts")});
    return kelvane(std::move(arguments));
  }
};

TEST_F(List, showsTheLibraryAsATree) {
  EXPECT_EQ(list({}), (Outcome{0,
                               "Talks/\n"
                               "  Old/\n"
                               "    First\n"
                               "  Opening\n"
                               "  Take 2\n"
                               "  Take 10\n"
                               "Zebra\n",
                               ""}));
}

TEST_F(List, showsOneFolder) {
  std::filesystem::create_directory(home / "Scripts/Empty");
  const struct {
    const char* folder;
    Outcome outcome;
  } cases[] = {
      {"Talks", {0, "Old/\n  First\nOpening\nTake 2\nTake 10\n", ""}},
      {"Talks/", {0, "Old/\n  First\nOpening\nTake 2\nTake 10\n", ""}},
      {"Talks/Old", {0, "First\n", ""}},
      {"Empty", {0, "The folder is empty.\n", ""}},
      {"talks", {1, "", "There is no folder \"talks\". Did you mean \"Talks\"?\n"}},
      {"Nowhere", {1, "", "There is no folder \"Nowhere\".\n"}},
      {"Zebra.md", {1, "", "\"Zebra.md\" is a script. Give a folder.\n"}},
  };
  for (const auto& [folder, outcome] : cases) EXPECT_EQ(list({folder}), outcome) << folder;
}

TEST_F(List, saysSoIfTheLibraryIsEmpty) {
  std::filesystem::create_directory(home / "Empty");
  EXPECT_EQ(kelvane({"list", "--library", at("Empty")}), (Outcome{0, "The library is empty.\n", ""}));
  EXPECT_EQ(kelvane({"list", "--json", "--library", at("Empty")}), (Outcome{0, "[]\n", ""}));
}

TEST_F(List, printsJSONForOtherPrograms) {
  EXPECT_EQ(list({"Talks/Old", "--json"}), (Outcome{0,
                                                    R"([{"id":"Talks/Old/First.md","kind":"script","name":"First"}])"
                                                    "\n",
                                                    ""}));
  const auto all = JSON::decoded(list({"--json"}).output);
  ASSERT_TRUE(all && all->items() != nullptr);
  EXPECT_EQ(all->items()->size(), 7u);
}

TEST_F(List, steersNoTerminal) {
  home.put("Scripts/a\x1b[31m.md", "");
  EXPECT_THAT(list({}).output, testing::Not(testing::HasSubstr("\x1b")));
}

TEST_F(List, doesNotRecurse) {
  std::string deep = "Scripts";
  for (int i = 0; i < 400; ++i) deep += "/d";
  std::filesystem::create_directories(home / deep);
  EXPECT_EQ(list({}).status, 0);
}

TEST(Tools, asJSONAreThoseThatTheServerOffers) {
  const Folder library;
  Client client(library.text(), true);
  const JSON result = client.request("tools/list");
  const JSON::Array& offered = *result["tools"]->items();
  const auto printed = JSON::decoded(run({"tools", "--json"}).output);
  ASSERT_TRUE(printed && printed->items() != nullptr);
  ASSERT_EQ(printed->items()->size(), offered.size());
  for (std::size_t i = 0; i < offered.size(); ++i) {
    const JSON& tool = (*printed->items())[i];
    for (const char* key : {"name", "description", "inputSchema"}) EXPECT_EQ(*tool[key], *offered[i][key]);
    EXPECT_EQ(*tool["changesScripts"], JSON(i >= 6));
  }
  client.finish();
}

class Variables : public List {
 protected:
  Outcome with(std::vector<std::string> variables, std::vector<std::string> arguments) const {
    Start how = start(std::move(arguments));
    how.environment.insert(how.environment.end(), variables.begin(), variables.end());
    return run(how);
  }

  std::string scripts() const { return "KELVANE_LIBRARY=" + at("Scripts"); }
};

TEST_F(Variables, standForOptions) {
  std::filesystem::create_directory(home / "Empty");
  EXPECT_EQ(with({scripts()}, {"list", "Talks/Old"}), (Outcome{0, "First\n", ""}));
  EXPECT_EQ(with({scripts()}, {"list", "--library", at("Empty")}), (Outcome{0, "The library is empty.\n", ""}));
  printed({"settings", "library", at("Empty")});
  EXPECT_EQ(with({scripts()}, {"list", "Talks/Old"}), (Outcome{0, "First\n", ""}));
  EXPECT_EQ(with({"KELVANE_LIBRARY="}, {"list"}), (Outcome{0, "The library is empty.\n", ""}));
}

TEST_F(Variables, allowWritingOrForbidIt) {
  const std::vector<std::string> create = {"call", "create_folder", "name=New"};
  const std::string refusal = "The tool \"create_folder\" changes scripts. Add --allow-writes.\n";
  EXPECT_EQ(with({scripts()}, create), (Outcome{2, "", refusal}));
  EXPECT_EQ(with({scripts(), "KELVANE_ALLOW_WRITES="}, create), (Outcome{2, "", refusal}));
  EXPECT_EQ(with({scripts(), "KELVANE_ALLOW_WRITES=0"}, create), (Outcome{2, "", refusal}));
  EXPECT_EQ(with({scripts(), "KELVANE_ALLOW_WRITES=yes"}, create),
            (Outcome{2, "", "The environment variable KELVANE_ALLOW_WRITES is \"yes\". Set it to 1 or 0.\n"}));
  EXPECT_FALSE(std::filesystem::exists(home / "Scripts/New"));
  EXPECT_EQ(with({scripts(), "KELVANE_ALLOW_WRITES=1"}, create).status, 0);
  EXPECT_TRUE(std::filesystem::exists(home / "Scripts/New"));
}

TEST_F(Variables, goBeforeTheSettingsOfAServer) {
  std::filesystem::create_directory(home / "Empty");
  printed({"settings", "library", at("Empty")});
  printed({"settings", "enable"});
  printed({"settings", "allow-writes"});
  const auto answers = [&](std::vector<std::string> variables) {
    Start how = start({});
    how.environment.insert(how.environment.end(), variables.begin(), variables.end());
    const std::string list = R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"list_folders"}})";
    const std::string tools = R"({"jsonrpc":"2.0","id":2,"method":"tools/list"})";
    return run(how, list + '\n' + tools + '\n').output;
  };
  EXPECT_THAT(answers({}), testing::AllOf(testing::HasSubstr("\"[]\""), testing::HasSubstr("update_script")));
  EXPECT_THAT(answers({scripts(), "KELVANE_ALLOW_WRITES=0"}),
              testing::AllOf(testing::HasSubstr("Talks/Old"), testing::Not(testing::HasSubstr("update_script"))));
}

}  // namespace
}  // namespace kelvane::tests
