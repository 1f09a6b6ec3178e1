#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "quorvel/library/FolderLibrary.h"
#include "tests/support/InMemoryScriptLibrary.h"
#include "tests/support/TemporaryFolder.h"

namespace quorvel {
namespace {

using Kind = ScriptItem::Kind;
using kelvane::tests::InMemoryScriptLibrary;
using ::testing::ElementsAre;

struct Implementation {
  const char* name;
  std::function<std::unique_ptr<ScriptLibrary>(const std::filesystem::path& root)> make;

  friend void PrintTo(const Implementation& row, std::ostream* out) { *out << row.name; }
};

constexpr std::chrono::milliseconds patience(20);

// What every script library promises, whatever it is made of.
class ScriptLibraryContract : public ::testing::TestWithParam<Implementation> {
 protected:
  static std::vector<std::string> identifiers(const std::vector<ScriptItem>& items) {
    std::vector<std::string> all;
    for (const ScriptItem& item : items) {
      all.push_back(item.identifier);
      if (item.children) {
        for (auto& below : identifiers(*item.children)) all.push_back(std::move(below));
      }
    }
    return all;
  }
  std::vector<std::string> identifiers() const { return identifiers(library->contents(library->root())); }

  const kelvane::tests::TemporaryFolder folder;
  const std::unique_ptr<ScriptLibrary> library = GetParam().make(folder.path());
};

TEST_P(ScriptLibraryContract, aNewLibraryIsEmpty) {
  EXPECT_THAT(library->contents(library->root()), ElementsAre());
  EXPECT_EQ(library->fileExtension(), "md");
}

TEST_P(ScriptLibraryContract, aNewScriptIsEmptyAndHasItsExtensionInItsIdentifierOnly) {
  const ScriptItem made = library->create("Talk", std::nullopt);
  EXPECT_EQ(made, (ScriptItem{"Talk.md", "Talk", Kind::script, std::nullopt}));
  EXPECT_EQ(library->read(made), "");
  EXPECT_THAT(library->contents(library->root()), ElementsAre(made));
}

TEST_P(ScriptLibraryContract, aNewFolderIsListedWithoutChildren) {
  const ScriptItem made = library->createFolder("Scenes", std::nullopt);
  EXPECT_EQ(made, (ScriptItem{"Scenes", "Scenes", Kind::folder, std::nullopt}));
  const auto items = library->contents(library->root());
  ASSERT_EQ(items.size(), 1U);
  EXPECT_THAT(items[0].children, ::testing::Optional(ElementsAre()));
}

TEST_P(ScriptLibraryContract, thingsAreMadeInTheFolderNamed) {
  const auto outer = library->createFolder("Scenes", std::nullopt);
  const auto inner = library->createFolder("Deep", outer.identifier);
  const auto script = library->create("End", inner.identifier);
  EXPECT_EQ(script, (ScriptItem{"Scenes/Deep/End.md", "End", Kind::script, std::nullopt}));
  EXPECT_THAT(identifiers(), ElementsAre("Scenes", "Scenes/Deep", "Scenes/Deep/End.md"));
  EXPECT_THAT(identifiers(library->contents(library->root() / "Scenes")),
              ElementsAre("Scenes/Deep", "Scenes/Deep/End.md"));
}

TEST_P(ScriptLibraryContract, whatIsWrittenIsReadByteForByte) {
  const auto script = library->create("Talk", std::nullopt);
  using namespace std::string_view_literals;
  for (const std::string_view text :
       {"one"sv, ""sv, "\xEF\xBB\xBF# a\r\nb\n"sv, "\xFF\0\xC3"sv, "longer than before"sv}) {
    library->write(text, script);
    EXPECT_EQ(library->read(script), text);
  }
}

TEST_P(ScriptLibraryContract, aUsedNameGetsTheNextNumber) {
  std::vector<std::string> names;
  for (int count = 0; count < 4; ++count) names.push_back(library->create("Talk", std::nullopt).name);
  EXPECT_THAT(names, ElementsAre("Talk", "Talk 2", "Talk 3", "Talk 4"));
  EXPECT_EQ(library->createFolder("Talk", std::nullopt).name, "Talk");
  EXPECT_EQ(library->createFolder("Talk", std::nullopt).name, "Talk 2");
  EXPECT_EQ(library->create("Talk 2", std::nullopt).name, "Talk 2 2");
}

TEST_P(ScriptLibraryContract, namesAreCleaned) {
  EXPECT_EQ(library->create(" ../a\tb.md", std::nullopt).name, "-a-b");
  EXPECT_EQ(library->createFolder(".kelvane", std::nullopt).name, "kelvane");
}

TEST_P(ScriptLibraryContract, aNameWithNothingLeftIsRefused) {
  const auto script = library->create("Talk", std::nullopt);
  EXPECT_ANY_THROW(library->create(" .. ", std::nullopt));
  EXPECT_ANY_THROW(library->createFolder("\xE3\x80\x80", std::nullopt));
  EXPECT_ANY_THROW(library->rename(script, ".md"));
  EXPECT_THAT(identifiers(), ElementsAre("Talk.md"));
}

TEST_P(ScriptLibraryContract, aScriptKeepsItsTextWhenItIsRenamed) {
  const auto script = library->create("Talk", library->createFolder("Scenes", std::nullopt).identifier);
  library->write("words", script);
  const auto renamed = library->rename(script, "Speech.md");
  EXPECT_EQ(renamed, (ScriptItem{"Scenes/Speech.md", "Speech", Kind::script, std::nullopt}));
  EXPECT_EQ(library->read(renamed), "words");
  EXPECT_THAT(identifiers(), ElementsAre("Scenes", "Scenes/Speech.md"));
  EXPECT_ANY_THROW(library->read(script));
}

TEST_P(ScriptLibraryContract, everythingInAFolderGoesAlongWhenItIsRenamed) {
  const auto scenes = library->createFolder("Scenes", std::nullopt);
  library->create("Other", library->createFolder("Scenes 1", std::nullopt).identifier);
  library->write("words", library->create("End", library->createFolder("Deep", "Scenes").identifier));
  EXPECT_EQ(library->rename(scenes, "Acts").identifier, "Acts");
  EXPECT_THAT(identifiers(), ElementsAre("Acts", "Acts/Deep", "Acts/Deep/End.md", "Scenes 1", "Scenes 1/Other.md"));
  EXPECT_EQ(library->read({"Acts/Deep/End.md", "End", Kind::script, std::nullopt}), "words");
}

TEST_P(ScriptLibraryContract, renamingToAUsedNameGivesANumberAndReplacesNothing) {
  const auto one = library->create("One", std::nullopt);
  const auto two = library->create("Two", std::nullopt);
  library->write("one", one);
  library->write("two", two);
  const auto renamed = library->rename(two, "One");
  EXPECT_EQ(renamed.identifier, "One 2.md");
  EXPECT_EQ(library->read(one), "one");
  EXPECT_EQ(library->read(renamed), "two");
}

TEST_P(ScriptLibraryContract, renamingToThePresentNameChangesNothing) {
  const auto first = library->create("Talk", std::nullopt);
  const auto second = library->create("Talk", std::nullopt);
  for (const std::string_view name : {"Talk 2", "Talk 2.md", " Talk 2 ", "Talk"}) {
    EXPECT_EQ(library->rename(second, name), second) << name;
  }
  EXPECT_EQ(library->rename(first, "Talk"), first);
  EXPECT_THAT(identifiers(), ElementsAre("Talk.md", "Talk 2.md"));
}

TEST_P(ScriptLibraryContract, onlyLetterCaseOrTheWayAnAccentIsWrittenMayChange) {
  auto script = library->create("talk", std::nullopt);
  script = library->rename(script, "Talk");
  EXPECT_EQ(script.identifier, "Talk.md");
  script = library->rename(script, "e\xCC\x81");
  script = library->rename(script, "\xC3\xA9");
  EXPECT_THAT(identifiers(), ElementsAre("\xC3\xA9.md"));
}

TEST_P(ScriptLibraryContract, theRootCannotBeRenamed) {
  EXPECT_ANY_THROW(library->rename({"", "", Kind::folder, std::nullopt}, "Other"));
}

TEST_P(ScriptLibraryContract, foldersComeFirstAndBothAreInNaturalOrder) {
  for (const char* name : {"take 10", "Take 2", "écran", "b", "A"}) {
    library->create(name, std::nullopt);
    library->createFolder(name, std::nullopt);
  }
  EXPECT_THAT(identifiers(), ElementsAre("A", "b", "écran", "Take 2", "take 10", "A.md", "b.md", "écran.md",
                                         "Take 2.md", "take 10.md"));
}

TEST_P(ScriptLibraryContract, whatIsNotThereFails) {
  const ScriptItem missing{"Missing.md", "Missing", Kind::script, std::nullopt};
  library->createFolder("Scenes", std::nullopt);
  const ScriptItem folderAsScript{"Scenes", "Scenes", Kind::script, std::nullopt};
  for (const auto& item : {missing, folderAsScript}) {
    EXPECT_ANY_THROW(library->read(item));
    EXPECT_ANY_THROW(library->write("text", item));
    EXPECT_ANY_THROW(library->rename(item, "Other"));
    EXPECT_ANY_THROW(library->create("Talk", item.identifier + "/x"));
  }
  EXPECT_ANY_THROW(library->contents(library->root() / "Missing"));
  EXPECT_THAT(identifiers(), ElementsAre("Scenes"));
}

TEST_P(ScriptLibraryContract, anIdentifierIsThePathBelowTheRoot) {
  const auto& root = library->root();
  EXPECT_EQ(library->identifier(root), "");
  EXPECT_EQ(library->identifier(root / "Talk.md"), "Talk.md");
  EXPECT_EQ(library->identifier(root / "Scenes" / "Deep" / "End.md"), "Scenes/Deep/End.md");
  EXPECT_ANY_THROW(library->identifier(root.parent_path()));
  EXPECT_ANY_THROW(library->identifier(root.native() + "2/Talk.md"));
}

TEST_P(ScriptLibraryContract, oneWriterAtATimeHoldsTheLock) {
  auto held = library->lock();
  bool refused = false;
  std::thread([&] {
    try {
      library->lock();
    } catch (const std::exception&) {
      refused = true;
    }
  }).join();
  EXPECT_TRUE(refused);
  held.reset();
  std::thread([&] { EXPECT_NO_THROW(library->lock()); }).join();
}

const Implementation implementations[] = {
    {"folder",
     [](const std::filesystem::path& root) {
       return std::make_unique<FolderLibrary>(root, std::make_shared<History>(root),
                                              FolderLibrary::Options{SystemCalls::ofTheSystem(), patience});
     }},
    {"inMemory",
     [](const std::filesystem::path& root) { return std::make_unique<InMemoryScriptLibrary>(root, patience); }},
};

INSTANTIATE_TEST_SUITE_P(Both, ScriptLibraryContract, ::testing::ValuesIn(implementations),
                         [](const auto& made) { return made.param.name; });

}  // namespace
}  // namespace quorvel
