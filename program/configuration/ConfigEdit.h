#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

/// The text of an AI client's configuration after our entry is added or removed. A value; nothing is written yet.
struct ConfigEdit {
  std::string text;  ///< The whole new text; the old one if no change is needed.

  /// What the edit removes besides our entry's command, as it was written, each with what it was, to be shown to the
  /// person.
  std::vector<std::string> dropped;

  bool operator==(const ConfigEdit&) const = default;
};

/// A text cannot be changed safely, or is not of its format, so it stays as it is. `what()` says why, and what to do,
/// in complete sentences that do not name the file.
class ConfigRefused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The byte-order mark that a text may begin with. It is not part of the JSON or TOML.
inline constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

/// An offset in a text as editors show it: "line 3, column 14". Both count from 1, the column in characters; a
/// byte-order mark does not count. Takes time linear in the text.
std::string positionIn(std::string_view text, std::size_t offset);

/// Throws ConfigRefused if the program's path is not UTF-8, so that no file of this format can hold it.
void requireUTF8(std::string_view command, std::string_view format);

/// Throws ConfigRefused if it is not proven that an edit changes our entry only.
void requireProof(bool isProven);

/// Whether `after` equals `before` outside the bytes from `begin` to before `end`, or is `before` with something
/// inserted at one position. Takes time linear in the texts.
bool differsOnlyWithin(std::size_t begin, std::size_t end, std::string_view before, std::string_view after) noexcept;

}  // namespace kelvane
