#include "scripttools/SavedMoment.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <chrono>
#include <cstdint>
#include <locale>
#include <random>
#include <string>
#include <string_view>

#include "tests/support/Random.h"

namespace kelvane::tests {
namespace {

using namespace std::chrono_literals;
using std::chrono::system_clock;

system_clock::time_point at(std::int64_t seconds, std::chrono::nanoseconds more = 0ns) {
  return system_clock::time_point(std::chrono::seconds(seconds)) + more;
}

TEST(SavedMoment, readsAsDateAndTimeInGMT) {
  const struct {
    std::string_view description;
    system_clock::time_point moment;
    std::string_view expected;
  } cases[] = {
      {"an afternoon", at(1740837909), "2025-03-01 14:05:09"},
      {"a moment before the next second", at(1740837909, 999999999ns), "2025-03-01 14:05:09"},
      {"the start of the count", at(0), "1970-01-01 00:00:00"},
      {"a moment before it", at(0, -1ns), "1969-12-31 23:59:59"},
      {"a whole second before it", at(-1), "1969-12-31 23:59:59"},
      {"half past midnight an hour east of GMT", at(1740871800), "2025-03-01 23:30:00"},
      {"the last second of a leap day", at(1709251199), "2024-02-29 23:59:59"},
      {"the leap day of a century that has one", at(951782400), "2000-02-29 00:00:00"},
      {"the day after February in a century without", at(-2203891200), "1900-03-01 00:00:00"},
      {"the end of a year", at(1767225599), "2025-12-31 23:59:59"},
      {"behind 32 bits", at(4294967296), "2106-02-07 06:28:16"},
      {"the first moment of the clock", system_clock::time_point::min(), "1677-09-21 00:12:43"},
      {"the last moment of the clock", system_clock::time_point::max(), "2262-04-11 23:47:16"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.description);
    EXPECT_EQ(savedMoment(each.moment), each.expected);
  }
}

TEST(SavedMoment, ignoresTheTimeZoneAndTheLocale) {
  const char* const zone = ::getenv("TZ");
  const std::string before = zone ? zone : "";
  ::setenv("TZ", "EAST-12", 1);
  ::tzset();
  struct Grouped : std::numpunct<char> {
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\1"; }
  };
  const std::locale locale = std::locale::global(std::locale(std::locale::classic(), new Grouped));
  EXPECT_EQ(savedMoment(at(1740837909)), "2025-03-01 14:05:09");
  std::locale::global(locale);
  zone ? ::setenv("TZ", before.c_str(), 1) : ::unsetenv("TZ");
  ::tzset();
}

TEST(SavedMoment, agreesWithTheSystemsCalendar) {
  auto random = tests::seededGenerator();
  std::uniform_int_distribution<std::int64_t> anySecond(-9223372036, 9223372036);
  for (int round = 0; round < 2000; ++round) {
    const std::int64_t second = anySecond(random);
    const time_t systemSecond = second;
    struct tm parts {};
    ASSERT_TRUE(::gmtime_r(&systemSecond, &parts));
    char expected[64];
    ASSERT_GT(::strftime(expected, sizeof expected, "%Y-%m-%d %H:%M:%S", &parts), 0U);
    ASSERT_EQ(savedMoment(at(second)), expected) << second;
  }
}

}  // namespace
}  // namespace kelvane::tests
