#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

/// What becomes of the text of an AI client's configuration when our entry is put in or taken out.
struct ConfigEdit {
  std::string text;  ///< The whole new text; the old one where there is nothing to do.

  /// What the edit takes away beyond our entry's command, as it was written, each with what it was: for showing to the
  /// person whose it is.
  std::vector<std::string> dropped;

  bool operator==(const ConfigEdit&) const = default;
};

/// The text is better left as it is: `what()` says in complete sentences why, and what to do.
class ConfigRefused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A place in a text as editors show it: line and column from 1, the column in characters, a byte-order mark not
/// counted. "line 3, column 14".
std::string placeIn(std::string_view text, std::size_t offset);

/// Whether `after` is `before` but for what stood in [begin, end), or for something put in anywhere.
bool differsOnlyWithin(std::size_t begin, std::size_t end, std::string_view before, std::string_view after) noexcept;

}  // namespace kelvane
