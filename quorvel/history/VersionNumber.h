#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quorvel {

/// How a person names one version of a script: "12" is the twelfth version of the script, "1.12" the twelfth version of
/// the first script that had this identifier before. Numbers begin with 1 and are never reused.
struct VersionNumber {
  std::int64_t earlier =
      0;  ///< 0 for the script itself, 1 for the first one that had the identifier before, and so on.
  std::int64_t number = 0;

  /// Empty for a string of any other form, such as "0", "01", "+1" or "1.".
  static std::optional<VersionNumber> parse(std::string_view text);

  /// The form that `parse` reads.
  std::string text() const;

  bool operator==(const VersionNumber&) const = default;
};

}  // namespace quorvel
