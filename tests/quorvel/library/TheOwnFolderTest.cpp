#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

#include "tests/quorvel/library/LibraryHouse.h"

namespace quorvel {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class TheOwnFolder : public LibraryHouse {
 protected:
  static constexpr const char* why =
      ", because it belongs to the folder that the library keeps its history in. Leave that folder to the library.";
};

TEST_F(TheOwnFolder, isNeitherChangedNorRenamedInWhateverSpelling) {
  put(".kelvane/notes.md", "words");
  put(".kelvane/folder/notes.md", "words");
  for (const char* identifier : {".kelvane", "./.kelvane", ".kelvane/", ".kelvane/folder", ".//.kelvane/folder"}) {
    EXPECT_EQ(sentenceOf([&] { library.rename(folderItem(identifier), "New"); }),
              inQuotes(identifier) + " could not be renamed" + why);
    EXPECT_EQ(sentenceOf([&] { library.create("New", identifier); }),
              std::string("The script \"New\" could not be made") + why);
    EXPECT_EQ(sentenceOf([&] { library.createFolder("New", identifier); }),
              std::string("The folder \"New\" could not be made") + why);
  }
  for (const char* identifier : {".kelvane/notes.md", "./.kelvane//notes.md", ".kelvane/folder/notes.md"}) {
    EXPECT_EQ(sentenceOf([&] { library.rename(script(identifier), "New"); }),
              inQuotes(identifier) + " could not be renamed" + why);
    EXPECT_EQ(sentenceOf([&] { library.write("new", script(identifier)); }),
              inQuotes(identifier) + " could not be written" + why);
  }
  EXPECT_EQ(bytesOf(".kelvane/notes.md"), "words");
  EXPECT_THAT(names(".kelvane"), ElementsAre("folder", "notes.md"));
  EXPECT_THAT(names(), ElementsAre());
}

TEST_F(TheOwnFolder, hasNoVersions) {
  put(".kelvane/notes.md", "words");
  put(".kelvanes/notes.md", "words");
  put("Scenes/.kelvane/notes.md", "words");
  for (const char* identifier : {".kelvane/notes.md", ".kelvane/folder/notes.md", ".kelvane"}) {
    EXPECT_EQ(sentenceOf([&] { history->snapshot("words", root / identifier, "kept"); }),
              "No version of " + inQuotes(identifier) + " was saved" + why);
  }
  EXPECT_FALSE(std::filesystem::exists(root / ".kelvane/history.sqlite"));
  for (const char* identifier : {".kelvanes/notes.md", "Scenes/.kelvane/notes.md"}) {
    history->snapshot("words", root / identifier, "kept");
    EXPECT_EQ(story(identifier), "kept: words\n");
  }
}

TEST_F(TheOwnFolder, isRefusedBeforeItIsThere) {
  EXPECT_THAT(sentenceOf([&] { library.create("New", ".kelvane"); }), HasSubstr(why));
  EXPECT_THAT(sentenceOf([&] { library.rename(folderItem(".kelvane"), "New"); }), HasSubstr(why));
  EXPECT_FALSE(std::filesystem::exists(root / ".kelvane"));
}

TEST_F(TheOwnFolder, isKnownByWhatItIsWhereItsNameLeadsElsewhere) {
  put("Hidden/notes.md", "words");
  std::filesystem::create_directory_symlink("Hidden", root / ".kelvane");
  EXPECT_THAT(sentenceOf([&] { library.write("new", script("Hidden/notes.md")); }), HasSubstr(why));
  EXPECT_THAT(sentenceOf([&] { library.create("New", "Hidden"); }), HasSubstr(why));
  EXPECT_THAT(sentenceOf([&] { library.rename(folderItem("Hidden"), "New"); }), HasSubstr(why));
}

TEST_F(TheOwnFolder, mayBeTheNameOfAFolderFurtherDown) {
  put("Scenes/.kelvane/notes.md", "words");
  put(".kelvane/lock", "");
  EXPECT_NO_THROW(library.write("new", script("Scenes/.kelvane/notes.md")));
}

TEST_F(TheOwnFolder, cannotComeFromAName) {
  EXPECT_EQ(library.createFolder(".kelvane", std::nullopt).identifier, "kelvane");
  EXPECT_EQ(library.create(".kelvane", std::nullopt).identifier, "kelvane.md");
  EXPECT_EQ(library.rename(folderItem("kelvane"), ".kelvane").identifier, "kelvane");
}

TEST_F(TheOwnFolder, theRootCannotBeRenamed) {
  for (const char* identifier : {"", ".", "./"}) {
    EXPECT_EQ(sentenceOf([&] { library.rename(folderItem(identifier), "New"); }),
              inQuotes(identifier) + " could not be renamed, because it is the library's own root folder.");
  }
}

TEST_F(TheOwnFolder, aFolderCannotGoIntoItself) {
  put("Scenes/End.md");
  EXPECT_EQ(library.rename(folderItem("Scenes"), "Scenes/Inside").identifier, "Scenes-Inside");
  EXPECT_THAT(names(), ElementsAre("Scenes-Inside"));
}

}  // namespace
}  // namespace quorvel
