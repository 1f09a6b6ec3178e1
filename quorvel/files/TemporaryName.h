#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Names of the files that stand beside a script, or another file that is replaced as a whole, for a moment:
///
///     .kelvane-SCRIPT-RANDOM          a file that was just made and is empty
///     .kelvane-SCRIPT-RANDOM-INODE    one that is being filled, or that changed places with the script
///
/// SCRIPT is a hash of the script's file name, RANDOM cannot be guessed, both with 16 hexadecimal digits; INODE is the
/// number of the file that was made, in hexadecimal digits. A file of the second form whose own number is INODE never
/// was the script; one with another number, of which 0 is no file's, was taken out of the script's place, and its text
/// was once to be read there.
namespace quorvel {

struct TemporaryName {
  std::uint64_t script = 0;            ///< What `hash` makes of the script's file name.
  std::uint64_t random = 0;            ///< Of no meaning; tells two of them apart.
  std::optional<std::uint64_t> inode;  ///< None in the first form.

  /// What all of them begin with.
  static constexpr std::string_view prefix = ".kelvane-";

  /// The hash of a script's file name: 64-bit FNV-1a of its bytes.
  static std::uint64_t hash(std::string_view scriptName) noexcept;

  /// A name of the first form that nobody had before. Throws std::system_error when the system has no random bytes.
  static TemporaryName fresh(std::string_view scriptName);

  /// The same name for a file that was taken out of the script's place.
  TemporaryName ofTakenFile() const noexcept { return {script, random, 0}; }

  /// Nothing for a name that is none of these.
  static std::optional<TemporaryName> parse(std::string_view name) noexcept;

  std::string text() const;

  bool operator==(const TemporaryName&) const = default;
};

}  // namespace quorvel
