#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
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
  calls.before = [&, exchanges = 0](std::string_view call) mutable {
    if (call == "exchange" && ++exchanges == 1) {
      saveByRenaming("theirs");
      damageHistory();
    } else if (call == "exchange" && exchanges == 2) {
      saveByRenaming("third");
    }
    return 0;
  };
  EXPECT_THROW(writeNew(), HistoryError);
  EXPECT_EQ(bytesOf("Talk.md"), "third");
  EXPECT_EQ(leftovers(), 1U);

  repairHistory();
  writeNew();
  EXPECT_EQ(bytesOf("Talk.md"), "new");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
  EXPECT_EQ(story("Talk.md"),
            std::string("kept: old\nBefore — found after an interrupted change: theirs\n") + meanwhile + "third\n");
}

TEST_F(UndoneWrite, thatCannotBeUndoneSaysWhatIsTrueAndLeavesTheTextToTheNextWriter) {
  calls.before = [&, exchanges = 0](std::string_view call) mutable {
    if (call == "exchange" && ++exchanges == 1) {
      saveByRenaming("theirs");
      damageHistory();
    }
    return call == "exchange" && exchanges == 2 ? EIO : 0;
  };
  EXPECT_EQ(sentenceOf([&] { writeNew(); }),
            "The new text of \"Talk.md\" is in its place, but what another program had saved there just before could "
            "not be put into the version history. It is in a hidden file beside the script, and the next change of the "
            "script takes it into the history.");
  EXPECT_EQ(bytesOf("Talk.md"), "new");
  EXPECT_EQ(leftovers(), 1U);

  repairHistory();
  library.write("newer", script("Talk.md"));
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
  EXPECT_EQ(story("Talk.md"),
            std::string("kept: old\nBefore — found after an interrupted change: theirs\n") + meanwhile + "new\n");
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
  void begin() {
    editor_ = Descriptor(::open((root / "Talk.md").c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
    ASSERT_EQ(::write(editor_.get(), "half ", 5), 5);
  }
  void finish() {
    ASSERT_EQ(::write(editor_.get(), "and whole", 9), 9);
    editor_ = Descriptor();
  }

  bool systemTells() const {
    const Descriptor writer(::open((root / "Talk.md").c_str(), O_WRONLY | O_CLOEXEC));
    const Descriptor reader(::open((root / "Talk.md").c_str(), O_RDONLY | O_CLOEXEC));
    return !waitForWriters(reader.get(), std::chrono::milliseconds(0));
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
