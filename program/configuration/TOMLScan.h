#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace kelvane {

/// What must be known about a text before toml++ parses it: whether parsing is safe, and whether the text uses the one
/// thing that the parser accepts although it is not TOML. For a text that is not TOML, the result is correct up to its
/// first mistake, where the parser stops.
struct TOMLScan {
  /// The dots between the parts of keys, those of tables included: the parser recurses once for each at most.
  std::size_t dotsInKeys = 0;

  /// The offset of the first number such as 0x1.8p3, which the parser accepts although it is not TOML. Empty if there
  /// is none.
  std::optional<std::size_t> hexadecimalFraction;
};

/// Scans a text once. Takes any bytes and time linear in them, without recursion.
TOMLScan scanTOML(std::string_view text);

}  // namespace kelvane
