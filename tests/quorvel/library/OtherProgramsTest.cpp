#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <string>

#include "tests/quorvel/library/OtherPrograms.h"
#include "tests/support/RowName.h"

namespace quorvel {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

struct Save {
  const char* description;
  const char* call;  // just before which the other program saves
  int time;
  bool renaming;
  bool exchanges;

  friend void PrintTo(const Save& row, std::ostream* out) { *out << row.description; }
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

INSTANTIATE_TEST_SUITE_P(Rows, SaveMeanwhile, ::testing::ValuesIn(saves), kelvane::tests::RowName());

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

TEST_F(OtherPrograms, withNeitherExchangeNorSecondNamesWhatCannotBeKeptIsSaidToBeLost) {
  calls.before = [&](std::string_view call) {
    if (isAboutToBeRenamedOver(call)) {
      saveInPlace("theirs");
      damageHistory();
    }
    return call == "exchange" ? EINVAL : call == "link" ? EPERM : 0;
  };
  EXPECT_EQ(
      sentenceOf([&] { writeNew(); }),
      "The new text of \"Talk.md\" is in its place, but what another program may have saved there just before could "
      "not be put into the version history and is lost. If that program still shows it, save it there again under "
      "another name.");
  EXPECT_EQ(bytesOf("Talk.md"), "new");
  EXPECT_EQ(leftovers(), 0U);
}

// What is kept before the replacement needs not be kept again behind it.
TEST_F(OtherPrograms, withoutTheExchangeAHistoryThatIsDamagedAfterTheyWereKeptIsNotMissed) {
  saveInPlace("theirs");
  calls.before = [&](std::string_view call) {
    if (isAboutToBeRenamedOver(call)) damageHistory();
    return call == "exchange" ? EINVAL : 0;
  };
  EXPECT_NO_THROW(writeNew());
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

struct Swap {
  const char* description;
  std::function<void(const std::filesystem::path& script)> happening;
  const char* sentence;

  friend void PrintTo(const Swap& row, std::ostream* out) { *out << row.description; }
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

INSTANTIATE_TEST_SUITE_P(Rows, SwappedMeanwhile, ::testing::ValuesIn(swaps), kelvane::tests::RowName());

TEST_F(OtherPrograms, aDeletionMeanwhileIsNotUndone) {
  calls.interrupt("exchange", [&] { std::filesystem::remove(root / "Talk.md"); });
  EXPECT_THAT(sentenceOf([&] { writeNew(); }), HasSubstr("because it is not there any more"));
  EXPECT_THAT(names(), ElementsAre());
}

}  // namespace
}  // namespace quorvel
