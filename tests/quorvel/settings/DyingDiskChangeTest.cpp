#include "quorvel/files/SystemReason.h"
#include "quorvel/settings/FileLeftovers.h"
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

}  // namespace
}  // namespace quorvel::changes
