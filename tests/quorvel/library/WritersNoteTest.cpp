#include "quorvel/library/WritersNote.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "quorvel/files/WaitForWriters.h"
#include "tests/quorvel/library/LibraryHouse.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FailingSystemCalls.h"
#include "tests/support/RowName.h"

namespace quorvel {
namespace {

using kelvane::tests::becomeNobody;
using kelvane::tests::FailingSystemCalls;
using kelvane::tests::inChild;
using kelvane::tests::kindsOfCalls;
using ::testing::ElementsAre;

constexpr const char* lockFile = ".kelvane/lock";
constexpr const char* notStaged = "the system does not let calls fail";

std::string entry(std::string_view path) {
  return std::string(path).append(1, '\0');
}

// A script in each of several folders, and a writer who works in the folder "Here".
class WritersNotes : public LibraryHouse {
 protected:
  explicit WritersNotes(const std::filesystem::path& parent = std::filesystem::temp_directory_path())
      : LibraryHouse(parent) {}

  /// Leaves a text in a folder that was once its script's.
  std::string leave(const std::filesystem::path& within, std::string_view text = "theirs") const {
    const std::string name = within / TemporaryName::fresh("Talk.md").ofReplacedFile().text();
    put(name, text);
    return name;
  }

  std::size_t leftoversEverywhere() const {
    std::size_t count = 0;
    for (const std::string& name : folders) count += leftovers(name);
    return count;
  }

  std::string note() const { return bytesOf(lockFile); }

  std::string firstNote() {
    for (const std::string& name : folders) put(std::filesystem::path(name) / "Talk.md", "old");
    writeLocked("older", "Here/Talk.md");
    return note();
  }

  const std::vector<std::string> folders = {"", "Here", "There", "Deep/Down"};

  /// A note of the present run without a folder: the last writer left nothing.
  const std::string clean = firstNote();
};

TEST_F(WritersNotes, areNeverWrittenIntoAFileOutsideTheLibrary) {
  const std::filesystem::path outside = root.parent_path() / "Outside";
  std::ofstream(outside) << "mine";
  std::filesystem::remove(root / lockFile);
  std::filesystem::create_hard_link(outside, root / lockFile);
  leave("Here");
  leave("There");
  writeLocked("new", "Here/Talk.md");
  EXPECT_EQ(note(), "mine");
  EXPECT_EQ(leftovers("Here"), 0U);
  EXPECT_EQ(leftovers("There"), 1U);
  std::ofstream(outside, std::ios::trunc).flush();
  std::filesystem::remove(outside);
  writeLocked("newer", "Here/Talk.md");
  EXPECT_EQ(leftovers("There"), 0U);
  EXPECT_EQ(note(), clean);
}

TEST_F(WritersNotes, areNeverWrittenIntoAFileThatSomebodyPutThere) {
  const struct {
    const char* description;
    std::string bytes;
  } cases[] = {
      {"a text", "my only words"},
      {"a text of a name's letters", "cafe"},
      {"a text of a name's letters, and a line's end", "cafe\n"},
      {"a text in UTF-16", std::string("\0m\0y\0 \0o\0n\0l\0y", 14)},
      {"zeros, longer than a note", std::string(20'000, '\0') + "my only disk"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.description);
    put(lockFile, row.bytes);
    leave("Here");
    leave("There");
    {
      const auto lock = library.lock();
      library.write("new", script("Here/Talk.md"));
      library.createWithText("New", "Here", "words");
      library.rename(folderItem("Deep/Down"), "Downer");
      library.rename(folderItem("Deep/Downer"), "Down");
    }
    EXPECT_EQ(note(), row.bytes);
    EXPECT_EQ(leftovers("Here"), 0U);
    EXPECT_GT(leftovers("There"), 0U);
  }
}

TEST_F(WritersNotes, areNotWrittenIntoAFileThatCannotBeRead) {
  calls.lack({"readAt"}, EIO);
  EXPECT_EQ(sentenceOf([&] { writeLocked("new", "Here/Talk.md"); }),
            "\"Here/Talk.md\" could not be written, because the disk reports an error. Check the disk.");
  EXPECT_EQ(bytesOf("Here/Talk.md"), "older");
  EXPECT_EQ(note(), clean);
}

// --- What is noted, and where the next writer looks ---

struct Noted {
  const char* description;
  bool isOfThisRun;
  std::string rest;                // behind the name of the run, or all there is
  std::vector<std::string> swept;  // the folders in which nothing is left

  friend void PrintTo(const Noted& row, std::ostream* out) { *out << row.description; }
};

class WhatIsNoted : public WritersNotes, public ::testing::WithParamInterface<Noted> {};

TEST_P(WhatIsNoted, saysWhereTheNextWriterLooks) {
  const Noted& row = GetParam();
  std::filesystem::create_directory_symlink("There", root / "link");
  for (const std::string& name : folders) leave(name, "from " + name);
  put(lockFile, (row.isOfThisRun ? clean : "") + row.rest);
  writeLocked("new", "Here/Talk.md");
  for (const std::string& name : folders) {
    const bool isSwept = std::find(row.swept.begin(), row.swept.end(), name) != row.swept.end();
    EXPECT_EQ(leftovers(name), isSwept ? 0U : 1U) << name;
    EXPECT_EQ(history->hasVersionWith("from " + name, (std::filesystem::path(name) / "Talk.md").native()), isSwept)
        << name;
  }
  EXPECT_EQ(note(), clean);
}

const std::vector<std::string> all = {"", "Here", "There", "Deep/Down"};

const Noted notes[] = {
    {"nothing", true, "", {}},
    {"the writer's own folder", true, entry("Here"), {"Here"}},
    {"another folder", true, entry("Deep/Down"), {"Deep/Down"}},
    {"the root", true, entry(""), {""}},
    {"two folders", true, entry("") + entry("There"), {"", "There"}},
    {"one folder twice", true, entry("There") + entry("There"), {"There"}},
    {"a folder that is gone", true, entry("Gone"), all},
    {"a folder that is gone, and another", true, entry("Gone") + entry("There"), all},
    {"a file", true, entry("Here/Talk.md"), all},
    {"a link", true, entry("link"), all},
    {"a folder cut off", true, entry("There") + "Her", all},
    {"a path that leads out", true, entry("../Library"), all},
    {"an absolute path", true, entry("/"), all},
    {"a path spelt otherwise", true, entry("Deep//Down"), all},
    {"an empty file, as an earlier version leaves it", false, "", all},
    {"another run of the system", false, entry("00000000-0000-4000-8000-000000000000"), all},
    {"zeros, as a power failure may leave them", false, std::string(60, '\0'), all},
};

INSTANTIATE_TEST_SUITE_P(Rows, WhatIsNoted, ::testing::ValuesIn(notes), kelvane::tests::RowName());

TEST_F(WritersNotes, thatAreTooLongAreVoid) {
  std::string rest;
  while (rest.size() < 20'000) rest += entry("There");
  leave("");
  put(lockFile, clean + rest);
  writeLocked("new", "Here/Talk.md");
  EXPECT_EQ(leftoversEverywhere(), 0U);
  EXPECT_EQ(note(), clean);
}

TEST_F(WritersNotes, letAWriterWithoutLeftoversReadNoFolder) {
  int looks = 0;
  calls.before = [&](std::string_view call) {
    looks += call == "readEntries" || call == "nextEntry";
    return 0;
  };
  const auto lock = library.lock();
  library.write("new", script("Here/Talk.md"));
  library.create("New", "Here");
  library.createWithText("New", "There", "words");
  library.createFolder("New", "There");
  EXPECT_EQ(looks, 0);
}

TEST_F(WritersNotes, areNotNeededInTheFolderOfAScriptThatGetsANewName) {
  leave("There");
  {
    const auto lock = library.lock();
    library.rename(script("There/Talk.md"), "New");
  }
  EXPECT_EQ(leftovers("There"), 0U);
  EXPECT_TRUE(history->hasVersionWith("theirs", "There/New.md"));
  EXPECT_EQ(note(), clean);
}

TEST_F(WritersNotes, areNotNeededInAHiddenFolderInWhichAWriterWorks) {
  for (const std::string name : {".drafts", "Deep/.drafts/Old"}) {
    SCOPED_TRACE(name);
    put(name + "/Talk.md", "old");
    leave(name);
    put(lockFile, clean);
    writeLocked("new", name + "/Talk.md");
    EXPECT_EQ(leftovers(name), 0U);
    EXPECT_TRUE(history->hasVersionWith("theirs", name + "/Talk.md"));
    EXPECT_EQ(note(), clean);
  }
}

TEST_F(WritersNotes, areKeptForEachLibraryThatAThreadHasLocked) {
  const std::filesystem::path otherRoot = folder.path() / "Other";
  std::filesystem::create_directory(otherRoot);
  FolderLibrary other(otherRoot, std::make_shared<History>(otherRoot));
  std::string noted;
  calls.interrupt("exchange", [&] { noted = note(); });
  const auto lock = library.lock();
  const auto another = other.lock();
  library.write("new", script("Here/Talk.md"));
  other.createWithText("Talk", std::nullopt, "words");
  EXPECT_EQ(noted, clean + entry("Here"));
  EXPECT_EQ(note(), clean);
  EXPECT_EQ(kelvane::tests::bytesOf(otherRoot / lockFile), clean);
}

TEST_F(WritersNotes, areOfTheFolderInWhichAWriterWorks) {
  std::string noted;
  calls.interrupt("exchange", [&] { noted = note(); });
  writeLocked("new", "Deep/Down/Talk.md");
  EXPECT_EQ(noted, clean + entry("Deep/Down"));
  EXPECT_EQ(note(), clean);
}

TEST_F(WritersNotes, areVoidBeforeTheNameOfTheRunIsWritten) {
  for (const char* name : {"", "Here", "There"}) leave(name);
  put(lockFile, std::string(clean.size(), '\0') + entry("There"));
  writeLocked("new", "Here/Talk.md");
  EXPECT_EQ(leftoversEverywhere(), 0U);
  EXPECT_EQ(note(), clean);
}

// --- What stays ---

TEST_F(WritersNotes, stayUntilATextThatAnotherProgramWritesIsKept) {
  const std::string name = leave("There", "half ");
  Descriptor editor(::open((root / name).c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  if (waitForWriters(Descriptor(::open((root / name).c_str(), O_RDONLY | O_CLOEXEC)).get(), std::chrono::seconds(0)))
    GTEST_SKIP() << "this disk does not tell who has a file open";
  put(lockFile, "");
  for (int count = 0; count < 2; ++count) {
    writeLocked("new", "Here/Talk.md");
    EXPECT_EQ(note(), clean + entry("There"));
  }
  writeLocked("new", "There/Talk.md");
  EXPECT_EQ(note(), clean + entry("There"));
  ASSERT_EQ(::write(editor.get(), "and whole", 9), 9);
  editor = Descriptor();
  writeLocked("newer", "Here/Talk.md");
  EXPECT_EQ(note(), clean);
  EXPECT_TRUE(history->hasVersionWith("half and whole", "There/Talk.md"));
}

TEST_F(WritersNotes, stayWhereAFolderCannotBeReadAndDoNotHinderAnother) {
  leave("There");
  put(lockFile, clean + entry("There"));
  giveToNobody();
  std::filesystem::permissions(root / "There", std::filesystem::perms(0311));
  EXPECT_EQ(inChild([&]() -> std::string {
              becomeNobody();
              return sentenceOf([&] { writeLocked("new", "Here/Talk.md"); });
            }),
            "(no failure)");
  std::filesystem::permissions(root / "There", std::filesystem::perms(0755));
  EXPECT_EQ(bytesOf("Here/Talk.md"), "new");
  EXPECT_EQ(note(), clean + entry("There"));
  writeLocked("newer", "Here/Talk.md");
  EXPECT_EQ(leftoversEverywhere(), 0U);
  EXPECT_EQ(note(), clean);
}

TEST_F(WritersNotes, stayWhereAFolderCannotBeReadAlsoIfAnotherIsGone) {
  leave("There");
  put(lockFile, clean + entry("There") + entry("Gone"));
  giveToNobody();
  std::filesystem::permissions(root / "There", std::filesystem::perms(0311));
  inChild([&]() -> std::string {
    becomeNobody();
    return sentenceOf([&] { writeLocked("new", "Here/Talk.md"); });
  });
  std::filesystem::permissions(root / "There", std::filesystem::perms(0755));
  EXPECT_EQ(note(), clean + entry("There"));
}

TEST_F(WritersNotes, stayWhereATextCannotBeKeptAndDoNotHinderAnotherFolder) {
  leave("There");
  put(lockFile, clean + entry("There"));
  calls.before = [](std::string_view call) { return call == "read" ? EIO : 0; };
  EXPECT_NO_THROW({
    const auto lock = library.lock();
    library.create("New", "Here");
  });
  EXPECT_EQ(note(), clean + entry("There"));
  EXPECT_EQ(leftovers("There"), 1U);
}

TEST_F(WritersNotes, stayWhereAFolderCannotBeReadWhenNothingIsKnown) {
  leave("There");
  put(lockFile, "");
  giveToNobody();
  std::filesystem::permissions(root / "There", std::filesystem::perms(0311));
  inChild([&]() -> std::string {
    becomeNobody();
    return sentenceOf([&] { writeLocked("new", "Here/Talk.md"); });
  });
  std::filesystem::permissions(root / "There", std::filesystem::perms(0755));
  EXPECT_EQ(note(), clean + entry("There"));
  writeLocked("newer", "Here/Talk.md");
  EXPECT_EQ(leftoversEverywhere(), 0U);
}

TEST_F(WritersNotes, stayVoidIfAFolderIsMovedWhileAllAreLookedInto) {
  leave("There");
  put(lockFile, "");
  // After the folder in which the writer works and the root, but before the folders below.
  calls.before = [&, isRead = false, opened = 0](std::string_view call) mutable {
    isRead = isRead || call == "readEntries" || call == "nextEntry";
    if (isRead && call == "openBeneath" && ++opened == 2) std::filesystem::rename(root / "There", root / "Moved");
    return 0;
  };
  writeLocked("new", "Here/Talk.md");
  EXPECT_EQ(note(), "");
  calls.before = [](std::string_view) { return 0; };
  writeLocked("newer", "Here/Talk.md");
  EXPECT_EQ(leftovers("Moved"), 0U);
  EXPECT_EQ(note(), clean);
}

// --- Folders that get other names, or names that others had ---

TEST_F(WritersNotes, areFollowedToAFolderThatGotAnotherNameAlsoIfAnotherFolderGetsItsName) {
  const auto moveAway = [this] { std::filesystem::rename(root / "There", root / "Elsewhere"); };
  const struct {
    const char* description;
    std::string noted;
    std::function<void()> change;
    std::string present;
  } cases[] = {
      {"renamed", "There", [this] { library.rename(folderItem("There"), "Elsewhere"); }, "Elsewhere"},
      {"renamed, and made again", "There",
       [this] {
         library.rename(folderItem("There"), "Elsewhere");
         library.createFolder("There", std::nullopt);
       },
       "Elsewhere"},
      {"below one that is renamed, and made again", "Far/There",
       [this] {
         library.rename(folderItem("Far"), "Farther");
         library.recreate("Far/There/Talk.md", "new");
       },
       "Farther/There"},
      {"moved away by another program, and made again", "There",
       [&] {
         moveAway();
         library.createFolder("There", std::nullopt);
       },
       "Elsewhere"},
      {"moved away by another program, and a script in it put back", "There",
       [&] {
         moveAway();
         library.recreate("There/Back.md", "new");
       },
       "Elsewhere"},
      {"moved away by another program, and another gets its name", "There",
       [&] {
         moveAway();
         library.rename(folderItem("Empty"), "There");
       },
       "Elsewhere"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.description);
    for (const char* each : {"There", "Far", "Farther", "Elsewhere", "Empty"}) std::filesystem::remove_all(root / each);
    std::filesystem::create_directory(root / "Empty");
    put(row.noted + "/Talk.md", "old");
    leave(row.noted, row.description);
    put(lockFile, clean + entry(row.noted));
    {
      const auto lock = library.lock();
      row.change();
    }
    writeLocked(row.description, "Here/Talk.md");
    EXPECT_EQ(leftovers(row.present), 0U);
    EXPECT_EQ(note(), clean);
  }
}

TEST_F(WritersNotes, thatCannotBeMadeVoidLetNoFolderGetAnotherName) {
  const std::string noted = clean + entry("There");
  put(lockFile, noted);
  calls.lack({"truncate"}, EIO);
  const auto lock = library.lock();
  EXPECT_EQ(sentenceOf([&] { library.rename(folderItem("There"), "Elsewhere"); }),
            "\"There\" could not be renamed, because the disk reports an error. Check the disk.");
  EXPECT_TRUE(std::filesystem::exists(root / "There"));
  EXPECT_EQ(note(), noted);
}

// --- Notes that cannot be written ---

struct Unwritable {
  const char* description;
  std::vector<std::string> lacking;
  const char* said;
  const char* present;
};

TEST_F(WritersNotes, thatCannotBeWrittenAreMadeVoidOrNothingIsChanged) {
  const Unwritable cases[] = {
      {"no room for it", {"writeAt"}, "(no failure)", "new"},
      {"it cannot be made void either",
       {"writeAt", "truncate"},
       "\"Here/Talk.md\" could not be written, because the disk reports an error. Check the disk.",
       "older"},
      {"it cannot be taken back", {"truncate"}, "(no failure)", "new"},
  };
  for (const Unwritable& row : cases) {
    SCOPED_TRACE(row.description);
    calls.before = [](std::string_view) { return 0; };
    writeLocked("older", "Here/Talk.md");
    calls.lack(row.lacking, EIO);
    EXPECT_EQ(sentenceOf([&] { writeLocked("new", "Here/Talk.md"); }), row.said);
    EXPECT_EQ(bytesOf("Here/Talk.md"), row.present);
    EXPECT_EQ(leftoversEverywhere(), 0U);
    EXPECT_NE(note(), row.lacking.size() == 2 ? "" : clean);
  }
}

// --- Writers that die, and disks that fail, at any system call ---

struct Change {
  const char* description;
  std::function<void(FolderLibrary& library)> make;
  std::set<std::string> lacking = {};  // calls that the system does not know

  friend void PrintTo(const Change& row, std::ostream* out) { *out << row.description; }
};

class InterruptedChange : public WritersNotes, public ::testing::WithParamInterface<Change> {
 protected:
  InterruptedChange() : WritersNotes(kelvane::tests::folderInMemory()) {}

  /// Makes the change in a process in which the calls from the `first`-th on fail with `error`, up to the `last`-th.
  /// What it said; nothing if there were not so many calls.
  std::string changed(const kelvane::tests::KindOfCalls& kind, int first, int error, int last) {
    return inChild([&]() -> std::string {
      StagedCalls staged;
      staged.before = [&](std::string_view call) {
        return GetParam().lacking.contains(std::string(call)) ? EINVAL : 0;
      };
      const auto own = std::make_shared<History>(root);
      FolderLibrary another(root, own, {staged, std::chrono::milliseconds(20), std::chrono::milliseconds(5)});
      if (!FailingSystemCalls::begin(kind, first, error, last)) return notStaged;
      const std::string said = sentenceOf([&] {
        const auto lock = another.lock();
        GetParam().make(another);
      });
      FailingSystemCalls::stop();
      return FailingSystemCalls::count() < first ? std::string() : said;
    });
  }

  /// The next writer works elsewhere, and finds what is left all the same.
  void expectTheNextWriterToClearUp() {
    writeLocked("next", "Here/Talk.md");
    EXPECT_EQ(leftoversEverywhere(), 0U);
    EXPECT_EQ(note(), clean);
    for (const char* script : {"There/Talk.md", "There/New.md", "There/Back.md"}) {
      const std::string text = bytesOf(script);
      EXPECT_THAT(text, ::testing::AnyOf("old", "new", "")) << script;
    }
    const bool isThere = bytesOf("There/Talk.md") == "old" || bytesOf("There/New.md") == "old";
    EXPECT_TRUE(isThere || history->hasVersionWith("old", "There/Talk.md"));
  }

  /// Back to what it was before.
  void restore() {
    for (const char* script : {"There/New.md", "There/Back.md"}) std::filesystem::remove(root / script);
    put("There/Talk.md", "old");
  }
};

TEST_P(InterruptedChange, byDeathAtAnySystemCallIsClearedUpByTheNextWriterElsewhere) {
  int deaths = 0;
  int timesLeft = 0;
  for (int first = 1;; ++first) {
    SCOPED_TRACE("killed at call " + std::to_string(first));
    restore();
    const std::string said = changed(kindsOfCalls().back(), first, FailingSystemCalls::death, first);
    if (said == notStaged) GTEST_SKIP() << notStaged;
    timesLeft += leftoversEverywhere() > 0;
    expectTheNextWriterToClearUp();
    if (said.empty()) break;
    ASSERT_EQ(said, "killed by signal 9");
    ++deaths;
  }
  std::cout << deaths << " deaths, " << timesLeft << " with a temporary file left\n";
  EXPECT_GT(deaths, 20);
}

TEST_P(InterruptedChange, byADiskThatFailsAtAnySystemCallIsClearedUpByTheNextWriterElsewhere) {
  int timesLeft = 0;
  for (const bool isForGood : {true, false}) {
    for (const auto& kind : kindsOfCalls()) {
      for (int first = 1;; ++first) {
        SCOPED_TRACE(kind.name + " fails at call " + std::to_string(first) + (isForGood ? " and from there on" : ""));
        restore();
        const std::string said = changed(kind, first, EIO, isForGood ? FailingSystemCalls::mostCalls : first);
        if (said == notStaged) GTEST_SKIP() << notStaged;
        SCOPED_TRACE(said);
        EXPECT_EQ(said.find("not there any more"), std::string::npos);
        timesLeft += leftoversEverywhere() > 0;
        expectTheNextWriterToClearUp();
        if (said.empty()) break;
      }
    }
  }
  std::cout << timesLeft << " times with a temporary file left\n";
}

const Change changes[] = {
    {"a new text",
     [](FolderLibrary& library) {
       library.write("new", {"There/Talk.md", "Talk", {}, {}});
     }},
    {"a new text, without the exchange",
     [](FolderLibrary& library) {
       library.write("new", {"There/Talk.md", "Talk", {}, {}});
     },
     {"exchange"}},
    {"a new script", [](FolderLibrary& library) { library.createWithText("New", "There", "new"); }},
    {"a new script that cannot be written",
     [](FolderLibrary& library) { library.createWithText("New", "There", "new"); },
     {"write"}},
    {"a script put back", [](FolderLibrary& library) { library.recreate("There/Back.md", "new"); }},
    {"a new name",
     [](FolderLibrary& library) {
       library.rename({"There/Talk.md", "Talk", {}, {}}, "New");
     }},
    {"a new name in several steps",
     [](FolderLibrary& library) {
       library.rename({"There/Talk.md", "Talk", {}, {}}, "New");
     },
     {"renameToFreeName"}},
};

INSTANTIATE_TEST_SUITE_P(Rows, InterruptedChange, ::testing::ValuesIn(changes), kelvane::tests::RowName());

}  // namespace
}  // namespace quorvel
