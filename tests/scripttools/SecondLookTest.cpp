// What happens if other programs change the library while a writing tool waits for the lock.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "tests/scripttools/Workbench.h"

namespace kelvane::tests {
namespace {

using Accesses = std::vector<std::string>;

void relink(const std::filesystem::path& link, const std::filesystem::path& target) {
  std::filesystem::remove(link);
  std::filesystem::create_symlink(target, link);
}

// Each writing tool with the identifier of a link. "Way.md" leads to Talk.md and "Way" to Scenes, until another program
// changes them to Other.md and Songs.
const struct {
  std::string_view tool;
  std::string_view arguments;
  Accesses accesses;
} calls[] = {
    {"create_script", R"({"name": "New", "folder": "Way"})", {"create New in Songs"}},
    {"create_folder", R"({"name": "New", "folder": "Way"})", {"createFolder New in Songs"}},
    {"rename", R"({"id": "Way", "name": "New"})", {"rename Songs to New"}},
    {"rename", R"({"id": "Way.md", "name": "New"})", {"rename Other.md to New"}},
    {"save_version", R"({"id": "Way.md", "note": "n"})", {"readToReplace Other.md", "snapshot Other.md as n"}},
    {"update_script",
     R"({"id": "Way.md", "text": "x", "note": "n"})",
     {"readToReplace Other.md", "snapshot Other.md as Before — n", "write Other.md"}},
    {"append_to_script",
     R"({"id": "Way.md", "text": "x", "note": "n"})",
     {"readToReplace Other.md", "snapshot Other.md as Before — n", "readToReplace Other.md", "write Other.md"}},
    {"add_chapter",
     R"({"id": "Way.md", "title": "x"})",
     {"readToReplace Other.md", "readToReplace Other.md", "snapshot Other.md as Before — added chapter x",
      "write Other.md"}},
    {"rename_chapter",
     R"({"id": "Way.md", "chapter": "1", "title": "x"})",
     {"readToReplace Other.md", "readToReplace Other.md", "snapshot Other.md as Before — renamed chapter 1",
      "write Other.md"}},
    {"update_chapter",
     R"({"id": "Way.md", "chapter": "1", "text": "x"})",
     {"readToReplace Other.md", "readToReplace Other.md", "snapshot Other.md as Before — rewrote chapter 1",
      "write Other.md"}},
    {"move_chapter",
     R"({"id": "Way.md", "chapter": "1", "to": "2"})",
     {"readToReplace Other.md", "readToReplace Other.md", "snapshot Other.md as Before — moved chapter 1 to 2",
      "write Other.md"}},
    {"remove_chapter",
     R"({"id": "Way.md", "chapter": "1", "keep_text": "no"})",
     {"readToReplace Other.md", "readToReplace Other.md", "snapshot Other.md as Before — removed chapter 1",
      "write Other.md"}},
};

struct Bench : Workbench {
  Bench() {
    put("Other.md", "# Another one\n\na\n\n# Another two\n");
    relink(root / "Way.md", "Talk.md");
    relink(root / "Way", "Scenes");
  }
};

TEST(TheSecondResolution, decidesWhichItemIsChanged) {
  for (const auto& each : calls) {
    SCOPED_TRACE(callOf(each));
    const Bench bench;
    bench.watch->meanwhile = [&] {
      relink(bench.root / "Way.md", "Other.md");
      relink(bench.root / "Way", "Songs");
    };
    const Answer answer = bench.call(each.tool, each.arguments);
    EXPECT_FALSE(answer.failed) << answer;
    Accesses expected = each.accesses;
    expected.insert(expected.begin(), "lock");
    expected.push_back("unlock");
    EXPECT_EQ(bench.watch->accesses, expected);
    EXPECT_EQ(bench.textOf("Talk.md"), talk);
    EXPECT_TRUE(bench.labelsOf("Talk.md").empty());
  }
}

TEST(TheSecondResolution, refusesAnItemThatOthersChangedMeanwhile) {
  using std::filesystem::path;
  const struct {
    std::string_view description;
    void (*meanwhile)(const path& root);
    std::string_view ofAScript, ofAFolder, ofEither;  // what is said to tools that work on one
  } cases[] = {
      {"they are gone",
       [](const path& root) {
         std::filesystem::remove(root / "Way.md");
         std::filesystem::remove(root / "Way");
       },
       "Nothing at \"%\"", "Nothing at \"%\"", "Nothing at \"%\""},
      {"they lead out",
       [](const path& root) {
         relink(root / "Way.md", "..");
         relink(root / "Way", "..");
       },
       "\"%\" is not inside the library", "\"%\" is not inside the library", "\"%\" is not inside the library"},
      {"they are of the other kind",
       [](const path& root) {
         relink(root / "Way.md", "Scenes");
         relink(root / "Way", "Talk.md");
       },
       "\"%\" is a folder, not a script", "\"%\" is a script, not a folder", ""},
      {"they are not scripts",
       [](const path& root) {
         relink(root / "Way.md", "README");
         relink(root / "Way", "README");
       },
       "\"%\" is not a script", "\"%\" is not a script", "\"%\" is not a script"},
  };
  for (const auto& each : cases) {
    for (const auto& made : calls) {
      SCOPED_TRACE(std::string(each.description) + ": " + callOf(made));
      const bool isEither = made.tool == "rename", isFolder = made.tool.starts_with("create_");
      std::string message(isEither ? each.ofEither : isFolder ? each.ofAFolder : each.ofAScript);
      if (message.empty()) continue;  // either kind can be renamed
      const bool isFile = made.arguments.find("Way.md") != std::string_view::npos;
      message.replace(message.find('%'), 1, isFile ? "Way.md" : "Way");
      const Bench bench;
      bench.watch->meanwhile = [&] { each.meanwhile(bench.root); };
      EXPECT_EQ(bench.call(made.tool, made.arguments), failed(message));
      EXPECT_EQ(bench.watch->accesses, (Accesses{"lock", "unlock"}));
    }
  }
}

}  // namespace
}  // namespace kelvane::tests
