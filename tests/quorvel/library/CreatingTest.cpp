#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <utility>

#include "quorvel/files/WaitForWriters.h"
#include "quorvel/library/FreeNumber.h"
#include "tests/quorvel/library/LibraryHouse.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/RowName.h"

namespace quorvel {
namespace {

using kelvane::tests::becomeNobody;
using kelvane::tests::ChildProcess;
using kelvane::tests::inChild;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Kind = ScriptItem::Kind;

class Creating : public LibraryHouse {};

TEST_F(Creating, whatIsThereIsNeverReplaced) {
  std::filesystem::create_symlink("nowhere", root / "Talk.md");
  std::filesystem::create_directory(root / "Talk 2.md");
  ASSERT_EQ(::mkfifo((root / "Talk 3.md").c_str(), 0644), 0);
  put("Talk 4.md", "words");
  EXPECT_EQ(library.create("Talk", std::nullopt).identifier, "Talk 5.md");
  EXPECT_TRUE(std::filesystem::is_symlink(root / "Talk.md"));
  EXPECT_EQ(bytesOf("Talk 4.md"), "words");
  EXPECT_EQ(library.createFolder("Talk 4.md", std::nullopt).identifier, "Talk 4.md 2");
}

TEST_F(Creating, numbersStartAgainForEachName) {
  put("Talk.md");
  put("Talk 3.md");
  EXPECT_EQ(library.create("Talk", std::nullopt).name, "Talk 2");
  EXPECT_EQ(library.create("Talk", std::nullopt).name, "Talk 4");
}

TEST_F(Creating, aNumberedNameStillFitsTheDisk) {
  const std::string name(300, 'x');
  EXPECT_EQ(library.create(name, std::nullopt).name, std::string(240, 'x'));
  EXPECT_EQ(library.create(name, std::nullopt).name, std::string(240, 'x') + " 2");
  EXPECT_EQ(library.createFolder(name, std::nullopt).name, std::string(240, 'x'));
}

TEST_F(Creating, theHistoryOfAScriptThatWasThereBeforeIsNotThatOfTheNewOne) {
  history->snapshot("words of the first", root / "Talk.md", "kept");
  library.create("Talk", std::nullopt);
  EXPECT_EQ(story("Talk.md"), "");
  EXPECT_EQ(story("Talk.md", 1), "kept: words of the first\n");
}

TEST_F(Creating, theHistoryOfTheScriptBeforeStaysWhereTheNewOneCannotBeMade) {
  for (const char* label : {"first", "second"}) {
    history->snapshot("words", root / "Closed/Talk.md", label);
    if (label == std::string("first")) history->setAside("Closed/Talk.md");
  }
  std::filesystem::create_directory(root / "Closed");
  giveToNobody();
  std::filesystem::permissions(root / "Closed", std::filesystem::perms(0555));
  EXPECT_EQ(inChild([&] {
              becomeNobody();
              return sentenceOf([&] { library.create("Talk", "Closed"); });
            }),
            "The script \"Talk\" could not be made, because the system does not permit it. Check who may read and "
            "write there.");
  EXPECT_EQ(story("Closed/Talk.md"), "second: words\n");
  EXPECT_EQ(story("Closed/Talk.md", 1), "first: words\n");
  EXPECT_THAT(history->problems(), ElementsAre());
}

TEST_F(Creating, theHistoryOfAScriptThatIsThereIsLeftAlone) {
  put("Talk.md", "words");
  history->snapshot("words", root / "Talk.md", "kept");
  EXPECT_EQ(library.create("Talk", std::nullopt).identifier, "Talk 2.md");
  EXPECT_EQ(story("Talk.md"), "kept: words\n");
}

TEST_F(Creating, aDamagedHistoryRefusesANewScriptAndNotAFolder) {
  put(".kelvane/history.sqlite", std::string(8192, 'x'));
  EXPECT_THROW(library.create("Talk", std::nullopt), HistoryError);
  EXPECT_THAT(names(), ElementsAre());
  EXPECT_NO_THROW(library.createFolder("Scenes", std::nullopt));
}

TEST_F(Creating, aNameWithNothingLeftIsRefusedWithASentence) {
  EXPECT_EQ(sentenceOf([&] { library.create(" .. ", std::nullopt); }),
            "\" .. \" cannot be the name of a script, because nothing is left without dots at its start and white "
            "space at its ends. "
            "Give another name.");
  EXPECT_EQ(sentenceOf([&] { library.createFolder("...", std::nullopt); }),
            "\"...\" cannot be the name of a folder, because nothing is left without dots at its start and white space "
            "at its ends. "
            "Give another name.");
}

TEST_F(Creating, aNameWhoseFirstCharacterIsTooLongIsRefused) {
  std::string character = "e";
  while (character.size() < 241) character += "\u0301";
  for (const std::string& asked : {character, ". " + character + ".md"}) {
    EXPECT_EQ(
        sentenceOf([&] { library.create(asked, std::nullopt); }),
        inQuotes(asked) +
            " cannot be the name of a script, because its first character alone, with its marks, is longer than a "
            "name may be. Give another name.");
  }
  EXPECT_EQ(sentenceOf([&] { library.createFolder(character, std::nullopt); }),
            inQuotes(character) +
                " cannot be the name of a folder, because its first character alone, with its marks, is longer than a "
                "name may be. Give another name.");
  EXPECT_THAT(names(), ElementsAre());
}

TEST_F(Creating, saysWhatIsTrueWhenTheFolderCannotBeFlushed) {
  calls.lack({"flush"}, EIO);
  EXPECT_EQ(sentenceOf([&] { library.create("Talk", std::nullopt); }),
            "The script \"Talk.md\" was made, but that may not outlast a power failure, because the disk reports an "
            "error. Check the disk.");
  EXPECT_EQ(
      sentenceOf([&] { library.createFolder("Talk", std::nullopt); }),
      "The folder \"Talk\" was made, but that may not outlast a power failure, because the disk reports an error. "
      "Check the disk.");
  EXPECT_THAT(names(), ElementsAre("Talk", "Talk.md"));
}

TEST_F(Creating, aDiskWhoseFoldersNeedNoFlushingIsFine) {
  calls.lack({"flush"}, EINVAL);
  EXPECT_NO_THROW(library.create("Talk", std::nullopt));
}

struct Row {
  const char* description;
  std::string folder;
  const char* reason;

  friend void PrintTo(const Row& row, std::ostream* out) { *out << row.description; }
};

class CreatingInAnUnfitFolder : public LibraryHouse, public ::testing::WithParamInterface<Row> {};

TEST_P(CreatingInAnUnfitFolder, isOneSentenceAndMakesNothing) {
  put("Talk.md", "words");
  std::filesystem::create_directory(root / "Closed");
  put(".kelvane/lock", "");
  std::filesystem::create_directory_symlink("Closed", root / "link");
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  std::filesystem::permissions(root / "Closed", std::filesystem::perms(0555));
  const auto before = names();
  for (const bool isFolder : {false, true}) {
    const std::string sentence = inChild([&] {
      if (GetParam().folder == "Closed") becomeNobody();
      return sentenceOf([&] {
        isFolder ? library.createFolder("New", GetParam().folder) : library.create("New", GetParam().folder);
      });
    });
    EXPECT_EQ(sentence, std::string("The ") + (isFolder ? "folder" : "script") +
                            " \"New\" could not be made, because " + GetParam().reason)
        << GetParam().description;
  }
  EXPECT_EQ(names(), before);
}

const Row rows[] = {
    {"gone", "Missing", "it is not there any more. List the library again to see what is there now."},
    {"a script", "Talk.md",
     "a link or a file has taken the place of it or of a folder above it. List the library again to see what is there "
     "now."},
    {"a link", "link",
     "a link or a file has taken the place of it or of a folder above it. List the library again to see what is there "
     "now."},
    {"not permitted", "Closed", "the system does not permit it. Check who may read and write there."},
    {"the library's own", ".kelvane",
     "it belongs to the folder that the library keeps its history in. Leave that folder to the library."},
    {"the library's own, spelt otherwise", "./.kelvane/",
     "it belongs to the folder that the library keeps its history in. Leave that folder to the library."},
    {"upwards", "..", "it is not inside the library."},
    {"absolute", "/tmp", "it is not inside the library."},
};

INSTANTIATE_TEST_SUITE_P(Rows, CreatingInAnUnfitFolder, ::testing::ValuesIn(rows), kelvane::tests::RowName());

TEST_F(Creating, aPathTooLongToBeOpenedIsRefused) {
  std::string parent;
  const std::string name(240, 'd');
  while (root.native().size() + parent.size() + 241 + 3 < PATH_MAX - 1) {
    const auto made = library.createFolder(name, parent.empty() ? std::nullopt : std::optional(parent));
    parent = made.identifier;
  }
  for (const auto& create : {&FolderLibrary::create, &FolderLibrary::createFolder}) {
    EXPECT_THAT(
        sentenceOf([&] { (library.*create)(name, parent); }),
        HasSubstr("could not be made, because its path is too long for the system. Use shorter names or fewer"));
  }
  EXPECT_THAT(names(parent), ElementsAre());
}

// --- Numbers ---

struct Numbers {
  const char* description;
  std::size_t first;
  std::set<std::size_t> used;
  std::size_t found;
};

TEST(FreeNumber, isTheLowestUnlessVeryManyAreUsed) {
  const auto upTo = [](std::size_t last) {
    std::set<std::size_t> all;
    for (std::size_t number = 1; number <= last; ++number) all.insert(number);
    return all;
  };
  auto gap = upTo(5000);
  gap.erase(50);
  const Numbers table[] = {
      {"none used", 1, {}, 1},          {"the first used", 1, {1}, 2},
      {"a gap", 1, {1, 2, 4}, 3},       {"begun later", 7, {1, 2, 7, 8}, 9},
      {"a hundred", 1, upTo(100), 101}, {"one more", 1, upTo(101), 102},
      {"many", 1, upTo(5000), 5001},    {"many and a low gap", 1, gap, 50},
  };
  for (const Numbers& row : table) {
    EXPECT_EQ(findFreeNumber(row.first, [&](std::size_t number) { return row.used.contains(number); }), row.found)
        << row.description;
  }
}

TEST(FreeNumber, isFoundInFewLooksHoweverManyAreUsed) {
  std::size_t looks = 0;
  EXPECT_EQ(findFreeNumber(1,
                           [&](std::size_t number) {
                             ++looks;
                             return number <= 1'000'000;
                           }),
            1'000'001U);
  EXPECT_LE(looks, 140U);
}

// --- Several processes that want the same names ---

struct Creation {
  const char* description;
  ScriptItem (FolderLibrary::*create)(std::string_view name, const std::optional<std::string>& folder);

  friend void PrintTo(const Creation& row, std::ostream* out) { *out << row.description; }
};

class CreatingAtOnce : public LibraryHouse, public ::testing::WithParamInterface<Creation> {};

TEST_P(CreatingAtOnce, noNameIsGivenTwice) {
  constexpr int each = 120;
  std::vector<ChildProcess> writers;
  for (int writer = 0; writer < 3; ++writer) {
    writers.emplace_back([&] {
      std::string made;
      for (int count = 0; count < each; ++count) {
        made += (library.*GetParam().create)("Talk", std::nullopt).name + '\n';
      }
      return made;
    });
  }
  std::set<std::string> all;
  int changes = 0;  // how often the next number was another process's
  std::vector<std::string> owner(3 * each + 1);
  for (std::size_t writer = 0; writer < writers.size(); ++writer) {
    std::istringstream lines(writers[writer].answer());
    for (std::string line; std::getline(lines, line);) {
      EXPECT_TRUE(all.insert(line).second) << line << " was given twice";
      const std::size_t number = line == "Talk" ? 1 : std::stoul(line.substr(5));
      ASSERT_LT(number, owner.size());
      owner[number] = std::to_string(writer);
    }
  }
  EXPECT_EQ(all.size(), std::size_t{3 * each});
  for (std::size_t number = 2; number < owner.size(); ++number) changes += owner[number] != owner[number - 1];
  std::cout << "the processes took turns " << changes << " times\n";
  EXPECT_GT(changes, 2) << "they never met";
}

INSTANTIATE_TEST_SUITE_P(Kinds, CreatingAtOnce,
                         ::testing::Values(Creation{"scripts", &FolderLibrary::create},
                                           Creation{"folders", &FolderLibrary::createFolder}),
                         kelvane::tests::RowName());

// --- A script with a text ---

struct Meanwhile {
  const char* description;
  void (*happen)(const std::filesystem::path& script, Descriptor& editor);  // what another program does
  const char* before;  // the call before which it does so, after the text could not be written
  const char* found;   // what the sentence says of the script
  const char* present;
};

constexpr const char* written = ", and another program has written into it. Read it before you change it.";
constexpr const char* opened =
    ", but is empty, and another program has it open for writing. Save and close it there, then read it before you "
    "write its text again.";
constexpr const char* leftEmpty = ", but is empty. Write its text again, or delete it.";

// A new script on a disk that does not tell who has it open is not taken away.
bool systemTells(const std::filesystem::path& folder) {
  kelvane::tests::writeFile(folder / "asked", "");
  const Descriptor file(::open((folder / "asked").c_str(), O_RDONLY | O_CLOEXEC));
  std::filesystem::remove(folder / "asked");
  return hasWriter(file.get()).has_value();
}

void saveInPlace(const std::filesystem::path& script, Descriptor&) {
  kelvane::tests::writeFile(script, "theirs");
}
void saveByRenaming(const std::filesystem::path& script, Descriptor&) {
  kelvane::tests::writeFile(script.native() + "~", "theirs");
  std::filesystem::rename(script.native() + "~", script);
}
void open(const std::filesystem::path& script, Descriptor& editor) {
  editor = Descriptor(::open(script.c_str(), O_WRONLY | O_CLOEXEC));
}

TEST_F(Creating, aScriptWhoseTextCannotBeWrittenIsNotThere) {
  if (!systemTells(folder.path())) GTEST_SKIP() << "this disk does not tell who has a file open";
  for (const char* failing : {"write", "flush", "exchange", "rename"}) {
    SCOPED_TRACE(failing);
    history->snapshot("words of the first", root / "Talk.md", "kept");
    bool isMade = false;  // the flushing of the folder comes before the text, and the way back comes after it
    calls.before = [&, isFailed = false](std::string_view call) mutable {
      isMade = isMade || std::filesystem::exists(root / "Talk.md");
      const bool isFirstFlush = call == "flush" && leftovers() == 0;
      if (isFailed || !isMade || call != failing || isFirstFlush) return 0;
      isFailed = true;
      return ENOSPC;
    };
    EXPECT_EQ(sentenceOf([&] { library.createWithText("Talk", std::nullopt, "words"); }),
              "\"Talk.md\" could not be written, because the disk is full. Free some space and try again.");
    EXPECT_TRUE(isMade);
    EXPECT_THAT(names(), ElementsAre());
    EXPECT_THAT(story("Talk.md"), ::testing::EndsWith("kept: words of the first\n"));
  }
  calls.before = [](std::string_view) { return 0; };
  EXPECT_EQ(library.createWithText("Talk", std::nullopt, "words").identifier, "Talk.md");
  EXPECT_EQ(bytesOf("Talk.md"), "words");
}

TEST_F(Creating, aScriptWhoseTextCannotBeWrittenStaysWhereAnotherProgramUsesIt) {
  if (!systemTells(folder.path())) GTEST_SKIP() << "this disk does not tell who has a file open";
  const Meanwhile cases[] = {
      {"saved in place", saveInPlace, "write", written, "theirs"},
      {"saved by renaming", saveByRenaming, "write", written, "theirs"},
      {"opened", open, "write", opened, ""},
      {"saved in place at the last moment", saveInPlace, "rename", written, "theirs"},
      {"saved by renaming at the last moment", saveByRenaming, "rename", written, "theirs"},
      {"opened at the last moment", open, "rename", opened, ""},
      {"saved by renaming once it is set aside", saveByRenaming, "unlink", nullptr, "theirs"},
  };
  for (const Meanwhile& row : cases) {
    SCOPED_TRACE(row.description);
    const std::string name = "Talk " + std::to_string(&row - cases) + ".md";
    Descriptor editor;
    calls.before = [&, isFull = false, isDone = false](std::string_view call) mutable {
      const bool isWritten = call == "write";
      isFull = isFull || isWritten;
      const bool isSetAside = !std::filesystem::exists(root / name);  // the file for the text is deleted before that
      const bool isItsTurn = isFull && call == row.before && (call != "unlink" || isSetAside);
      if (!isDone && isItsTurn && std::exchange(isDone, true) == false) row.happen(root / name, editor);
      return isWritten ? ENOSPC : 0;
    };
    const std::string said = sentenceOf([&] { library.createWithText(name, std::nullopt, "words"); });
    calls.before = [](std::string_view) { return 0; };
    const std::string made = "The script \"" + name + "\" was made";
    EXPECT_EQ(said, "\"" + name + "\" could not be written, because the disk is full. Free some space and try again." +
                        (row.found == nullptr ? "" : " " + made + row.found));
    EXPECT_EQ(bytesOf(name), row.present);
    EXPECT_TRUE(std::filesystem::exists(root / name));
    EXPECT_EQ(leftovers(), 0U);
  }
}

TEST_F(Creating, aScriptWhoseTextCannotBeWrittenStaysWhereTheSystemDoesNotTellWhoUsesIt) {
  if (systemTells(folder.path())) GTEST_SKIP() << "this disk tells who has a file open";
  calls.lack({"write"}, ENOSPC);
  EXPECT_THAT(sentenceOf([&] { library.createWithText("Talk", std::nullopt, "words"); }),
              ::testing::EndsWith(std::string("The script \"Talk.md\" was made") + leftEmpty));
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

TEST_F(Creating, aScriptThatCannotGetItsNameBackIsNamed) {
  if (!systemTells(folder.path())) GTEST_SKIP() << "this disk does not tell who has a file open";
  Descriptor editor;
  calls.before = [&, isFull = false](std::string_view call) mutable {
    isFull = isFull || call == "write";
    if (call == "rename" && isFull) open(root / "Talk.md", editor);
    return call == "write" ? ENOSPC : call == "renameToFreeName" || call == "link" ? EIO : 0;
  };
  const std::string said = sentenceOf([&] { library.createWithText("Talk", std::nullopt, "words"); });
  ASSERT_EQ(names().size(), 1U);
  EXPECT_EQ(said,
            "\"Talk.md\" could not be written, because the disk is full. Free some space and try again. The script "
            "\"Talk.md\" was made, but it has the hidden name \"" +
                names().front() +
                "\" now and could not get its own back. Rename it if you need it; the next change there may delete it "
                "if it is empty.");
}

TEST_F(Creating, aScriptWithATextOnADiskThatDiesAtAnyCallSaysWhetherItIsThere) {
  int empty = 0;
  bool isDone = false;
  for (int last = 0; !isDone; ++last) {
    SCOPED_TRACE("dead after " + std::to_string(last) + " calls");
    for (const std::string& name : names()) std::filesystem::remove(root / name);
    calls.before = [left = last](std::string_view) mutable { return left-- <= 0 ? EIO : 0; };
    const std::string sentence = sentenceOf([&] { library.createWithText("New", std::nullopt, "words"); });
    isDone = sentence == "(no failure)";
    const bool isEmpty = std::filesystem::exists(root / "New.md") && bytesOf("New.md").empty();
    const bool isSaid = sentence.find("The script \"New.md\" was made, but is empty.") != std::string::npos ||
                        sentence.find("\"New.md\" was made, still empty") != std::string::npos;
    EXPECT_EQ(isSaid, isEmpty) << sentence;
    empty += isEmpty;
  }
  EXPECT_EQ(bytesOf("New.md"), "words");
  EXPECT_GT(empty, 2) << "the disk never died in between";
}

// --- A script that is gone and is put back ---

TEST_F(Creating, aScriptPutBackHasItsHistoryAgain) {
  history->snapshot("words", root / "Scenes/Deep/ Odd name .md", "kept");
  const ScriptItem item = library.recreate("Scenes/Deep/ Odd name .md", "words");
  EXPECT_EQ(item, (ScriptItem{"Scenes/Deep/ Odd name .md", " Odd name ", Kind::script, std::nullopt}));
  EXPECT_EQ(bytesOf("Scenes/Deep/ Odd name .md"), "words");
  EXPECT_EQ(story("Scenes/Deep/ Odd name .md"), "kept: words\n");
}

TEST_F(Creating, aScriptIsPutBackOnlyWhereNothingIs) {
  put("Talk.md", "words");
  std::filesystem::create_directory_symlink(folder.path(), root / "link");
  const std::pair<const char*, const char*> table[] = {
      {"Talk.md", "\"Talk.md\" could not be put back, because something with that name is there."},
      {"Talk.md/x.md",
       "\"Talk.md/x.md\" could not be put back, because a link or a file has taken the place of it or of a folder "
       "above "
       "it. List the library again to see what is there now."},
      {"link/x.md",
       "\"link/x.md\" could not be put back, because a link or a file has taken the place of it or of a folder above "
       "it. "
       "List the library again to see what is there now."},
      {"../x.md", "\"../x.md\" could not be put back, because it is not inside the library."},
      {".kelvane/x.md",
       "\".kelvane/x.md\" could not be put back, because it belongs to the folder that the library keeps its history "
       "in. "
       "Leave that folder to the library."},
      {"Scenes", "\"Scenes\" could not be put back, because it is not a script."},
      {"Scenes/.md/..", "\"Scenes/.md/..\" could not be put back, because it is not a script."},
  };
  for (const auto& [identifier, sentence] : table) {
    EXPECT_EQ(sentenceOf([&, name = identifier] { library.recreate(name, "words"); }), sentence);
  }
  EXPECT_THAT(names(), ElementsAre("Talk.md", "link"));
  EXPECT_EQ(bytesOf("Talk.md"), "words");
}

TEST_F(Creating, aScriptPutBackOnADiskThatDiesAtAnyCallSaysWhetherItIsThere) {
  int empty = 0;
  bool isDone = false;
  for (int last = 0; !isDone; ++last) {
    SCOPED_TRACE("dead after " + std::to_string(last) + " calls");
    for (const std::string& name : names()) std::filesystem::remove(root / name);  // what is left makes more calls
    calls.before = [left = last](std::string_view) mutable { return left-- <= 0 ? EIO : 0; };
    const std::string sentence = sentenceOf([&] { library.recreate("Gone.md", "words"); });
    const std::string present = bytesOf("Gone.md");
    isDone = sentence == "(no failure)";
    const bool isThereAndEmpty = std::filesystem::exists(root / "Gone.md") && present.empty();
    const bool isSaid = sentence.find("The script exists again, but is empty.") != std::string::npos ||
                        sentence.find("was made, still empty") != std::string::npos;
    EXPECT_EQ(isSaid, isThereAndEmpty) << sentence;
    empty += isThereAndEmpty;
  }
  EXPECT_EQ(bytesOf("Gone.md"), "words");
  EXPECT_GT(empty, 2) << "the disk never died in between";
}

}  // namespace
}  // namespace quorvel
