#include <algorithm>
#include <new>
#include <optional>

#include "quorvel/files/SystemReason.h"
#include "quorvel/settings/FileLeftovers.h"
#include "tests/quorvel/ScarceMemory.h"
#include "tests/quorvel/SystemAbilities.h"
#include "tests/quorvel/settings/StagedFiles.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FailingSystemCalls.h"

namespace quorvel::changes {
namespace {

using kelvane::tests::FailingSystemCalls;
using kelvane::tests::KindOfCalls;

constexpr const char* noFailure = "(no failure)";
constexpr const char* notStaged = "no call can be made to fail here";

FileEdit to(const std::string& text) {
  return [text](const auto&) { return std::optional(text); };
}

// Makes each call of each kind fail from each one on, and compares what is said with the disk.
TEST(FileChangeOnADyingDisk, isToldAsItIsAndLosesNoText) {
  const TemporaryFolder folder(kelvane::tests::folderInMemory());
  const fs::path file = folder.path() / "f";
  const fs::path copy = folder.path() / "f.copy";
  // What the change says. Empty if there are fewer calls.
  const auto runUntil = [&](const KindOfCalls& kind, int first, int error) {
    return kelvane::tests::inChild([&]() -> std::string {
      FileCopies copies = copiesOf(file);
      if (!FailingSystemCalls::begin(kind, first, error)) return notStaged;
      const std::string said = errorOf([&] { changeFile(copies, to("new")); });
      FailingSystemCalls::stop();
      return FailingSystemCalls::count() < first ? std::string() : said;
    });
  };
  const auto check = [&](const std::string& said, const std::string& old, int error) {
    const std::string quotedFile = inQuotes(file.native());
    const bool isSaidToStand = said == noFailure || said.starts_with("The new text of ");
    const bool isSaidToBeOpen =
        said.starts_with("It is not certain that the right text is in " + quotedFile + ", because ");
    if (!isSaidToBeOpen) {
      EXPECT_EQ(got(file), isSaidToStand ? "new" : old);
    }
    if (isSaidToStand || isSaidToBeOpen) {
      EXPECT_EQ(got(copy), old);
    }
    if (said != noFailure && isSaidToStand) {
      EXPECT_EQ(said, because("The new text of " + quotedFile + " is in its place, but a power failure may undo that",
                              systemError(error)));
    }
    EXPECT_TRUE(said == noFailure || said.ends_with('.'));

    FileCopies copies = copiesOf(file);
    changeFile(copies, to("next"));
    EXPECT_EQ(got(file), "next");
    for (const FileLeftover& leftover : leftoversOf(copies)) {
      EXPECT_TRUE(isSaidToBeOpen && said.find(leftover.file.native()) != std::string::npos);
      EXPECT_EQ(got(leftover.file), "new");
    }
    EXPECT_EQ(got(copy), old == "no file" && isSaidToStand ? "new" : old);
  };
  for (const KindOfCalls& kind : kelvane::tests::kindsOfCalls()) {
    for (const int error : {EIO, ENOSPC, EACCES}) {
      for (const bool isThere : {true, false}) {
        for (int first = 1;; ++first) {
          for (const auto& entry : fs::directory_iterator(folder.path())) fs::remove(entry.path());
          if (isThere) put(file, "old");
          const std::string said = runUntil(kind, first, error);
          if (said == notStaged) GTEST_SKIP() << notStaged;
          if (said.empty()) break;
          SCOPED_TRACE(kind.name + ' ' + std::to_string(first) + (isThere ? "" : ", no file") + ", errno " +
                       std::to_string(error) + ": " + said);
          check(said, isThere ? "old" : "no file", error);
          ASSERT_LT(first, 500) << "The change never came to its end.";
        }
      }
    }
  }
}

TEST(FileChangeWithoutMemory, saysWhereTheTextsAreWithoutTheMemoryToReadThem) {
  if (!systemSwaps()) GTEST_SKIP() << noSwaps;
  const std::string noMemory = "because the system is out of memory. Close some programs and try again.";
  for (const std::size_t failures : {1U, 2U, 9U}) {
    SCOPED_TRACE(std::to_string(failures) + " failures");
    const TemporaryFolder folder;
    const fs::path file = folder.path() / "f";
    const std::string old(100'000, 'o');
    put(file, old);
    StagedCalls calls;
    std::optional<kelvane::tests::ScarceMemory> scarce;
    calls.beforeSwap = [&] {
      if (calls.swaps == 0) scarce.emplace(failures);
    };
    FileCopies copies = copiesOf(file, calls);
    std::string said;
    try {
      changeFile(copies, to(std::string(100'000, 'n')));
    } catch (const FileError& error) {
      said = error.what();
    } catch (const std::bad_alloc&) {
      said = "(no memory)";
    }
    EXPECT_EQ(scarce->failed(), std::min<std::size_t>(failures, 3));
    scarce.reset();
    EXPECT_EQ(got(file).substr(0, 3), "ooo");
    if (failures < 3) {
      EXPECT_EQ(said, '"' + file.native() + "\" could not be written, " + noMemory);
      EXPECT_EQ(entries(folder.path()), 1U);
    } else {
      EXPECT_EQ(said.find("It is not certain that the right text is in \"" + file.native() + "\", " + noMemory +
                          " Then compare it with \""),
                0U)
          << said;
      EXPECT_EQ(got(file.native() + ".copy").substr(0, 3), "ooo");
      EXPECT_EQ(entries(folder.path()), 3U);
    }
  }
}

}  // namespace
}  // namespace quorvel::changes
