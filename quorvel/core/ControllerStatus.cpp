#include <cstdint>
#include <string>

#include "platform/QuorvelCore.h"

namespace quorvel {
namespace {

std::string twoDigits(std::int64_t number) {
  std::string digits = std::to_string(number);
  if (number < 10) digits.insert(digits.begin(), '0');
  return digits;
}

}  // namespace

std::string ControllerStatus::clock(std::int64_t seconds) {
  const std::int64_t hours = seconds / 3600;
  const std::int64_t minutes = seconds / 60 % 60;
  const std::string start = hours == 0 ? std::to_string(minutes) : std::to_string(hours) + ":" + twoDigits(minutes);
  return start + ":" + twoDigits(seconds % 60);
}

}  // namespace quorvel
