#include "scripttools/WritingTurn.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <vector>

#include "scripttools/ScriptTools.h"
#include "tests/scripttools/Workbench.h"

namespace kelvane::tests {
namespace {

using Accesses = std::vector<std::string>;

// Each writing tool, with its calls of the library and the history between acquiring and releasing the lock.
const struct {
  std::string_view tool;
  std::string_view arguments;
  Accesses accesses;
} writes[] = {
    {"create_script", R"({"name": "New", "folder": "Scenes"})", {"create New in Scenes"}},
    {"create_script", R"({"name": "New", "text": "x"})", {"create New in the root", "write New.md"}},
    {"create_folder", R"({"name": "New"})", {"createFolder New in the root"}},
    {"rename", R"({"id": "Talk.md", "name": "New"})", {"rename Talk.md to New"}},
    {"save_version", R"({"id": "Talk.md", "note": "n"})", {"readToReplace Talk.md", "snapshot Talk.md as n"}},
    {"update_script",
     R"({"id": "Talk.md", "text": "x", "note": "n"})",
     {"readToReplace Talk.md", "snapshot Talk.md as Before — n", "write Talk.md"}},
    {"update_script",
     R"({"id": "Empty.md", "text": "x", "note": "n"})",
     {"readToReplace Empty.md", "snapshot Empty.md as Before — n", "write Empty.md"}},
    {"append_to_script",
     R"({"id": "Talk.md", "text": "x", "note": "n"})",
     {"readToReplace Talk.md", "snapshot Talk.md as Before — n", "readToReplace Talk.md", "write Talk.md"}},
    {"add_chapter",
     R"({"id": "Talk.md", "title": "x"})",
     {"readToReplace Talk.md", "readToReplace Talk.md", "snapshot Talk.md as Before — added chapter x",
      "write Talk.md"}},
    {"add_chapter",
     R"({"id": "Empty.md", "title": "x"})",
     {"readToReplace Empty.md", "readToReplace Empty.md", "snapshot Empty.md as Before — added chapter x",
      "write Empty.md"}},
    {"rename_chapter",
     R"({"id": "Talk.md", "chapter": "1", "title": "x"})",
     {"readToReplace Talk.md", "readToReplace Talk.md", "snapshot Talk.md as Before — renamed chapter 1",
      "write Talk.md"}},
    {"update_chapter",
     R"({"id": "Talk.md", "chapter": "1", "text": "x"})",
     {"readToReplace Talk.md", "readToReplace Talk.md", "snapshot Talk.md as Before — rewrote chapter 1",
      "write Talk.md"}},
    {"move_chapter",
     R"({"id": "Talk.md", "chapter": "1", "to": "2"})",
     {"readToReplace Talk.md", "readToReplace Talk.md", "snapshot Talk.md as Before — moved chapter 1 to 2",
      "write Talk.md"}},
    {"remove_chapter",
     R"({"id": "Talk.md", "chapter": "1", "keep_text": "no"})",
     {"readToReplace Talk.md", "readToReplace Talk.md", "snapshot Talk.md as Before — removed chapter 1",
      "write Talk.md"}},
};

TEST(WritingTurns, holdTheLockFromTheFirstReadToTheLastWrite) {
  for (const auto& each : writes) {
    SCOPED_TRACE(callOf(each));
    const Workbench bench;
    EXPECT_FALSE(bench.call(each.tool, each.arguments).failed);
    Accesses expected = each.accesses;
    expected.insert(expected.begin(), "lock");
    expected.push_back("unlock");
    EXPECT_EQ(bench.watch->accesses, expected);
  }
}

TEST(WritingTurns, stopAtTheFirstFailureAndReleaseTheLock) {
  for (const auto& each : writes) {
    for (std::size_t failing = 0; failing < each.accesses.size(); ++failing) {
      SCOPED_TRACE(callOf(each) + ", failing to " + each.accesses[failing]);
      const Workbench bench;
      bench.watch->failingAccess = failing + 1;
      EXPECT_EQ(bench.call(each.tool, each.arguments), failed(Watch::failure));
      Accesses expected(each.accesses.begin(), each.accesses.begin() + static_cast<std::ptrdiff_t>(failing) + 1);
      expected.insert(expected.begin(), "lock");
      expected.push_back("unlock");
      EXPECT_EQ(bench.watch->accesses, expected);
      EXPECT_EQ(bench.textOf("Talk.md"), talk);
      EXPECT_EQ(bench.textOf("Empty.md"), "");
    }
  }
}

TEST(WritingTurns, keepTheVersionIfTheWriteFails) {
  const Workbench bench;
  bench.watch->failingAccess = 3;
  EXPECT_EQ(bench.call("update_script", R"({"id": "Talk.md", "text": "x", "note": "n"})"), failed(Watch::failure));
  EXPECT_EQ(bench.labelsOf("Talk.md"), Accesses{"Before — n"});
  EXPECT_EQ(bench.textOf("Talk.md"), talk);
}

TEST(WritingTurns, keepTheNewScriptIfWritingItsTextFails) {
  const Workbench bench;
  bench.watch->failingAccess = 2;
  EXPECT_EQ(bench.call("create_script", R"({"name": "New", "text": "x"})"), failed(Watch::failure));
  EXPECT_EQ(bench.textOf("New.md"), "");
}

TEST(WritingTurns, failWithTheLocksErrorBeforeTheyReadOrChangeAnything) {
  for (const auto& each : writes) {
    SCOPED_TRACE(callOf(each));
    const Workbench bench;
    bench.watch->failingLock = "The library is busy.";
    EXPECT_EQ(bench.call(each.tool, each.arguments), failed("The library is busy."));
    EXPECT_EQ(bench.watch->accesses, Accesses{"lock"});
    EXPECT_EQ(bench.textOf("Talk.md"), talk);
  }
}

TEST(WritingTurns, failWithTheLocksErrorEvenIfNothingWouldChange) {
  const struct {
    std::string_view description, tool, arguments;
  } cases[] = {
      {"the chapter is there already", "move_chapter", R"({"id": "Talk.md", "chapter": "2", "to": "2"})"},
      {"the chapter has that title", "rename_chapter", R"({"id": "Talk.md", "chapter": "2", "title": "Two"})"},
      {"the script is empty", "save_version", R"({"id": "Empty.md", "note": "n"})"},
      {"there is no such chapter", "move_chapter", R"({"id": "Talk.md", "chapter": "9", "to": "2"})"},
  };
  for (const auto& each : cases) {
    const Workbench bench;
    bench.watch->failingLock = "The library is busy.";
    EXPECT_EQ(bench.call(each.tool, each.arguments), failed("The library is busy.")) << each.description;
    EXPECT_EQ(bench.watch->accesses, Accesses{"lock"}) << each.description;
  }
}

TEST(WritingTurns, checkArgumentsAndIdentifiersBeforeTheyAcquireTheLock) {
  const struct {
    std::string_view tool, arguments, message;
  } cases[] = {
      {"create_script", R"({"folder": "Scenes"})", "Missing \"name\""},
      {"create_script", R"({"name": "New", "folder": "None"})", "Nothing at \"None\""},
      {"create_folder", R"({"name": "New", "folder": "Talk.md"})", "\"Talk.md\" is a script, not a folder"},
      {"rename", R"({"name": "New"})", "Missing \"id\""},
      {"rename", R"({"id": "../x", "name": "New"})", "\"../x\" is not inside the library"},
      {"rename", R"({"id": "Talk.md"})", "Missing \"name\""},
      {"save_version", R"({"id": "Talk.md"})", "Missing \"note\""},
      {"update_script", R"({"id": "Scenes", "text": "x", "note": "n"})", "\"Scenes\" is a folder, not a script"},
      {"update_script", R"({"id": "Talk.md", "note": "n"})", "Missing \"text\""},
      {"append_to_script", R"({"id": "None.md", "text": "x", "note": "n"})", "Nothing at \"None.md\""},
      {"append_to_script", R"({"id": "Talk.md", "note": "n"})", "Missing \"text\""},
      {"add_chapter", R"({"id": "None.md", "title": "x"})", "Nothing at \"None.md\""},
      {"move_chapter", R"({"chapter": "1", "to": "2"})", "Missing \"id\""},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(callOf(each));
    const Workbench bench;
    EXPECT_EQ(bench.call(each.tool, each.arguments), failed(each.message));
    EXPECT_EQ(bench.watch->count("lock"), 0U);
  }
}

TEST(WritingTurns, areNotUsedByReadingTools) {
  for (const auto* tool :
       {"list_scripts", "list_folders", "list_versions", "read_script", "list_chapters", "read_chapter"}) {
    SCOPED_TRACE(tool);
    const Workbench bench;
    bench.watch->failingLock = "The library is busy.";
    EXPECT_FALSE(bench.call(tool, R"({"id": "Talk.md", "chapter": "1"})").failed);
    EXPECT_EQ(bench.watch->count("lock"), 0U);
    EXPECT_EQ(bench.watch->accesses.size(), 1U);
  }
}

// A library that has no other writers.
class Lockless : public InMemoryScriptLibrary {
 public:
  using InMemoryScriptLibrary::InMemoryScriptLibrary;
  std::unique_ptr<quorvel::LibraryLock> lock() override { return ScriptLibrary::lock(); }
};

TEST(WritingTurns, workInALibraryThatHasNoLock) {
  const TemporaryFolder folder;
  const auto lockless = std::make_shared<Lockless>(folder.path());
  const auto script = lockless->create("Talk", std::nullopt);
  const auto tools = ScriptTools(lockless, std::make_shared<InMemoryVersionStore>()).tools(true);
  ASSERT_EQ(tools[10].name(), "update_script");
  EXPECT_EQ(tools[10].run(object(R"({"id": "Talk.md", "text": "x", "note": "n"})")),
            R"({"id":"Talk.md","kind":"script","name":"Talk","words":1})");
  EXPECT_EQ(lockless->read(script), "x");
}

TEST(WritingTurns, loseNoTextWhenSeveralThreadsWrite) {
  const Workbench bench;
  const auto tools = ScriptTools(bench.scripts, bench.history).tools(true);
  ASSERT_EQ(tools[11].name(), "append_to_script");
  constexpr int writers = 8, rounds = 25;
  std::vector<std::thread> threads;
  for (int writer = 0; writer < writers; ++writer) {
    threads.emplace_back([&tools, writer] {
      for (int round = 0; round < rounds; ++round) {
        const auto words = "w" + std::to_string(writer) + "r" + std::to_string(round) + ".";
        tools[11].run(JSON::Object{{"id", "Notes.md"}, {"text", words}, {"note", words}});
      }
    });
  }
  for (auto& thread : threads) thread.join();
  const auto text = bench.textOf("Notes.md");
  for (int writer = 0; writer < writers; ++writer) {
    for (int round = 0; round < rounds; ++round) {
      const auto words = "w" + std::to_string(writer) + "r" + std::to_string(round) + ".";
      EXPECT_NE(text.find(words), std::string::npos) << words;
    }
  }
  // Each call saved exactly the text that it then replaced.
  auto texts = bench.keptOf("Notes.md");
  ASSERT_EQ(texts.size(), std::size_t{writers * rounds});
  texts.insert(texts.begin(), text);
  for (std::size_t index = 1; index < texts.size(); ++index) {
    EXPECT_TRUE(texts[index - 1].starts_with(texts[index] + "\n\nw")) << index;
  }
}

// A turn cannot be copied or moved: it belongs to one call.
static_assert(!std::is_copy_constructible_v<WritingTurn> && !std::is_copy_assignable_v<WritingTurn>);
static_assert(!std::is_move_constructible_v<WritingTurn> && !std::is_move_assignable_v<WritingTurn>);

}  // namespace
}  // namespace kelvane::tests
