#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace kelvane {

/// What must be known about a text besides what toml++ reports. Of a text that is not TOML this is true up to its first
/// mistake, where the parser stops.
struct TOMLScan {
  /// The dots between the parts of keys, those of tables included: the parser recurses once for each at most.
  std::size_t dotsInKeys = 0;

  /// Where the first number such as 0x1.8p3 is, which the parser takes although it is not TOML.
  std::optional<std::size_t> hexadecimalFraction;
};

/// Takes time linear in the text.
TOMLScan scanTOML(std::string_view text);

}  // namespace kelvane
