#include "platform/json/PowersOf10.h"

#if defined(KELVANE_INT128)
namespace kelvane {
namespace {

/// A number of 320 bits with its highest bit set, highest word first. Errors in its lowest bits do not reach the upper
/// 128.
class Wide {
 public:
  constexpr void timesFive() {
    UInt128 carry = 0;
    for (std::size_t i = words_.size(); i-- > 0;) {
      const UInt128 product = static_cast<UInt128>(words_[i]) * 5 + carry;
      words_[i] = static_cast<std::uint64_t>(product);
      carry = product >> 64;
    }
    while (carry != 0) {
      shiftRight((carry & 1) != 0);
      carry >>= 1;
    }
  }

  constexpr void overFive() {
    UInt128 rest = 0;
    for (std::uint64_t& word : words_) {
      const UInt128 dividend = rest << 64 | word;
      word = static_cast<std::uint64_t>(dividend / 5);
      rest = dividend % 5;
    }
    isExact_ = false;
    while (words_[0] >> 63 == 0) shiftLeft();
  }

  constexpr Power10 rounded() const {
    const bool isCut = !isExact_ || words_[2] != 0 || words_[3] != 0 || words_[4] != 0;
    Power10 power{words_[0], words_[1] + (isCut ? 1 : 0)};
    if (isCut && power.low == 0) ++power.high;
    return power;
  }

 private:
  constexpr void shiftRight(bool highest) {
    isExact_ = isExact_ && (words_[4] & 1) == 0;
    for (std::size_t i = words_.size(); i-- > 1;) words_[i] = words_[i] >> 1 | words_[i - 1] << 63;
    words_[0] = words_[0] >> 1 | static_cast<std::uint64_t>(highest) << 63;
  }

  constexpr void shiftLeft() {
    for (std::size_t i = 0; i + 1 < words_.size(); ++i) words_[i] = words_[i] << 1 | words_[i + 1] >> 63;
    words_[4] <<= 1;
  }

  std::array<std::uint64_t, 5> words_ = {std::uint64_t{1} << 63, 0, 0, 0, 0};
  bool isExact_ = true;
};

/// A power of ten is a power of five times a power of two, so the upper 128 bits of both are the same.
constexpr auto computedPowers = [] {
  std::array<Power10, greatestPower10 - leastPower10 + 1> powers{};
  Wide up;
  for (std::size_t i = -leastPower10; i < powers.size(); ++i, up.timesFive()) powers[i] = up.rounded();
  Wide down;
  for (std::size_t i = -leastPower10; i-- > 0;) {
    down.overFive();
    powers[i] = down.rounded();
  }
  return powers;
}();

}  // namespace

constinit const std::array<Power10, greatestPower10 - leastPower10 + 1> powersOf10 = computedPowers;

}  // namespace kelvane
#endif
