#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "program/configuration/ConfigEdit.h"

namespace kelvane {

/// A text has more dots in its keys than can be checked safely.
class TooManyDots : public ConfigRefused {
 public:
  using ConfigRefused::ConfigRefused;

  static constexpr std::size_t most = 10'000;
};

/// A TOML 1.1 text as TOML readers understand it, with access to our entry: the table `mcp_servers.kelvane`, in
/// whatever form it is written.
///
///     const TOMLText text("[mcp_servers]\nkelvane = { command = \"/bin/k\" }\n");
///     text.command();  // "/bin/k"
///
/// Keeps no reference to the text. Operations that are const may be called from several threads at once. An object that
/// was moved from can only be assigned to or destroyed.
class TOMLText {
 public:
  /// Throws ConfigRefused, with the position and the reason, if the text is not TOML, and TooManyDots. Takes time
  /// linear in the text.
  explicit TOMLText(std::string_view text);
  TOMLText(TOMLText&&) noexcept;
  TOMLText& operator=(TOMLText&&) noexcept;
  ~TOMLText();

  /// The line, from 1, on which our entry begins; empty if there is none.
  std::optional<std::size_t> entryLine() const;

  /// Our entry's command; empty if there is no entry, or its command is not a string.
  std::optional<std::string> command() const;

  /// The arguments of our entry's command, none if it gives none or there is no entry. Empty if what it gives is not an
  /// array of strings.
  std::optional<std::vector<std::string>> arguments() const;

  /// What our entry sets HOME to for its command; empty if it does not.
  std::optional<std::string> home() const;

  /// Whether our entry is switched off: its `enabled` is false.
  bool isSwitchedOff() const;

  /// Whether our entry has this command, no arguments, and no other key.
  bool registersOnly(std::string_view command) const;

  /// Whether both have the same keys with the same values, except for our entry. A table of servers without any other
  /// server counts the same as a missing one. The order of keys and the layout do not matter. Does not recurse. Takes
  /// time n log n in the number of keys.
  bool equalsBesidesEntry(const TOMLText& other) const;

 private:
  struct Document;
  std::unique_ptr<Document> document_;
};

}  // namespace kelvane
