#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "tests/quorvel/library/OtherPrograms.h"
#include "tests/support/ChildProcess.h"

namespace quorvel {
namespace {

using kelvane::tests::inChild;
using ::testing::ElementsAre;

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

TEST_F(HalfSaved, isNoticedAsLongAsAProgramHasItOpenForWriting) {
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

TEST_F(HalfSaved, isReadWholeBeforeItIsReplaced) {
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
  calls.before = [&](std::string_view call) {
    if (isAboutToBeRenamedOver(call)) {
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
#if defined(KELVANE_PORTABLE)
  GTEST_SKIP() << "no disk is asked who has a file open";
#endif
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

TEST_F(HalfSaved, refusesTheWriteIfItIsNeverFinishedAndKeepsTheFile) {
  if (!systemTells()) GTEST_SKIP() << "this disk does not tell who has a file open";
  calls.interrupt("exchange", [&] { begin(); });
  const std::string sentence =
      "\"Talk.md\" could not be written, because another program has it open for writing. Save and close it there, "
      "then "
      "try again.";
  const auto write = [&] { impatient().write("new", script("Talk.md")); };
  EXPECT_EQ(sentenceOf(write), sentence);
  EXPECT_EQ(sentenceOf(write), sentence);  // now from the start
  finish();
  EXPECT_EQ(bytesOf("Talk.md"), "half and whole");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

}  // namespace
}  // namespace quorvel
