#include "platform/FatalError.h"

#include <gtest/gtest.h>

namespace kelvane {
namespace {

TEST(FatalErrorDeathTest, printsTheMessageAndAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(fatalError("A schema names \"id\" twice."), testing::KilledBySignal(SIGABRT),
              "^Fatal error: A schema names \"id\" twice\\.\n$");
  EXPECT_EXIT(fatalError(std::string_view("cut here", 3)), testing::KilledBySignal(SIGABRT), "^Fatal error: cut\n$");
  EXPECT_EXIT(fatalError(""), testing::KilledBySignal(SIGABRT), "^Fatal error: \n$");
}

}  // namespace
}  // namespace kelvane
