#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "platform/QuorvelCore.h"

namespace quorvel {
namespace {

TEST(ControllerStatus, showsSecondsAsAClock) {
  struct Row {
    std::int64_t seconds;
    const char* clock;
  };
  constexpr Row rows[] = {
      {0, "0:00"},
      {5, "0:05"},
      {59, "0:59"},
      {60, "1:00"},
      {61, "1:01"},
      {599, "9:59"},
      {600, "10:00"},
      {754, "12:34"},
      {3599, "59:59"},
      {3600, "1:00:00"},
      {3723, "1:02:03"},
      {36000, "10:00:00"},
      {86399, "23:59:59"},
      {86400, "24:00:00"},
      {359999, "99:59:59"},
      {360000, "100:00:00"},
      {INT64_C(9'000'000'000'000'000'000), "2500000000000000:00:00"},
  };
  for (const Row& row : rows) EXPECT_EQ(ControllerStatus::clock(row.seconds), row.clock);
}

}  // namespace
}  // namespace quorvel
