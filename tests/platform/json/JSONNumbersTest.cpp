#include "platform/json/JSONNumbers.h"

#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <random>
#include <string>

namespace kelvane {
namespace {

double scanned(const std::string& written) {
  jsonscanner::Number number;
  jsonscanner::scanNumber(written.data(), written.data() + written.size(), number);
  EXPECT_TRUE(number.isWellFormed && number.end == written.data() + written.size()) << written;
  return jsonscanner::doubleValue(number, written.data());
}

/// The standard library's answer, which is right by the standard.
double expected(const std::string& written) {
  double value = 0;
  std::from_chars(written.data(), written.data() + written.size(), value);
  return value;
}

TEST(JSONNumbers, roundsLikeTheStandardLibrary) {
  std::mt19937_64 random(1);
  const auto below = [&random](std::uint64_t limit) { return random() % limit; };
  for (int i = 0; i < 300'000; ++i) {
    std::string written;
    switch (i % 4) {
      case 0: {  // any double, with all its digits
        const auto value = std::bit_cast<double>(random() & 0x7FFFFFFFFFFFFFFF);
        if (!(value < 1e308)) continue;
        char digits[40];
        written.assign(digits, std::to_chars(digits, digits + sizeof digits, value, std::chars_format::scientific,
                                             static_cast<int>(14 + below(5)))
                                   .ptr);
        break;
      }
      case 1:  // any digits, any exponent
        written = std::to_string(random() >> below(64)) + 'e' + std::to_string(static_cast<int>(below(660)) - 345);
        if (expected(written) == 0) continue;
        break;
      case 2:  // half-way between two doubles, or next to it
        written = std::to_string((std::uint64_t{1} << 53 | below(std::uint64_t{1} << 53)) * 2 + below(3));
        if (below(2) == 0) written.append(".").append(std::to_string(below(3)));
        break;
      default: {  // what is exact in few bits: digits × 5^n / 10^n
        std::uint64_t digits = std::uint64_t{1} << below(30);
        const std::uint64_t power = 1 + below(14);
        for (std::uint64_t n = 0; n < power; ++n) digits *= 5;
        written = std::to_string(digits + below(3)) + "e-" + std::to_string(power);
      }
    }
    ASSERT_EQ(scanned(written), expected(written)) << written;
  }
}

}  // namespace
}  // namespace kelvane
