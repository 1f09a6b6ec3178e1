#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "scripttools/ScriptTools.h"
#include "tests/scripttools/Workbench.h"

namespace kelvane::tests {
namespace {

using namespace std::string_literals;
using Texts = std::vector<std::string>;

using LibraryWritingTools = WorkbenchTest;

TEST_F(LibraryWritingTools, createAScript) {
  const struct {
    std::string_view description;
    std::string_view arguments;
    std::string_view reply;
    std::string file;
    std::string_view text;
    std::size_t writes;
  } cases[] = {
      {"at the top level", R"({"name": "New"})", R"({"id":"New.md","kind":"script","name":"New"})", "New.md", "", 0},
      {"with its opening text", R"({"name": "Open", "text": " Hello \n"})",
       R"({"id":"Open.md","kind":"script","name":"Open"})", "Open.md", " Hello \n", 1},
      {"in a folder", R"({"name": "New", "folder": "Scenes/Deep", "text": "x"})",
       R"({"id":"Scenes/Deep/New.md","kind":"script","name":"New"})", "Scenes/Deep/New.md", "x", 1},
      {"in a folder called otherwise", R"({"name": "Other", "folder": "./Scenes//"})",
       R"({"id":"Scenes/Other.md","kind":"script","name":"Other"})", "Scenes/Other.md", "", 0},
      {"with a name that is already used", R"({"name": "Talk"})",
       R"({"id":"Talk 2.md","kind":"script","name":"Talk 2"})", "Talk 2.md", "", 0},
      {"with an empty text, which is ignored", R"({"name": "A", "text": ""})",
       R"({"id":"A.md","kind":"script","name":"A"})", "A.md", "", 0},
      {"with a text that is not a string", R"({"name": "B", "text": 5})", R"({"id":"B.md","kind":"script","name":"B"})",
       "B.md", "", 0},
      {"with an empty folder, the top level", R"({"name": "C", "folder": ""})",
       R"({"id":"C.md","kind":"script","name":"C"})", "C.md", "", 0},
      {"with a folder that is not a string", R"({"name": "D", "folder": 7})",
       R"({"id":"D.md","kind":"script","name":"D"})", "D.md", "", 0},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.description);
    watch->accesses.clear();
    EXPECT_EQ(call("create_script", each.arguments), answered(each.reply));
    EXPECT_EQ(textOf(each.file), each.text);
    EXPECT_EQ(watch->count("write"), each.writes);
    EXPECT_EQ(watch->count("snapshot"), 0U);
  }
  EXPECT_EQ(textOf("Talk.md"), talk);
}

TEST_F(LibraryWritingTools, createAFolder) {
  const struct {
    std::string_view arguments;
    std::string_view reply;
    std::string_view folder;
  } cases[] = {
      {R"({"name": "New"})", R"({"id":"New","kind":"folder","name":"New"})", "New"},
      {R"({"name": "New"})", R"({"id":"New 2","kind":"folder","name":"New 2"})", "New 2"},
      {R"({"name": "In", "folder": "Scenes/Deep"})", R"({"id":"Scenes/Deep/In","kind":"folder","name":"In"})",
       "Scenes/Deep/In"},
      {R"({"name": "Top", "folder": ""})", R"({"id":"Top","kind":"folder","name":"Top"})", "Top"},
      {R"({"name": "Up", "folder": false, "text": "x"})", R"({"id":"Up","kind":"folder","name":"Up"})", "Up"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.arguments);
    EXPECT_EQ(call("create_folder", each.arguments), answered(each.reply));
    EXPECT_TRUE(std::filesystem::is_directory(root / each.folder));
  }
  EXPECT_EQ(watch->count("write") + watch->count("snapshot"), 0U);
}

TEST_F(LibraryWritingTools, renameScriptsAndFolders) {
  EXPECT_EQ(call("rename", R"({"id": "Talk.md", "name": "Speech"})"),
            answered(R"({"id":"Speech.md","kind":"script","name":"Speech"})"));
  EXPECT_EQ(textOf("Speech.md"), talk);
  EXPECT_EQ(call("rename", R"({"id": "Scenes/Deep", "name": "Deeper \"still\""})"),
            answered(R"({"id":"Scenes/Deeper \"still\"","kind":"folder","name":"Deeper \"still\""})"));
  EXPECT_EQ(call("rename", R"({"id": "Scenes/", "name": "Songs"})"),
            answered(R"({"id":"Songs 2","kind":"folder","name":"Songs 2"})"));
  EXPECT_EQ(call("read_script", R"({"id": "Songs 2/Deeper \"still\"/Middle.md"})"), answered("Only words."));
  EXPECT_EQ(call("read_script", R"({"id": "Scenes/Intro.md"})"), failed("Nothing at \"Scenes/Intro.md\""));
  EXPECT_EQ(watch->count("write") + watch->count("snapshot"), 0U);
}

TEST_F(LibraryWritingTools, saveAVersionNamedByTheNoteAlone) {
  EXPECT_EQ(call("save_version", R"({"id": "./Notes.md", "note": " the long version "})"),
            answered(R"({"id":"Notes.md","name":" the long version ","saved":"2025-03-01 14:05:09","words":10})"));
  EXPECT_EQ(call("save_version", R"({"id": "Notes.md", "note": "again"})"),
            answered(R"({"id":"Notes.md","name":"again","saved":"2025-03-01 14:06:09","words":10})"));
  EXPECT_EQ(labelsOf("Notes.md"), (Texts{"again", " the long version "}));
  EXPECT_EQ(keptOf("Notes.md"), Texts(2, textOf("Notes.md")));
  EXPECT_EQ(watch->count("write"), 0U);
}

TEST_F(LibraryWritingTools, updateAScriptAndSaveTheOldTextAsAVersion) {
  EXPECT_EQ(call("update_script", R"({"id": "Talk.md", "text": "one  two\nthree", "note": "cut \"it\""})"),
            answered(R"({"id":"Talk.md","kind":"script","name":"Talk","words":3})"));
  EXPECT_EQ(textOf("Talk.md"), "one  two\nthree");
  EXPECT_EQ(labelsOf("Talk.md"), Texts{"Before — cut \"it\""});
  EXPECT_EQ(keptOf("Talk.md"), Texts{std::string(talk)});
}

TEST_F(LibraryWritingTools, updateAScriptEvenWithTheSameText) {
  const auto arguments = JSON::Object{{"id", "Talk.md"}, {"text", talk}, {"note", "n"}};
  EXPECT_FALSE(call("update_script", arguments).failed);
  EXPECT_EQ(watch->count("write Talk.md"), 1U);
  EXPECT_EQ(labelsOf("Talk.md"), Texts{"Before — n"});
}

TEST_F(LibraryWritingTools, updateAnEmptyScriptWithoutSavingAVersion) {
  EXPECT_EQ(call("update_script", R"({"id": "Empty.md", "text": "a b", "note": "n"})"),
            answered(R"({"id":"Empty.md","kind":"script","name":"Empty","words":2})"));
  EXPECT_EQ(textOf("Empty.md"), "a b");
  EXPECT_TRUE(labelsOf("Empty.md").empty());
}

TEST_F(LibraryWritingTools, appendAfterAnEmptyLineAndCountTheWholeText) {
  EXPECT_EQ(call("append_to_script", R"({"id": "Notes.md", "text": "eleven twelve thirteen", "note": "more"})"),
            answered(R"({"id":"Notes.md","kind":"script","name":"Notes","words":13})"));
  EXPECT_EQ(textOf("Notes.md"), "one two three four five six seven eight nine ten\n\neleven twelve thirteen");
  EXPECT_EQ(labelsOf("Notes.md"), Texts{"Before — more"});
  EXPECT_EQ(call("append_to_script", R"({"id": "Empty.md", "text": "first", "note": "more"})"),
            answered(R"({"id":"Empty.md","kind":"script","name":"Empty","words":1})"));
  EXPECT_TRUE(labelsOf("Empty.md").empty());
}

// Longer than any buffer between the tool and the version store.
TEST_F(LibraryWritingTools, saveLongNotesWholeAndCountLongTextsWhole) {
  for (const std::size_t words : {50U, 250U, 1'000U, 5'000U, 50'000U}) {
    SCOPED_TRACE(words);
    const Workbench bench;
    std::string text;
    for (std::size_t word = 0; word < words; ++word) text += "w\u00F6rd ";
    const auto summary = [](std::size_t count) {
      return answered(R"({"id":"Notes.md","kind":"script","name":"Notes","words":)" + std::to_string(count) + "}");
    };
    const JSON::Object arguments{{"id", "Notes.md"}, {"text", text}, {"note", text}};
    EXPECT_EQ(bench.call("append_to_script", arguments), summary(10 + words));
    EXPECT_EQ(bench.call("update_script", arguments), summary(words));
    EXPECT_EQ(bench.call("save_version", arguments), answered(JSON(JSON::Object{{"id", "Notes.md"},
                                                                                {"name", text},
                                                                                {"saved", "2025-03-01 14:07:09"},
                                                                                {"words", static_cast<double>(words)}})
                                                                  .encoded()));
    EXPECT_EQ(bench.labelsOf("Notes.md"), (Texts{text, "Before — " + text, "Before — " + text}));
  }
}

// A library that is reached through a link.
class LinkedLibrary : public WatchedLibrary {
 public:
  LinkedLibrary(std::shared_ptr<quorvel::ScriptLibrary> library, std::shared_ptr<Watch> watch,
                std::filesystem::path root)
      : WatchedLibrary(std::move(library), std::move(watch)), root_(std::move(root)) {}
  const std::filesystem::path& root() const noexcept override { return root_; }

 private:
  const std::filesystem::path root_;
};

// A history that records the paths that it is asked for.
class Paths : public quorvel::VersionStore {
 public:
  std::optional<quorvel::ScriptVersion> snapshot(std::string_view, const std::filesystem::path& script,
                                                 std::string_view label) override {
    paths.push_back(script.native());
    return quorvel::ScriptVersion{{}, std::string(label), 0};
  }
  std::vector<quorvel::ScriptVersion> versions(const std::filesystem::path& script) const override {
    paths.push_back(script.native());
    return {};
  }

  mutable Texts paths;
};

TEST_F(LibraryWritingTools, saveVersionsUnderTheRootWithItsLinks) {
  const auto link = folder.path() / "link";
  std::filesystem::create_directory_symlink(root, link);
  std::filesystem::create_symlink("Talk.md", root / "alias.md");
  const auto paths = std::make_shared<Paths>();
  const auto linked = ScriptTools(std::make_shared<LinkedLibrary>(scripts, watch, link), paths).tools(true);
  const auto arguments = [](std::string_view id) {
    return JSON::Object{{"id", id},       {"text", "t"}, {"note", "n"},       {"title", "t"},
                        {"chapter", "1"}, {"to", "2"},   {"keep_text", "yes"}};
  };
  for (const Tool& tool : linked) {
    const bool keeps = tool.name() == "list_versions" || tool.name() == "save_version" ||
                       tool.name().ends_with("_chapter") || tool.name().ends_with("_to_script") ||
                       tool.name() == "update_script";
    if (!keeps || tool.name() == "read_chapter") continue;
    for (const std::string_view id : {"Talk.md", "./Talk.md", "alias.md"}) {
      SCOPED_TRACE(std::string(tool.name()) + " " + std::string(id));
      put("Talk.md", talk);
      paths->paths.clear();
      tool.run(arguments(id));
      EXPECT_EQ(paths->paths, Texts{link.native() + "/Talk.md"});
    }
  }
}

TEST_F(LibraryWritingTools, saveTextsAndNotesByteForByte) {
  const auto odd = "a\0 b\xff\r\n\xe2\x80"s;
  EXPECT_EQ(call("update_script", JSON::Object{{"id", "Talk.md"}, {"text", odd}, {"note", odd}}),
            answered(R"({"id":"Talk.md","kind":"script","name":"Talk","words":3})"));
  EXPECT_EQ(textOf("Talk.md"), odd);
  EXPECT_EQ(labelsOf("Talk.md"), Texts{"Before — " + odd});
  EXPECT_EQ(labelsOf("Talk.md").front().substr(0, 11), "Before \xe2\x80\x94 ");
}

TEST_F(LibraryWritingTools, countRunsOfCharactersBetweenWhiteSpaceAsWords) {
  const struct {
    std::string_view description;
    std::string text;
    int words;
  } cases[] = {
      {"spaces only", "  \n", 0},
      {"several spaces", "one  two\nthree", 3},
      {"headings count", "# One\n\ntwo", 3},
      {"a space with a combining mark is white space",
       "a \xcc\x81"
       "b",
       2},
      {"a line break of two characters", "a\r\nb", 2},
      {"a no-break space",
       "a\xc2\xa0"
       "b",
       2},
      {"an ideographic space",
       "a\xe3\x80\x80"
       "b",
       2},
      {"a zero width space is not white space",
       "a\xe2\x80\x8b"
       "b",
       1},
      {"a space after a prepended mark belongs to it", "a\xd8\x80 b", 1},
      {"bytes that are not UTF-8", "\xff \xff", 2},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.description);
    EXPECT_EQ(call("update_script", JSON::Object{{"id", "Talk.md"}, {"text", each.text}, {"note", "n"}}),
              answered(R"({"id":"Talk.md","kind":"script","name":"Talk","words":)" + std::to_string(each.words) + "}"));
  }
}

TEST_F(LibraryWritingTools, workOnTheTargetOfALink) {
  std::filesystem::create_symlink("Talk.md", root / "alias.md");
  EXPECT_EQ(call("update_script", R"({"id": "alias.md", "text": "x", "note": "n"})"),
            answered(R"({"id":"Talk.md","kind":"script","name":"Talk","words":1})"));
  EXPECT_EQ(labelsOf("Talk.md"), Texts{"Before — n"});
  EXPECT_TRUE(std::filesystem::is_symlink(root / "alias.md"));
}

}  // namespace
}  // namespace kelvane::tests
