#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <string_view>

#include "program/OpenedLibrary.h"
#include "program/commands/Commands.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FailingSystemCalls.h"
#include "tests/support/Files.h"
#include "tests/support/Sentence.h"
#include "tests/support/TemporaryFolder.h"

namespace kelvane::tests {
namespace {

constexpr const char* noFailure = "(no failure)";
constexpr const char* notStaged = "the system does not let calls fail";

// What the command says if the calls from the `first`-th to the `last`-th fail. Nothing when the first was never made.
std::string restored(const std::filesystem::path& root, const KindOfCalls& kind, int first,
                     int last = FailingSystemCalls::mostCalls) {
  return inChild([&]() -> std::string {
    const int nowhere = ::open("/dev/null", O_WRONLY);
    if (nowhere < 0 || ::dup2(nowhere, STDOUT_FILENO) < 0) return "no output";
    Arguments arguments;
    arguments.words = {"Talk.md", "1"};
    arguments.set(libraryOption, root.native());
    if (!FailingSystemCalls::begin(kind, first, EIO, last)) return notStaged;
    const std::string said = sentenceOf([&] { commands::restoreCommand.run(arguments); });
    FailingSystemCalls::stop();
    return FailingSystemCalls::count() < first ? std::string() : said;
  });
}

// A disk that dies: every call of a kind fails from some moment on. What is said then is what is on the disk.
TEST(RestoreOnADyingDisk, isToldAsItIsAndLosesNoText) {
  const TemporaryFolder folder(folderInMemory());
  const std::filesystem::path sound = folder.path() / "Sound";
  const std::filesystem::path root = folder.path() / "Library";
  std::filesystem::create_directory(sound);
  writeFile(sound / "Talk.md", "first");
  openLibrary(sound, "").history->snapshot("first", sound / "Talk.md", "kept");
  writeFile(sound / "Talk.md", "now");
  openLibrary(sound, "").library->lock();
  int moments = 0;
  int stood = 0;
  for (const KindOfCalls& kind : kindsOfCalls()) {
    for (int first = 1;; ++first) {
      SCOPED_TRACE(kind.name + " fails from call " + std::to_string(first) + " on");
      std::filesystem::remove_all(root);
      std::filesystem::copy(sound, root, std::filesystem::copy_options::recursive);
      const std::string said = restored(root, kind, first);
      if (said == notStaged) GTEST_SKIP() << notStaged;
      if (said.empty()) break;
      SCOPED_TRACE(said);
      const auto says = [&](std::string_view part) { return said.find(part) != std::string::npos; };
      const bool isSaidToStand = said == noFailure || says("The output cannot be written") ||
                                 says("The new text of \"Talk.md\" is in its place") ||
                                 says("The new text of \"Talk.md\" was written");
      EXPECT_EQ(bytesOf(root / "Talk.md"), isSaidToStand ? "first" : "now");
      EXPECT_FALSE(said.starts_with("killed"));
      const OpenedLibrary after = openLibrary(root, "");
      EXPECT_TRUE(!isSaidToStand || after.history->hasVersionWith("now", "Talk.md"));
      after.library->write("next", {"Talk.md", "Talk", quorvel::ScriptItem::Kind::script, std::nullopt});
      EXPECT_EQ(bytesOf(root / "Talk.md"), "next");
      EXPECT_TRUE(after.history->hasVersionWith("now", "Talk.md"));
      EXPECT_TRUE(after.history->hasVersionWith("first", "Talk.md"));
      ++moments;
      stood += isSaidToStand;
    }
  }
  EXPECT_GT(moments, 50);
  EXPECT_GT(stood, 0);
}

// A disk that fails for a moment.
TEST(RestoreOnAFlickeringDisk, doesNotTakeAScriptForGone) {
  const TemporaryFolder folder(folderInMemory());
  const std::filesystem::path root = folder.path();
  const OpenedLibrary opened = openLibrary(root, "");
  writeFile(root / "Talk.md", "first");
  opened.history->snapshot("first", root / "Talk.md", "kept");
  int moments = 0;
  for (const KindOfCalls& kind : kindsOfCalls()) {
    for (int first = 1;; ++first, ++moments) {
      SCOPED_TRACE(kind.name + " fails at call " + std::to_string(first));
      writeFile(root / "Talk.md", "now");
      const std::string said = restored(root, kind, first, first);
      if (said == notStaged) GTEST_SKIP() << notStaged;
      if (said.empty()) break;
      EXPECT_EQ(said.find("could not be put back"), std::string::npos) << said;
      EXPECT_EQ(said.find("Nothing at"), std::string::npos) << said;
    }
  }
  EXPECT_GT(moments, 50);
}

}  // namespace
}  // namespace kelvane::tests
