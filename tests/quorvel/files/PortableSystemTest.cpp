#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "quorvel/files/Beneath.h"
#include "quorvel/files/SystemCalls.h"
#include "tests/support/TemporaryFolder.h"

namespace quorvel {
namespace {

TEST(PortableSystem, lacksTheCallsThatOnlySomeSystemsHave) {
#if !defined(KELVANE_PORTABLE)
  GTEST_SKIP() << "Run: ./run test portable";
#else
  const kelvane::tests::TemporaryFolder folder;
  const Descriptor root(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const SystemCalls& calls = SystemCalls::ofTheSystem();
  EXPECT_EQ(calls.openBeneath(root.get(), ".", O_RDONLY), -1);
  EXPECT_EQ(errno, ENOSYS);
  EXPECT_EQ(calls.exchange(root.get(), "a", "b"), -1);
  EXPECT_EQ(errno, ENOSYS);
  EXPECT_EQ(calls.renameToFreeName(root.get(), "a", "b"), -1);
  EXPECT_EQ(errno, ENOSYS);
  EXPECT_EQ(passingFlags(), O_RDONLY | O_DIRECTORY);
#endif
}

}  // namespace
}  // namespace quorvel
