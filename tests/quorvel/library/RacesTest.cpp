#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "tests/quorvel/SystemAbilities.h"
#include "tests/quorvel/library/OtherPrograms.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Random.h"

namespace quorvel {
namespace {

class Races : public OtherPrograms, public ::testing::WithParamInterface<bool> {
 protected:
  // Everything that can be had again: the script's text and the texts in its history.
  bool canBeHad(const std::string& text) const {
    return bytesOf("Talk.md") == text || history->hasVersionWith(text, "Talk.md");
  }
};

TEST_P(Races, noTextOfAProgramThatSavesAllTheTimeIsLost) {
  if (!systemSwaps()) GTEST_SKIP() << noSwaps;
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
      swapInAnyWay(at.get(), "link", "Scenes");
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
