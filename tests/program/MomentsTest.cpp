#include "program/Moments.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

#include "program/ChangeLabel.h"
#include "program/Table.h"

namespace kelvane::tests {
namespace {

using Clock = std::chrono::system_clock;

const Clock::time_point now = Clock::from_time_t(1700000000);  // 2023-11-14 22:13:20 UTC

TEST(Moments, areTypedInManyWays) {
  const struct {
    const char* typed;
    const char* means;  // empty: nothing
  } cases[] = {
      {"2023-11-14", "2023-11-14 00:00:00"},
      {"2023-11-14 20:13", "2023-11-14 20:13:00"},
      {"2023-11-14 20:13:05", "2023-11-14 20:13:05"},
      {"2023-11-14T20:13:05", "2023-11-14 20:13:05"},
      {"2024-2-9 7:05", "2024-02-09 07:05:00"},
      {"2024-02-29", "2024-02-29 00:00:00"},
      {"today", "2023-11-14 00:00:00"},
      {"yesterday", "2023-11-13 00:00:00"},
      {"20 seconds", "2023-11-14 22:13:00"},
      {"13 minutes", "2023-11-14 22:00:20"},
      {"1 hour", "2023-11-14 21:13:20"},
      {"2hours", "2023-11-14 20:13:20"},
      {"3 days", "2023-11-11 22:13:20"},
      {"2 weeks", "2023-10-31 22:13:20"},
      {"0 days", "2023-11-14 22:13:20"},
      {"2023-02-29", ""},
      {"2023-13-01", ""},
      {"2023-00-01", ""},
      {"2023-01-00", ""},
      {"2023-11-31", ""},
      {"2023-11-14 24:00", ""},
      {"2023-11-14 20:60", ""},
      {"2023-11-14 20", ""},
      {"2023-11-14 20:13:05Z", ""},
      {"2023-11-14 ", ""},
      {"23-11-14", ""},
      {"2 fortnights", ""},
      {"-2 hours", ""},
      {"hours", ""},
      {"2 hourss", ""},
      {"9999999 days", ""},
      {"Today", ""},
      {"", ""},
  };
  for (const auto& [typed, means] : cases) {
    const auto moment = parsedMoment(typed, TimeZone::utc, now);
    EXPECT_EQ(moment ? shown(*moment, TimeZone::utc) : "", means) << typed;
  }
}

/// The process's time zone, until the end of the test.
class ZoneOfTest {
 public:
  explicit ZoneOfTest(const char* zone) {
    if (const char* before = std::getenv("TZ")) before_ = before;
    set(zone);
  }
  ~ZoneOfTest() { set(before_ ? before_->c_str() : nullptr); }
  ZoneOfTest(const ZoneOfTest&) = delete;
  ZoneOfTest& operator=(const ZoneOfTest&) = delete;

 private:
  static void set(const char* zone) {
    if (zone == nullptr) {
      ::unsetenv("TZ");
    } else {
      ::setenv("TZ", zone, 1);
    }
    ::tzset();
  }

  std::optional<std::string> before_;
};

TEST(Moments, thatClocksSkipDoNotExist) {
  const char* const berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
  const char* const skipsMidnight = "AAA3BBB,M11.1.0/0,M2.3.0/0";
  const struct {
    const char* zone;
    const char* typed;
    const char* means;  // empty: nothing
  } cases[] = {
      {berlin, "2026-03-29 01:59", "2026-03-29 01:59:00"},
      {berlin, "2026-03-29 02:00", ""},
      {berlin, "2026-03-29 02:30", ""},
      {berlin, "2026-03-29 03:00", "2026-03-29 03:00:00"},
      {berlin, "2026-10-25 02:30", "2026-10-25 02:30:00"},  // twice: either will do
      {berlin, "2026-03-29", "2026-03-29 00:00:00"},
      {skipsMidnight, "2026-11-01", "2026-11-01 01:00:00"},
      {skipsMidnight, "2026-11-01 00:30", ""},
      {skipsMidnight, "2026-11-31", ""},
  };
  for (const auto& [zone, typed, means] : cases) {
    const ZoneOfTest there(zone);
    const auto moment = parsedMoment(typed, TimeZone::local, now);
    EXPECT_EQ(moment ? shown(*moment, TimeZone::local) : "", means) << typed;
  }
  const ZoneOfTest there(skipsMidnight);
  const auto noon = parsedMoment("2026-11-01 12:00", TimeZone::local, now);
  ASSERT_TRUE(noon);
  EXPECT_EQ(parsedMoment("today", TimeZone::local, *noon), parsedMoment("2026-11-01 01:00", TimeZone::local, now));
}

TEST(Moments, areEncodedInUTC) {
  EXPECT_EQ(encodedMoment(now), "2023-11-14T22:13:20Z");
  EXPECT_EQ(encodedMoment(now + std::chrono::milliseconds(999)), "2023-11-14T22:13:20Z");
}

TEST(Table, alignsItsColumns) {
  EXPECT_EQ(table({{"n", "name", "label"}, {"10", "ä", "x"}, {"7", "long", "y"}}, 1),
            " n  name  label\n10  ä     x\n 7  long  y\n");
}

TEST(Table, putsALastCellBelowTheOthersWhereItDoesNotFit) {
  EXPECT_EQ(table({{"1", "short"}, {"2", "words that do not fit there"}}, 1, 18),
            "1  short\n2  \n    words that do\n    not fit there\n");
}

TEST(ChangeLabel, tellsWhoChangedTheText) {
  const struct {
    std::string label;
    const char* change;
    const char* restored;  // empty: a tool
  } cases[] = {
      {"Before — shorter", "shorter", ""},
      {"Before — ", "", ""},
      {"mine", "", ""},
      {"before — shorter", "", ""},
      {restoringLabel({0, 3}), "restoring version 3", "3"},
      {undoingLabel({1, 2}), "undoing version 1.2", "1.2"},
      {"Before — restoring version x", "restoring version x", ""},
      {"Before — restoring version ", "restoring version ", ""},
  };
  for (const auto& [label, change, restored] : cases) {
    const ChangeLabel read = readLabel(label);
    EXPECT_EQ(read.change, change) << label;
    EXPECT_EQ(read.restored ? read.restored->text() : "", restored) << label;
  }
}

}  // namespace
}  // namespace kelvane::tests
