#include "quorvel/history/VersionNumber.h"

#include <charconv>
#include <system_error>

namespace quorvel {
namespace {

/// A number of one or more digits, from 1 on, without a sign and without zeros at its front.
std::optional<std::int64_t> ordinal(std::string_view digits) {
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  const bool isWhole = error == std::errc() && end == digits.data() + digits.size();
  if (!isWhole || value < 1 || digits.front() == '0') return std::nullopt;
  return value;
}

}  // namespace

std::optional<VersionNumber> VersionNumber::parse(std::string_view text) {
  const std::size_t dot = text.find('.');
  const auto number = ordinal(text.substr(dot == std::string_view::npos ? 0 : dot + 1));
  const auto earlier = dot == std::string_view::npos ? std::optional<std::int64_t>(0) : ordinal(text.substr(0, dot));
  if (!number || !earlier) return std::nullopt;
  return VersionNumber{*earlier, *number};
}

std::string VersionNumber::text() const {
  return earlier == 0 ? std::to_string(number) : std::to_string(earlier) + '.' + std::to_string(number);
}

}  // namespace quorvel
