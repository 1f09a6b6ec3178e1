#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Names of the hidden files that are beside a script, or another file that is replaced as a whole, for a moment:
///
///     .kelvane-SCRIPT-RANDOM          a file that was just made and is empty
///     .kelvane-SCRIPT-RANDOM-INODE    one that is being filled, or that changed places with the script
///
/// SCRIPT is a hash of the script's file name, RANDOM cannot be guessed; both have 16 hexadecimal digits. INODE is the
/// number of the file that was made, in hexadecimal digits. In the second form, a file whose own number is INODE never
/// was the script. One with another number was swapped out of the script's place, so its text was once the script's. 0,
/// which no file has, always means that. So a process may die at any moment: the name tells what to do with the text.
namespace quorvel {

struct TemporaryName {
  std::uint64_t script = 0;            ///< The hash of the script's file name.
  std::uint64_t random = 0;            ///< Makes the name one that nobody else has.
  std::optional<std::uint64_t> inode;  ///< Empty in the first form.

  /// The start of all these names.
  static constexpr std::string_view prefix = ".kelvane-";

  /// The hash of a script's file name: 64-bit FNV-1a of its bytes.
  static std::uint64_t hash(std::string_view scriptName) noexcept;

  /// A name of the first form that nobody had before. Throws std::system_error when the system has no random bytes.
  static TemporaryName fresh(std::string_view scriptName);

  /// The same name for a file whose text was the script's.
  TemporaryName ofReplacedFile() const noexcept { return {script, random, 0}; }

  /// The parts of a name; std::nullopt for any other name. `parse(name.text()) == name`.
  static std::optional<TemporaryName> parse(std::string_view name) noexcept;

  std::string text() const;

  bool operator==(const TemporaryName&) const = default;
};

}  // namespace quorvel
