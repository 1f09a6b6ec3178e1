#include "platform/json/ShortestDouble.h"

#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "tests/support/Random.h"
#include "tests/support/RowName.h"

namespace kelvane {
namespace {

std::string shortest(double value) {
  char written[roomForDouble];
  return {written, writeShortest(value, written)};
}

struct WrittenDouble {
  double value;
  const char* written;

  friend void PrintTo(const WrittenDouble& row, std::ostream* out) { *out << row.written; }
};

class ShortestDouble : public ::testing::TestWithParam<WrittenDouble> {};

TEST_P(ShortestDouble, isWritten) {
  EXPECT_EQ(shortest(GetParam().value), GetParam().written);
}

TEST_P(ShortestDouble, isWrittenWithItsSign) {
  EXPECT_EQ(shortest(-GetParam().value), "-" + std::string(GetParam().written));
}

using Limits = std::numeric_limits<double>;

const WrittenDouble writtenDoubles[] = {
    {0.0, "0"},
    {1.0, "1"},
    {10.0, "10"},
    {0.5, "0.5"},
    {3.5, "3.5"},
    {0.1, "0.1"},
    {0.3, "0.3"},
    {0.1 + 0.2, "0.30000000000000004"},
    {1.0 / 3.0, "0.3333333333333333"},
    {2.0 / 3.0, "0.6666666666666666"},
    {1234.5678, "1234.5678"},
    {123456.789e3, "123456789"},
    {0.01, "0.01"},
    {0.001, "0.001"},       // as long as 1e-03
    {0.0001, "1e-04"},      // one longer
    {0.00012, "0.00012"},   // as long as 1.2e-04
    {0.000012, "1.2e-05"},  // one longer
    {100000.0, "1e+05"},
    {10000.0, "10000"},  // as long as 1e+04
    {123000.0, "123000"},
    {1.5e300, "1.5e+300"},
    {2.5e-300, "2.5e-300"},
    {1e-99, "1e-99"},
    {1e-100, "1e-100"},
    {9007199254740991.0, "9007199254740991"},
    {9007199254740993.0, "9007199254740992"},
    {12345678901234567890.0, "12345678901234567168"},  // all digits of it where that is as short
    {1e22, "1e+22"},
    {1e23, "1e+23"},
    {9.5367431640625e-07, "9.5367431640625e-07"},  // a power of two, below which doubles are closer
    {Limits::min(), "2.2250738585072014e-308"},
    {Limits::max(), "1.7976931348623157e+308"},
    {Limits::denorm_min(), "5e-324"},
    {2.2250738585072011e-308, "2.225073858507201e-308"},  // the greatest subnormal number
    {Limits::epsilon(), "2.220446049250313e-16"},
};

INSTANTIATE_TEST_SUITE_P(Rows, ShortestDouble, ::testing::ValuesIn(writtenDoubles), kelvane::tests::RowName());

// The standard library finds the digits in another way.
std::string byTheStandardLibrary(double value) {
  char written[roomForDouble];
  return {written, std::to_chars(written, written + sizeof written, value).ptr};
}

TEST(ShortestDoubles, areTheStandardLibrarysAtEachPowerOfTwo) {
  for (std::uint64_t exponent = 0; exponent < 2047; ++exponent) {
    for (const int step : {0, 1, 2, 3, -1, -2, -3}) {
      const auto value = std::bit_cast<double>((exponent << 52) + static_cast<std::uint64_t>(step));
      if (!std::isfinite(value)) continue;
      ASSERT_EQ(shortest(value), byTheStandardLibrary(value));
    }
  }
}

TEST(ShortestDoubles, areTheStandardLibrarysForRandomOnes) {
  std::mt19937_64 random = kelvane::tests::seededGenerator();
  for (int i = 0; i < 200000; ++i) {
    const std::uint64_t bits = random();
    const double values[] = {
        std::bit_cast<double>(bits),                                                         // of any size
        static_cast<double>(bits % 36000000000) / 1e8 - 180,                                 // a coordinate
        std::ldexp(static_cast<double>(bits >> (bits % 64)), -static_cast<int>(bits % 80)),  // of few bits
    };
    for (const double value : values) {
      if (!std::isfinite(value)) continue;
      ASSERT_EQ(shortest(value), byTheStandardLibrary(value)) << bits;
    }
  }
}

}  // namespace
}  // namespace kelvane
