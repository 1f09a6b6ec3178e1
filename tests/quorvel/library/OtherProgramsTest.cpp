#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "quorvel/library/OpenWriters.h"
#include "tests/quorvel/library/LibraryHouse.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Random.h"

namespace quorvel {
namespace {

using kelvane::tests::dieAtOnce;
using kelvane::tests::inChild;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char* meanwhile = "Before — saved by another program meanwhile: ";

// Programs that take no lock and save a script while it is being replaced.
class OtherPrograms : public LibraryHouse {
 protected:
  OtherPrograms() {
    put("Talk.md", "old");
    history->snapshot("old", root / "Talk.md", "kept");
  }

  // The two ways in which programs save.
  void saveInPlace(std::string_view text) const { put("Talk.md", text); }
  void saveByRenaming(std::string_view text) const {
    put("Talk.md~", text);
    std::filesystem::rename(root / "Talk.md~", root / "Talk.md");
  }

  bool systemTells() const {
    const Descriptor writer(::open((root / "Talk.md").c_str(), O_WRONLY | O_CLOEXEC));
    const Descriptor reader(::open((root / "Talk.md").c_str(), O_RDONLY | O_CLOEXEC));
    return !waitForWriters(reader.get(), std::chrono::milliseconds(0));
  }

  void damageHistory() const { put(".kelvane/history.sqlite", std::string(8192, 'x')); }

  void writeNew() { library.write("new", script("Talk.md")); }
};

struct Save {
  const char* description;
  const char* call;  // just before which the other program saves
  int time;
  bool renaming;
  bool exchanges;
};

class SaveMeanwhile : public OtherPrograms, public ::testing::WithParamInterface<Save> {};

TEST_P(SaveMeanwhile, isInTheHistoryWhenTheWriteReturns) {
  const Save& save = GetParam();
  calls.before = [&, left = save.time](std::string_view call) mutable {
    if (call == save.call && --left == 0) save.renaming ? saveByRenaming("theirs") : saveInPlace("theirs");
    return call == "exchange" && !save.exchanges ? EINVAL : 0;
  };
  writeNew();
  EXPECT_EQ(bytesOf("Talk.md"), "new") << save.description;
  EXPECT_EQ(story("Talk.md"), std::string("kept: old\n") + meanwhile + "theirs\n") << save.description;
  EXPECT_THAT(names(), ElementsAre("Talk.md")) << save.description;
}

const Save saves[] = {
    {"in place, while the text is being written", "write", 1, false, true},
    {"by renaming, while the text is being written", "write", 1, true, true},
    {"in place, when the text is flushed", "flush", 1, false, true},
    {"by renaming, when the text is flushed", "flush", 1, true, true},
    {"in place, just before the exchange", "exchange", 1, false, true},
    {"by renaming, just before the exchange", "exchange", 1, true, true},
    {"in place, without the exchange", "flush", 1, false, false},
    {"by renaming, without the exchange", "flush", 1, true, false},
    {"in place, between the last look and the second name", "link", 1, false, false},
    {"in place, between the second name and the replacement", "rename", 2, false, false},
};

INSTANTIATE_TEST_SUITE_P(Rows, SaveMeanwhile, ::testing::ValuesIn(saves),
                         [](const auto& row) { return "row" + std::to_string(row.index); });

TEST_F(OtherPrograms, aSaveAfterTheExchangeStays) {
  calls.interrupt("unlink", [&] { saveByRenaming("theirs"); });
  writeNew();
  EXPECT_EQ(bytesOf("Talk.md"), "theirs");
  EXPECT_EQ(story("Talk.md"), "kept: old\n");
}

TEST_F(OtherPrograms, withoutTheExchangeASaveAfterTheLastLookRefusesTheWrite) {
  calls.before = [&](std::string_view call) {
    if (call == "link") saveByRenaming("theirs");
    return call == "exchange" ? EINVAL : 0;
  };
  EXPECT_THAT(sentenceOf([&] { writeNew(); }), StartsWith("\"Talk.md\" could not be written, because another program"));
  EXPECT_EQ(bytesOf("Talk.md"), "theirs");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

TEST_F(OtherPrograms, anEmptyTextIsNotKept) {
  calls.interrupt("exchange", [&] { saveInPlace(""); });
  writeNew();
  EXPECT_EQ(bytesOf("Talk.md"), "new");
  EXPECT_EQ(story("Talk.md"), "kept: old\n");
}

TEST_F(OtherPrograms, theirTextComesBackWhenItCannotBeKept) {
  calls.interrupt("exchange", [&] {
    saveByRenaming("theirs");
    damageHistory();
  });
  EXPECT_THROW(writeNew(), HistoryError);
  EXPECT_EQ(bytesOf("Talk.md"), "theirs");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

TEST_F(OtherPrograms, withoutTheExchangeNothingIsReplacedThatGetsNoSecondName) {
  for (const int error : {ENOSPC, EDQUOT, EIO, EMLINK}) {
    calls.before = [error](std::string_view call) { return call == "exchange" ? EINVAL : call == "link" ? error : 0; };
    EXPECT_THAT(sentenceOf([&] { writeNew(); }), StartsWith("\"Talk.md\" could not be written, because "));
    EXPECT_EQ(bytesOf("Talk.md"), "old");
    EXPECT_THAT(names(), ElementsAre("Talk.md"));
  }
}

TEST_F(OtherPrograms, withoutTheExchangeAReplacementThatWasMadeThoughTheDiskDeniesItCounts) {
  calls.lack({"exchange"}, EINVAL);
  calls.renamingToBeDenied = 2;  // behind that of the temporary file
  writeNew();
  EXPECT_EQ(bytesOf("Talk.md"), "new");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

TEST_F(OtherPrograms, withoutTheExchangeTheirTextStaysWhenItCannotBeKept) {
  calls.before = [&](std::string_view call) {
    if (call == "write") {
      saveByRenaming("theirs");
      damageHistory();
    }
    return call == "exchange" ? EINVAL : 0;
  };
  EXPECT_THROW(writeNew(), HistoryError);
  EXPECT_EQ(bytesOf("Talk.md"), "theirs");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

// The history is whole again for the next writer: what was damaged here is put back.
class UndoneWrite : public OtherPrograms {
 protected:
  void repairHistory() const { put(".kelvane/history.sqlite", sound_); }
  const std::string sound_ = bytesOf(".kelvane/history.sqlite");
};

TEST_F(UndoneWrite, metByAThirdSaveLosesNeitherText) {
  for (const bool renaming : {true, false}) {
    SCOPED_TRACE(renaming ? "by renaming" : "in place, onto the new text");
    const std::string third = renaming ? "third" : "fourth";
    calls.before = [&, exchanges = 0](std::string_view call) mutable {
      if (call == "exchange" && ++exchanges == 1) {
        saveByRenaming("not " + third);
        damageHistory();
      } else if (call == "exchange" && exchanges == 2) {
        renaming ? saveByRenaming(third) : saveInPlace(third);
      }
      return 0;
    };
    EXPECT_THROW(writeNew(), HistoryError);
    EXPECT_EQ(bytesOf("Talk.md"), third);
    EXPECT_EQ(leftovers(), 1U);

    repairHistory();
    writeNew();
    EXPECT_EQ(bytesOf("Talk.md"), "new");
    EXPECT_THAT(names(), ElementsAre("Talk.md"));
    EXPECT_EQ(story("Talk.md"),
              "kept: old\nBefore — found after an interrupted change: not " + third + "\n" + meanwhile + third + "\n");
  }
}

TEST_F(UndoneWrite, leavesAProgramThatBeganToSaveOntoTheNewTextItsFile) {
  if (!systemTells()) GTEST_SKIP() << "this disk does not tell who has a file open";
  Descriptor editor;
  calls.before = [&, exchanges = 0](std::string_view call) mutable {
    if (call == "exchange" && ++exchanges == 1) {
      saveByRenaming("theirs");
      damageHistory();
    } else if (call == "exchange" && exchanges == 2) {
      editor = Descriptor(::open((root / "Talk.md").c_str(), O_WRONLY | O_CLOEXEC));
    }
    return 0;
  };
  EXPECT_THROW(writeNew(), HistoryError);
  ASSERT_EQ(::write(editor.get(), "third", 5), 5);
  editor = Descriptor();
  EXPECT_EQ(bytesOf("Talk.md"), "third");
  repairHistory();
  writeNew();
  EXPECT_EQ(story("Talk.md"),
            std::string("kept: old\nBefore — found after an interrupted change: theirs\n") + meanwhile + "third\n");
}

TEST_F(UndoneWrite, losesNothingInAProcessThatDiesAtAnyCall) {
  int deaths = 0;
  int thirdSaves = 0;
  for (int time = 1;; ++time) {
    SCOPED_TRACE("call " + std::to_string(time));
    saveByRenaming("old");
    std::filesystem::remove(root / "saved");
    const std::string answer = inChild([&]() -> std::string {
      calls.before = [&, exchanges = 0, made = 0](std::string_view call) mutable {
        if (call == "openBeneath" || call == "nextEntry") return 0;
        if (call == "exchange" && ++exchanges == 1) {
          saveByRenaming("theirs");
          damageHistory();
        } else if (call == "exchange" && exchanges == 2) {
          saveInPlace("third");
          put("saved", "");
        }
        if (++made == time) dieAtOnce();
        return 0;
      };
      return sentenceOf([&] { writeNew(); });
    });
    repairHistory();
    FolderLibrary(root, history).write("next", script("Talk.md"));
    EXPECT_EQ(leftovers(), 0U);
    const bool saved = std::filesystem::exists(root / "saved");
    EXPECT_TRUE(!saved || history->holds("third", "Talk.md"));
    EXPECT_TRUE(!saved || history->holds("theirs", "Talk.md"));
    thirdSaves += saved;
    if (!answer.starts_with("killed")) break;
    ++deaths;
  }
  EXPECT_GE(deaths, 7);
  EXPECT_GE(thirdSaves, 3);
}

class UndoneWriteWithout : public UndoneWrite, public ::testing::WithParamInterface<std::pair<const char*, int>> {};

INSTANTIATE_TEST_SUITE_P(Calls, UndoneWriteWithout, ::testing::Values(std::pair("exchange", 2), std::pair("rename", 2)),
                         [](const auto& row) { return row.param.first; });

TEST_P(UndoneWriteWithout, whatItTakesSaysWhatIsTrueAndLeavesTheTextToTheNextWriter) {
  calls.before = [&, made = 0](std::string_view call) mutable {
    if (call == "exchange" && !std::filesystem::exists(root / "saved")) {
      put("saved", "");
      saveByRenaming("theirs");
      damageHistory();
    }
    const auto& [failing, time] = GetParam();
    return call == failing && ++made == time ? EIO : 0;
  };
  EXPECT_EQ(sentenceOf([&] { writeNew(); }),
            "The new text of \"Talk.md\" is in its place, but what another program had saved there just before could "
            "not be put into the version history. It is in a hidden file beside the script, and the next change of the "
            "script takes it into the history.");
  EXPECT_EQ(bytesOf("Talk.md"), "new");
  EXPECT_EQ(leftovers(), 1U);

  repairHistory();
  library.write("newer", script("Talk.md"));
  EXPECT_THAT(names(), ElementsAre("Talk.md", "saved"));
  EXPECT_EQ(story("Talk.md"),
            std::string("kept: old\nBefore — found after an interrupted change: theirs\n") + meanwhile + "new\n");
}

TEST_F(OtherPrograms, withNeitherExchangeNorSecondNamesWhatCannotBeKeptIsSaidToBeLost) {
  calls.before = [&, renames = 0](std::string_view call) mutable {
    if (call == "rename" && ++renames == 2) {
      saveInPlace("theirs");
      damageHistory();
    }
    return call == "exchange" ? EINVAL : call == "link" ? EPERM : 0;
  };
  EXPECT_EQ(
      sentenceOf([&] { writeNew(); }),
      "The new text of \"Talk.md\" is in its place, but what another program had saved there just before could "
      "not be put into the version history and is lost. If that program still shows it, save it there again under "
      "another name.");
  EXPECT_EQ(bytesOf("Talk.md"), "new");
  EXPECT_EQ(leftovers(), 0U);
}

// What is kept before the replacement needs not be kept again behind it.
TEST_F(OtherPrograms, withoutTheExchangeAHistoryThatIsDamagedAfterTheyWereKeptIsNotMissed) {
  saveInPlace("theirs");
  calls.before = [&, renames = 0](std::string_view call) mutable {
    if (call == "rename" && ++renames == 2) damageHistory();
    return call == "exchange" ? EINVAL : 0;
  };
  EXPECT_NO_THROW(writeNew());
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

struct Swap {
  const char* description;
  std::function<void(const std::filesystem::path& script)> happening;
  const char* sentence;
};

class SwappedMeanwhile : public OtherPrograms, public ::testing::WithParamInterface<Swap> {};

TEST_P(SwappedMeanwhile, whatIsNoFileComesBackUnchanged) {
  const auto file = root / "Talk.md";
  calls.interrupt("exchange", [&] {
    std::filesystem::remove(file);
    GetParam().happening(file);
  });
  EXPECT_EQ(sentenceOf([&] { writeNew(); }),
            std::string("\"Talk.md\" could not be written, because ") + GetParam().sentence)
      << GetParam().description;
  EXPECT_FALSE(std::filesystem::is_regular_file(std::filesystem::symlink_status(file)));
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

const Swap swaps[] = {
    {"a folder", [](const auto& file) { std::filesystem::create_directory(file); },
     "it is a folder now. List the library again to see what is there now."},
    {"a link", [](const auto& file) { std::filesystem::create_symlink("/etc/passwd", file); },
     "a link or a file has taken the place of it or of a folder above it. List the library again to see what is there "
     "now."},
    {"a pipe", [](const auto& file) { ASSERT_EQ(::mkfifo(file.c_str(), 0644), 0); },
     "what is there now is not a file. Move it away and try again."},
};

INSTANTIATE_TEST_SUITE_P(Rows, SwappedMeanwhile, ::testing::ValuesIn(swaps),
                         [](const auto& row) { return "row" + std::to_string(row.index); });

TEST_F(OtherPrograms, aDeletionMeanwhileIsNotUndone) {
  calls.interrupt("exchange", [&] { std::filesystem::remove(root / "Talk.md"); });
  EXPECT_THAT(sentenceOf([&] { writeNew(); }), HasSubstr("because it is not there any more"));
  EXPECT_THAT(names(), ElementsAre());
}

// Saving in place takes a program several steps, and it holds the file open meanwhile.
class HalfSaved : public OtherPrograms {
 protected:
  // In a child: a disk of two layers at a folder, each with a file of its name. False where the system does not let us.
  static bool mountOverlay(const std::filesystem::path& at) {
    const int spaces = ::geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER;
    if (::unshare(spaces) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", at.c_str(), "tmpfs", 0, nullptr) != 0)
      return false;
    for (const char* layer : {"lower", "upper", "work"}) std::filesystem::create_directory(at / layer);
    for (const char* layer : {"lower", "upper"}) std::ofstream(at / layer / layer) << "words";
    const std::string options = "lowerdir=" + (at / "lower").native() + ",upperdir=" + (at / "upper").native() +
                                ",workdir=" + (at / "work").native();
    return ::mount("overlay", at.c_str(), "overlay", 0, options.c_str()) == 0;
  }

  void begin() {
    editor_ = Descriptor(::open((root / "Talk.md").c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
    ASSERT_EQ(::write(editor_.get(), "half ", 5), 5);
  }
  void finish() {
    ASSERT_EQ(::write(editor_.get(), "and whole", 9), 9);
    editor_ = Descriptor();
  }

  Descriptor editor_;
};

TEST_F(HalfSaved, isSeenWhileItIsOpenForWritingOnly) {
  if (!systemTells()) GTEST_SKIP() << "this disk does not tell who has a file open";
  const Descriptor reader(::open((root / "Talk.md").c_str(), O_RDONLY | O_CLOEXEC));
  const Descriptor otherReader(::open((root / "Talk.md").c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_TRUE(waitForWriters(reader.get(), std::chrono::milliseconds(0)));
  begin();
  EXPECT_FALSE(waitForWriters(reader.get(), std::chrono::milliseconds(0)));
  EXPECT_FALSE(waitForWriters(reader.get(), std::chrono::milliseconds(5)));
  finish();
  EXPECT_TRUE(waitForWriters(reader.get(), std::chrono::milliseconds(0)));
}

// Asking must not disturb a program that begins to save just then, nor must its beginning end us.
TEST_F(HalfSaved, isNotDisturbedByBeingAskedFor) {
  kelvane::tests::ChildProcess asker([&] {
    const Descriptor reader(::open((root / "Talk.md").c_str(), O_RDONLY | O_CLOEXEC));
    for (int count = 0; count < 20'000; ++count) waitForWriters(reader.get(), std::chrono::milliseconds(0));
    return std::string("alive");
  });
  for (int count = 0; count < 2000; ++count) saveInPlace("text " + std::to_string(count));
  EXPECT_EQ(asker.answer(), "alive");
  EXPECT_EQ(bytesOf("Talk.md"), "text 1999");
}

TEST_F(HalfSaved, isWaitedForAndKeptWhole) {
  if (!systemTells()) GTEST_SKIP() << "this disk does not tell who has a file open";
  std::thread rest;
  calls.interrupt("exchange", [&] {
    begin();
    rest = std::thread([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      finish();
    });
  });
  writeNew();
  rest.join();
  EXPECT_EQ(bytesOf("Talk.md"), "new");
  EXPECT_EQ(story("Talk.md"), std::string("kept: old\n") + meanwhile + "half and whole\n");
}

TEST_F(HalfSaved, isReadWholeByWhoWillReplaceIt) {
  if (!systemTells()) GTEST_SKIP() << "this disk does not tell who has a file open";
  begin();
  EXPECT_EQ(library.read(script("Talk.md")), "half ") << "a reader waits for nobody";
  std::thread rest([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    finish();
  });
  EXPECT_EQ(library.readToReplace(script("Talk.md")), "half and whole");
  rest.join();
}

TEST_F(HalfSaved, isWaitedForWithoutTheExchangeToo) {
  if (!systemTells()) GTEST_SKIP() << "this disk does not tell who has a file open";
  std::thread rest;
  calls.before = [&, renames = 0](std::string_view call) mutable {
    if (call == "rename" && ++renames == 2) {
      begin();
      rest = std::thread([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        finish();
      });
    }
    return call == "exchange" ? EINVAL : 0;
  };
  writeNew();
  rest.join();
  EXPECT_EQ(bytesOf("Talk.md"), "new");
  EXPECT_EQ(story("Talk.md"), std::string("kept: old\n") + meanwhile + "half and whole\n");
}

TEST_F(HalfSaved, isSeenOnTheDisksOfContainersToo) {
  for (const char* layer : {"lower", "upper"}) {
    const std::string answer = inChild([&]() -> std::string {
      if (!mountOverlay(root)) return "no disk";
      const std::string file = root / layer;
      const Descriptor reader(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
      std::string seen = waitForWriters(reader.get(), std::chrono::milliseconds(0)) ? "free " : "written ";
      const Descriptor writer(::open(file.c_str(), O_WRONLY | O_CLOEXEC));
      const Descriptor another(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
      return seen + (waitForWriters(another.get(), std::chrono::milliseconds(0)) ? "free" : "written");
    });
    if (answer == "no disk") GTEST_SKIP() << "the system lets us mount no disk of our own";
    EXPECT_EQ(answer, "free written") << layer;
  }
}

TEST_F(HalfSaved, andNeverFinishedRefusesTheWriteAndKeepsTheirFile) {
  if (!systemTells()) GTEST_SKIP() << "this disk does not tell who has a file open";
  calls.interrupt("exchange", [&] { begin(); });
  const std::string sentence =
      "\"Talk.md\" could not be written, because another program has it open for writing. Save and close it there, "
      "then "
      "try again.";
  EXPECT_EQ(sentenceOf([&] { writeNew(); }), sentence);
  EXPECT_EQ(sentenceOf([&] { writeNew(); }), sentence);  // now from the start
  finish();
  EXPECT_EQ(bytesOf("Talk.md"), "half and whole");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

// --- Races with a real other program ---

class Races : public OtherPrograms, public ::testing::WithParamInterface<bool> {
 protected:
  // Everything that can be had again: the script's text and the texts in its history.
  bool canBeHad(const std::string& text) const { return bytesOf("Talk.md") == text || history->holds(text, "Talk.md"); }
};

TEST_P(Races, noTextOfAProgramThatSavesAllTheTimeIsLost) {
  const bool renaming = GetParam();
  auto generator = kelvane::tests::seededGenerator();
  const auto began = std::chrono::steady_clock::now();
  for (int count = 0; count < 10; ++count) writeNew();
  const auto aWrite =
      std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - began) / 10;
  // Starting a process can take longer than a write, so either side may be the one that waits; and there are rounds
  // until each has been the last.
  const auto longest = std::max(2 * aWrite, std::chrono::microseconds(3000));
  const auto aWhile = [&] { return longest * static_cast<long>(kelvane::tests::below(1000, generator)) / 1000; };
  constexpr int fewest = 60;
  constexpr int most = 5000;
  int rounds = 0;
  int ours = 0;
  for (; rounds < fewest || (rounds < most && (ours == 0 || ours == rounds)); ++rounds) {
    const std::string theirs = "theirs " + std::to_string(rounds);
    const auto later = aWhile();
    kelvane::tests::ChildProcess editor([&]() -> std::string {
      std::this_thread::sleep_for(later);
      renaming ? saveByRenaming(theirs) : saveInPlace(theirs);
      return "saved";
    });
    std::this_thread::sleep_for(aWhile());
    writeNew();
    ASSERT_EQ(editor.answer(), "saved");
    const std::string now = bytesOf("Talk.md");
    ASSERT_TRUE(now == "new" || now == theirs) << now;
    ours += now == "new";
    ASSERT_TRUE(canBeHad(theirs)) << theirs;
  }
  EXPECT_GT(ours, 0) << "they always saved last";
  EXPECT_LT(ours, rounds) << "we always wrote last";
  RecordProperty("weWroteLast", ours);
  std::cout << "we wrote last " << ours << " times of " << rounds << '\n';
  EXPECT_EQ(leftovers(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Ways, Races, ::testing::Bool(),
                         [](const auto& way) { return way.param ? "byRenaming" : "inPlace"; });

TEST_F(OtherPrograms, linksSwappedInNeverLeadReadingOrWritingOutside) {
  const auto outside = folder.path() / "Outside";
  std::filesystem::create_directories(outside);
  std::ofstream(outside / "Talk.md") << "secret";
  put("Scenes/Talk.md", "inside");
  history->snapshot("inside", root / "Scenes/Talk.md", "kept");
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  kelvane::tests::ChildProcess swapper([&] {
    ::close(ends[1]);
    std::filesystem::create_directory_symlink(outside, root / "link");
    const Descriptor at(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
    char byte;
    int made = 0;
    while (::read(ends[0], &byte, 1) < 0) {
      SystemCalls::ofTheSystem().exchange(at.get(), "link", "Scenes");
      ++made;
    }
    return std::to_string(made);
  });
  ::close(ends[0]);
  int answered = 0;
  int refused = 0;
  for (int way = 0; way < 2; ++way) {
    if (way == 1) calls.lack({"openBeneath"}, ENOSYS);
    for (int count = 0; count < 20'000 || answered == 0 || refused == 0; ++count) {
      try {
        const std::string text = library.read(script("Scenes/Talk.md"));
        ASSERT_NE(text, "secret");
        if (count % 64 == 0) library.write("inside", script("Scenes/Talk.md"));
        ++answered;
      } catch (const LibraryError&) {
        ++refused;
      }
    }
  }
  ::close(ends[1]);
  const std::string made = swapper.answer();
  std::cout << answered << " answered, " << refused << " refused, " << made << " swaps\n";
  EXPECT_GT(std::stoi(made), 1000);
  EXPECT_GT(answered, 0);
  EXPECT_GT(refused, 0);
  std::ifstream secret(outside / "Talk.md");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(secret), {}), "secret");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(outside), {}), 1);
}

}  // namespace
}  // namespace quorvel
