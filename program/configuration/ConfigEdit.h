#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

/// The text of an AI client's configuration after our entry is added or removed.
struct ConfigEdit {
  std::string text;  ///< The whole new text; the old one if no change is needed.

  /// What the edit removes besides our entry's command, as it was written, each with what it was, to be shown to the
  /// person.
  std::vector<std::string> dropped;

  bool operator==(const ConfigEdit&) const = default;
};

/// The text is not changed: `what()` says in complete sentences why, and what to do.
class ConfigRefused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What a text may begin with. It is no part of the JSON or TOML.
inline constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

/// An offset in a text as editors show it: line and column from 1, the column in characters, a byte-order mark not
/// counted. "line 3, column 14".
std::string positionIn(std::string_view text, std::size_t offset);

/// Throws ConfigRefused if the program's path is not UTF-8, so that no file of this format can hold it.
void requireUTF8(std::string_view command, std::string_view format);

/// Throws ConfigRefused if an edit is not proven to change our entry only.
void requireProof(bool isProven);

/// Whether `after` is `before` but for what stood in [begin, end), or for something put in anywhere.
bool differsOnlyWithin(std::size_t begin, std::size_t end, std::string_view before, std::string_view after) noexcept;

}  // namespace kelvane
