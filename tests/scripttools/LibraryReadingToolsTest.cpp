#include "scripttools/LibraryReadingTools.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/FreeMemory.h"
#include "protocol/Server.h"
#include "tests/scripttools/Workbench.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Memory.h"
#include "tests/support/SmallStack.h"

namespace kelvane::tests {
namespace {

using namespace std::string_literals;
using quorvel::ScriptItem;
using quorvel::ScriptVersion;

// A library that lists the items that a test gives it.
class TalkingLibrary : public InMemoryScriptLibrary {
 public:
  explicit TalkingLibrary(std::function<std::vector<ScriptItem>()> items)
      : InMemoryScriptLibrary("/nonexistent"), items_(std::move(items)) {}
  std::vector<ScriptItem> contents(const std::filesystem::path&) const override { return items_(); }

 private:
  std::function<std::vector<ScriptItem>()> items_;
};

using LibraryReadingTools = WorkbenchTest;

TEST_F(LibraryReadingTools, listTheLibraryAsATree) {
  EXPECT_EQ(call("list_scripts", "{}"),
            answered(R"([{"children":[)"
                     R"({"children":[)"
                     R"({"children":[{"id":"Scenes/Deep/Deeper/End.md","kind":"script","name":"End"}],)"
                     R"("id":"Scenes/Deep/Deeper","kind":"folder","name":"Deeper"},)"
                     R"({"id":"Scenes/Deep/Middle.md","kind":"script","name":"Middle"}],)"
                     R"("id":"Scenes/Deep","kind":"folder","name":"Deep"},)"
                     R"({"id":"Scenes/Intro.md","kind":"script","name":"Intro"}],)"
                     R"("id":"Scenes","kind":"folder","name":"Scenes"},)"
                     R"({"children":[],"id":"Songs","kind":"folder","name":"Songs"},)"
                     R"({"id":"Empty.md","kind":"script","name":"Empty"},)"
                     R"({"id":"Notes.md","kind":"script","name":"Notes"},)"
                     R"({"id":"Talk.md","kind":"script","name":"Talk"}])"));
}

TEST_F(LibraryReadingTools, listEachFolderBeforeTheFoldersInItAndThenItsSiblings) {
  EXPECT_EQ(call("list_folders", "{}"), answered(R"([{"id":"Scenes","name":"Scenes"},)"
                                                 R"({"id":"Scenes/Deep","name":"Deep"},)"
                                                 R"({"id":"Scenes/Deep/Deeper","name":"Deeper"},)"
                                                 R"({"id":"Songs","name":"Songs"}])"));
}

TEST_F(LibraryReadingTools, listAnEmptyLibraryAsAnEmptyArray) {
  const auto empty = std::make_shared<TalkingLibrary>([] { return std::vector<ScriptItem>(); });
  EXPECT_EQ(listScripts(empty).run({}), "[]");
  EXPECT_EQ(listFolders(empty).run({}), "[]");
}

TEST_F(LibraryReadingTools, listTheFoldersOfALibraryWithoutFoldersAsAnEmptyArray) {
  const auto flat = std::make_shared<TalkingLibrary>([] {
    return std::vector<ScriptItem>{{"a.md", "a", ScriptItem::Kind::script, std::nullopt}};
  });
  EXPECT_EQ(listFolders(flat).run({}), "[]");
}

TEST_F(LibraryReadingTools, listAndIgnoreAllArguments) {
  const auto arguments = R"({"id": "/etc", "folder": 5})";
  EXPECT_EQ(call("list_scripts", arguments), call("list_scripts", "{}"));
  EXPECT_EQ(call("list_folders", arguments), call("list_folders", "{}"));
}

TEST_F(LibraryReadingTools, listInTheLibrarysOrderWithChildrenForFoldersOnly) {
  const auto talking = std::make_shared<TalkingLibrary>([] {
    using enum ScriptItem::Kind;
    return std::vector<ScriptItem>{
        {"z.md", "z", script, std::nullopt},
        {"b", "b", folder, std::vector<ScriptItem>{{"b/y", "y", folder, std::nullopt}, {"b/x.md", "x", script, {}}}},
        {"a", "a", folder, std::vector<ScriptItem>{}}};
  });
  EXPECT_EQ(listScripts(talking).run({}),
            R"([{"id":"z.md","kind":"script","name":"z"},)"
            R"({"children":[{"id":"b/y","kind":"folder","name":"y"},{"id":"b/x.md","kind":"script","name":"x"}],)"
            R"("id":"b","kind":"folder","name":"b"},)"
            R"({"children":[],"id":"a","kind":"folder","name":"a"}])");
  EXPECT_EQ(listFolders(talking).run({}), R"([{"id":"b","name":"b"},{"id":"b/y","name":"y"},{"id":"a","name":"a"}])");
}

TEST_F(LibraryReadingTools, listNamesOfAnyBytesInAReplyAsInATextAlone) {
  const std::vector<std::string> names = {"",
                                          "\"",
                                          "\\",
                                          "\x01\x1f",
                                          "line\nbreak",
                                          "caf\xc3\xa9",
                                          "\xff\xc3",
                                          "\xe2\x82",
                                          std::string(3, '\0'),
                                          std::string(10000, '"')};
  const auto talking = std::make_shared<TalkingLibrary>([&] {
    std::vector<ScriptItem> items;
    for (const std::string& name : names) {
      items.push_back({name + ".md", name, ScriptItem::Kind::script, std::nullopt});
      items.push_back({name, name, ScriptItem::Kind::folder, items});
    }
    return items;
  });
  const Tool tool = listScripts(talking);
  const std::string text = tool.run({});
  const auto decoded = JSON::decoded(text);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->encoded(), text) << "it is written as it is encoded";
  ASSERT_EQ(decoded->items()->size(), 2 * names.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    const JSON& entry = (*decoded->items())[2 * i + 1];
    EXPECT_EQ(entry["id"]->encoded(), JSON(names[i]).encoded());
    EXPECT_EQ(entry["name"]->encoded(), JSON(names[i]).encoded());
    EXPECT_EQ(entry["children"]->items()->size(), 2 * i + 1);
  }
  const Server server("s", {tool});
  EXPECT_EQ(server.handle(R"({"id":1,"method":"tools/call","params":{"name":"list_scripts"}})"),
            R"({"id":1,"jsonrpc":"2.0","result":)" + toolResult(text, false).encoded() + "}");
}

TEST_F(LibraryReadingTools, listInTheMemoryOfTheItemsAndLittleMore) {
  const auto talking = std::make_shared<TalkingLibrary>([] {
    std::vector<ScriptItem> items;
    for (int number = 0; number < 5000; ++number) {
      const std::string id = "A folder among many others " + std::to_string(number);
      std::vector<ScriptItem> inside;
      for (int script = 0; script < 20; ++script) {
        const std::string name = "A script of the usual length " + std::to_string(script);
        inside.push_back({id + '/' + name + ".md", name, ScriptItem::Kind::script, std::nullopt});
      }
      items.push_back({id, id, ScriptItem::Kind::folder, std::move(inside)});
    }
    return items;
  });
  const Server server("s", {listScripts(talking)});
  if (!memoryCanBeTold() || !forgetPeakOfMemory() || !returnFreeMemory()) {
    GTEST_SKIP() << "Memory is not given back or not told here.";
  }
  // In a process of its own, which has no free memory to begin with that other tests left.
  const std::string most = inChild([&] {
    returnFreeMemory();
    forgetPeakOfMemory();
    const std::size_t before = residentMemory();
    const std::vector<ScriptItem> items = talking->contents("");
    return std::to_string(peakOfMemory() - before);
  });
  const std::string listed = inChild([&] {
    returnFreeMemory();
    forgetPeakOfMemory();
    const std::size_t before = residentMemory();
    const auto reply = server.handle(R"({"id":1,"method":"tools/call","params":{"name":"list_scripts"}})");
    return std::to_string(peakOfMemory() - before) + ' ' + std::to_string(reply->size());
  });
  std::size_t items = std::stoul(most), peak = 0, reply = 0;
  std::istringstream(listed) >> peak >> reply;
  EXPECT_GT(items, reply) << "the memory was seen";
  EXPECT_GT(peak, items);
  EXPECT_LT(peak, items + reply / 2) << "the reply takes the place of the items that are in it";
}

TEST_F(LibraryReadingTools, listLibrariesOfAnyDepthOnASmallStack) {
  constexpr std::size_t depth = 100000;
  const auto talking = std::make_shared<TalkingLibrary>([] {
    std::vector<ScriptItem> items;
    for (std::size_t level = 0; level < depth; ++level) {
      ScriptItem above{"f", "f", ScriptItem::Kind::folder, std::move(items)};
      items.clear();
      items.push_back(std::move(above));
    }
    return items;
  });
  std::string tree, flat;
  tests::onSmallStack([&] {
    tree = listScripts(talking).run({});
    flat = listFolders(talking).run({});
  });
  constexpr std::string_view level = R"({"children":[],"id":"f","kind":"folder","name":"f"})";
  constexpr std::string_view entry = R"({"id":"f","name":"f"},)";
  EXPECT_EQ(tree.size(), depth * level.size() + 2);
  EXPECT_TRUE(tree.starts_with(R"([{"children":[{"children":[)"));
  EXPECT_EQ(flat.size(), depth * entry.size() + 1);
}

TEST_F(LibraryReadingTools, readAScriptByteForByte) {
  EXPECT_EQ(call("read_script", R"({"id": "Talk.md"})"), answered(talk));
  EXPECT_EQ(call("read_script", R"({"id": "Empty.md"})"), answered(""));
  const auto bytes = "\xef\xbb\xbf \r\n\0\xff\x80 end \n\n"s;
  put("Bytes.md", bytes);
  EXPECT_EQ(call("read_script", R"({"id": "Bytes.md"})"), answered(bytes));
  EXPECT_EQ(call("read_script", R"({"id": "Scenes//Deep/./Middle.md"})"), answered("Only words."));
}

TEST_F(LibraryReadingTools, listVersionsNewestFirst) {
  EXPECT_EQ(call("list_versions", R"({"id": "Talk.md"})"), answered("[]"));
  history->snapshot("one two", root / "Talk.md", "first");
  history->snapshot("one \"two\" three", root / "Talk.md", "second \"note\"/\n");
  history->snapshot("other", root / "Notes.md", "other");
  EXPECT_EQ(call("list_versions", R"({"id": "./Talk.md"})"),
            answered(R"([{"name":"second \"note\"/\n","saved":"2025-03-01 14:06:09","words":3},)"
                     R"({"name":"first","saved":"2025-03-01 14:05:09","words":2}])"));
}

TEST_F(LibraryReadingTools, lookForVersionsBelowTheRootWithItsLinks) {
  class Remembering : public InMemoryVersionStore {
   public:
    std::vector<ScriptVersion> versions(const std::filesystem::path& script) const override {
      asked = script;
      return {};
    }
    mutable std::filesystem::path asked;
  };
  std::filesystem::create_directory_symlink(root, folder.path() / "link");
  class Linked : public InMemoryScriptLibrary {
   public:
    using InMemoryScriptLibrary::InMemoryScriptLibrary;
    std::string identifier(const std::filesystem::path&) const override { return "Scenes/Intro.md"; }
  };
  const auto store = std::make_shared<Remembering>();
  const auto tool = listVersions(std::make_shared<Linked>(folder.path() / "link"), store);
  EXPECT_EQ(tool.run(object(R"({"id": "Scenes//Intro.md"})")), "[]");
  EXPECT_EQ(store->asked, folder.path() / "link/Scenes/Intro.md");
}

TEST_F(LibraryReadingTools, reportTheWordCountThatTheVersionStoreReturned) {
  class Miscounting : public InMemoryVersionStore {
    std::vector<ScriptVersion> versions(const std::filesystem::path&) const override {
      return {{std::chrono::system_clock::time_point(), "", 123456}};
    }
  };
  const auto tool = listVersions(library, std::make_shared<Miscounting>());
  EXPECT_EQ(tool.run(object(R"({"id": "Talk.md"})")), R"([{"name":"","saved":"1970-01-01 00:00:00","words":123456}])");
}

TEST_F(LibraryReadingTools, reportErrorsOfTheLibraryAndTheHistoryUnchanged) {
  for (const auto* tool : {"list_scripts", "list_folders", "list_versions", "read_script"}) {
    SCOPED_TRACE(tool);
    watch->accesses.clear();
    watch->failingAccess = 0;
    EXPECT_EQ(call(tool, R"({"id": "Talk.md"})"), failed(Watch::failure));
  }
}

}  // namespace
}  // namespace kelvane::tests
