#include "quorvel/files/FileSwap.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "tests/quorvel/ScarceMemory.h"
#include "tests/quorvel/SystemAbilities.h"
#include "tests/support/RowName.h"
#include "tests/support/TemporaryFolder.h"

namespace quorvel {
namespace {

namespace fs = std::filesystem;

class StagedSwaps : public SystemCalls {
 public:
  std::function<int(int time)> before = [](int) { return 0; };  // what the exchange fails with, or 0
  bool hasRename = true;
  bool hasFlush = true;
  mutable bool deletesUnflushed = false;  // a swap, and then a deletion, with no flush of the folder in between

  int exchange(int folder, const char* one, const char* other) const noexcept override {
    if (const int error = before(++times_); error != 0) return errno = error, -1;
    isFlushed_ = false;
    return swapInAnyWay(folder, one, other);
  }
  int flush(int) const noexcept override {
    isFlushed_ = hasFlush;
    return hasFlush ? 0 : (errno = EIO, -1);
  }
  int unlink(int folder, const char* name) const noexcept override {
    deletesUnflushed = deletesUnflushed || !isFlushed_;
    return SystemCalls::unlink(folder, name);
  }
  int rename(int folder, const char* from, const char* to) const noexcept override {
    return hasRename ? SystemCalls::rename(folder, from, to) : (errno = EIO, -1);
  }

 private:
  mutable int times_ = 0;
  mutable bool isFlushed_ = true;
};

enum class Saving { inPlace, byRenaming };

/// What happens just before an exchange; the first is that of `make`.
struct Undoing {
  const char* description;
  int firstSave;  // programs save "1", "2" … before these exchanges
  int lastSave;
  int failing;  // the exchange that fails, or 0
  decltype(FileSwap::Undone::how) how;
  const char* inPlace;
  const char* hidden;  // the text that has the temporary name in the end, or nothing
};

void PrintTo(const Undoing& row, std::ostream* out) {
  *out << row.description;
}

class FileSwaps : public ::testing::TestWithParam<Undoing> {
 protected:
  FileSwaps() { put("f", "old"), put("unrelated", "-"); }

  void put(const std::string& name, const std::string& text) const { std::ofstream(folder_.path() / name) << text; }
  std::string got(const std::string& name) const {
    std::ifstream stream(folder_.path() / name);
    return stream ? std::string(std::istreambuf_iterator<char>(stream), {}) : "no file";
  }
  void save(const std::string& text, Saving way) const {
    if (way == Saving::inPlace) return put("f", text);
    put("own", text);
    fs::rename(folder_.path() / "own", folder_.path() / "f");
  }
  long entries() const { return std::distance(fs::directory_iterator(folder_.path()), fs::directory_iterator()); }

  const kelvane::tests::TemporaryFolder folder_;
  const Descriptor opened_ = Descriptor(::open(folder_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  StagedSwaps calls_;
};

TEST_P(FileSwaps, leaveTheLastSaveInPlaceWhenTheyAreUndone) {
  const Undoing& row = GetParam();
  for (const Saving way : {Saving::inPlace, Saving::byRenaming}) {
    SCOPED_TRACE(way == Saving::inPlace ? "in place" : "by renaming");
    put("f", "old");
    int saves = 0;
    calls_ = StagedSwaps();
    calls_.before = [&](int time) {
      if (time >= row.firstSave && time <= row.lastSave) save(std::to_string(++saves), way);
      return time == row.failing ? EIO : 0;
    };
    auto fresh = TemporaryFile::make(calls_, opened_.get(), "f");
    fresh->write("new");
    FileSwap swap(calls_, opened_.get(), "f", *fresh, "new");
    ASSERT_FALSE(swap.make());
    const FileSwap::Undone undone = swap.undo();
    EXPECT_EQ(undone.how, row.how);
    EXPECT_EQ(undone.error.value(), row.failing == 0 ? 0 : EIO);
    EXPECT_EQ(got("f"), row.inPlace);
    const std::string name = fresh->name();
    fresh.reset();
    EXPECT_EQ(entries(), row.hidden == nullptr ? 2 : 3);
    if (row.hidden == nullptr) continue;
    EXPECT_EQ(got(name), row.hidden);
    fs::remove(folder_.path() / name);
  }
}

using Undone = FileSwap::Undone;

const Undoing undoings[] = {
    {"no other program", 0, 0, 0, Undone::done, "old", nullptr},
    {"a save before the swap", 1, 1, 0, Undone::done, "1", nullptr},
    {"a save before the way back", 2, 2, 0, Undone::savedMeanwhile, "1", "old"},
    {"saves before each", 1, 2, 0, Undone::savedMeanwhile, "2", "1"},
    {"saves that end just in time", 1, 9, 0, Undone::savedMeanwhile, "9", "8"},
    {"saves that never end", 1, 20, 0, Undone::savedAllTheTime, "9", "10"},
    {"no way back", 1, 1, 2, Undone::notTakenOut, "new", "1"},
    {"a save, and no way back for it", 2, 2, 3, Undone::unclear, "old", "1"},
};

INSTANTIATE_TEST_SUITE_P(Rows, FileSwaps, ::testing::ValuesIn(undoings), kelvane::tests::RowName());

TEST_F(FileSwaps, areNotUndoneWhenTheNameCannotSayThatTheFileWasInPlace) {
  auto fresh = TemporaryFile::make(calls_, opened_.get(), "f");
  fresh->write("new");
  FileSwap swap(calls_, opened_.get(), "f", *fresh, "new");
  ASSERT_FALSE(swap.make());
  calls_.hasRename = false;
  EXPECT_EQ(swap.undo().how, Undone::notTakenOut);
  EXPECT_EQ(got("f"), "new");
  EXPECT_EQ(got(fresh->name()), "old");
}

TEST_F(FileSwaps, areUndoneOnTheDiskBeforeTheNewFileIsDeleted) {
  for (const bool hasFlush : {true, false}) {
    auto fresh = TemporaryFile::make(calls_, opened_.get(), "f");
    FileSwap swap(calls_, opened_.get(), "f", *fresh, "");
    ASSERT_FALSE(swap.make());
    calls_.hasFlush = hasFlush;
    EXPECT_EQ(swap.undo().how, Undone::done);
    EXPECT_FALSE(calls_.deletesUnflushed);
    EXPECT_EQ(got("f"), "old");
    fresh.reset();
    EXPECT_EQ(entries(), hasFlush ? 2 : 3) << "what is not on the disk for good keeps the new file";
  }
}

// A text that could not be read is no text that another program saved.
TEST_F(FileSwaps, areUndoneWithoutMemoryForTheTexts) {
  const std::string old(100'000, 'o');
  const std::string text(100'000, 'n');
  const std::string theirs = "theirs";
  const struct {
    const char* description;
    int failing;  // the exchange that fails, or 0
    int theirs;   // the exchange before which another program saves, and there is memory again; or 0
    decltype(FileSwap::Undone::how) how;
    int error;
    const std::string& inPlace;
    const std::string& hidden;
  } cases[] = {
      {"no other program", 0, 0, Undone::unclear, ENOMEM, old, text},
      {"no way back", 2, 0, Undone::notTakenOut, EIO, text, old},
      {"a save that can be read", 0, 2, Undone::unclear, ENOMEM, theirs, old},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.description);
    put("f", old);
    std::optional<kelvane::tests::ScarceMemory> scarce;
    calls_ = StagedSwaps();
    calls_.before = [&](int time) {
      if (time == row.theirs) scarce.reset(), save(theirs, Saving::byRenaming);
      return time == row.failing ? EIO : 0;
    };
    auto fresh = TemporaryFile::make(calls_, opened_.get(), "f");
    fresh->write(text);
    FileSwap swap(calls_, opened_.get(), "f", *fresh, text);
    ASSERT_FALSE(swap.make());
    scarce.emplace();
    FileSwap::Undone undone{Undone::done};
    EXPECT_NO_THROW(undone = swap.undo());
    scarce.reset();
    EXPECT_EQ(undone.how, row.how);
    EXPECT_EQ(undone.error.value(), row.error);
    EXPECT_EQ(got("f").substr(0, 6), row.inPlace.substr(0, 6));
    EXPECT_EQ(got(fresh->name()).substr(0, 6), row.hidden.substr(0, 6));
    const std::string name = fresh->name();
    fresh.reset();
    EXPECT_EQ(entries(), 3);
    fs::remove(folder_.path() / name);
  }
}

TEST_F(FileSwaps, thatFailLeaveNothingBehind) {
  calls_.before = [](int) { return EINVAL; };
  {
    auto fresh = TemporaryFile::make(calls_, opened_.get(), "f");
    fresh->write("new");
    EXPECT_EQ(FileSwap(calls_, opened_.get(), "f", *fresh, "new").make().value(), EINVAL);
  }
  EXPECT_EQ(got("f"), "old");
  EXPECT_EQ(entries(), 2);
}

}  // namespace
}  // namespace quorvel
