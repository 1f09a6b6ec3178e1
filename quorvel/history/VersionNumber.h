#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quorvel {

/// What a person names one version of a script by: "12" is the twelfth version of the script, "1.12" the twelfth of the
/// first script that had this identifier before it. Numbers count from 1 and are never given to another version of the
/// script.
struct VersionNumber {
  std::int64_t earlier = 0;  ///< 0 for the script itself, 1 for the first one that was there before, and so on.
  std::int64_t number = 0;

  /// Nothing for a text that is not of the two forms.
  static std::optional<VersionNumber> parse(std::string_view text);
  std::string text() const;

  bool operator==(const VersionNumber&) const = default;
};

}  // namespace quorvel
