#include "platform/LargePages.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>

namespace kelvane {
namespace {

struct Free {
  void operator()(void* block) const noexcept { std::free(block); }
};
using Block = std::unique_ptr<char, Free>;

Block allocated(std::size_t size) {
  return Block(static_cast<char*>(allocate(size)));
}

long faults() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_minflt;
}

// A sanitizer has memory of its own beside each block, and ends the process that asks for too much.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool isSanitized = true;
#elif defined(__has_feature)
constexpr bool isSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool isSanitized = false;
#endif

constexpr std::size_t megabyte = std::size_t{1} << 20;

TEST(LargePages, blocksOfEverySizeHoldWhatIsWrittenToThem) {
  for (const std::size_t size : {std::size_t{1}, std::size_t{4096}, 4 * megabyte - 1, 4 * megabyte, 4 * megabyte + 1,
                                 5 * megabyte, 5 * megabyte + 1, 6 * megabyte - 1, 33 * megabyte + 7}) {
    const Block block = allocated(size);
    ASSERT_TRUE(block) << size;
    std::memset(block.get(), 'x', size);
    EXPECT_EQ(block.get()[0], 'x') << size;
    EXPECT_EQ(block.get()[size - 1], 'x') << size;
  }
}

TEST(LargePages, moreMemoryThanThereCanBeIsRefused) {
  if (isSanitized) GTEST_SKIP() << "A sanitizer ends the process instead.";
  for (const std::size_t size : {SIZE_MAX, SIZE_MAX - megabyte, SIZE_MAX / 2}) EXPECT_FALSE(allocated(size)) << size;
}

TEST(LargePages, largeBlocksAreFilledWithFewFaults) {
#ifdef KELVANE_PORTABLE
  GTEST_SKIP() << "The portable build asks for none.";
#endif
  if (isSanitized) GTEST_SKIP() << "A sanitizer touches memory of its own for each block.";
  std::string setting;
  std::getline(std::ifstream("/sys/kernel/mm/transparent_hugepage/enabled"), setting);
  if (setting.empty() || setting.find("[never]") != std::string::npos) GTEST_SKIP() << "The system has none.";
  constexpr std::size_t size = 64 * megabyte;
  const long before = faults();
  const Block block = allocated(size);
  ASSERT_TRUE(block);
  std::memset(block.get(), 'x', size);
  EXPECT_LT(faults() - before, 4096) << "a quarter of those that small pages take";
}

}  // namespace
}  // namespace kelvane
