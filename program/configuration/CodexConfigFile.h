#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "program/configuration/ConfigEdit.h"

namespace kelvane {

/// `CodexConfig` for the text that a person has in a file. What it makes is read by a TOML parser and compared with the
/// old text before it is returned: every other key must be there with the same value, and our entry be the command
/// given. So what `CodexConfig` would break, because it looks at lines only, is refused with a reason:
///
/// - an entry of our name in another form than ours (dotted keys, an inline table, a quoted name, a comment behind the
///   header), to which ours would be a second definition that keeps the client from starting;
/// - a line in a string or an array that looks like a header;
/// - a command with a quote, a backslash or a control character.
///
/// A text whose line breaks are all CR LF is edited as if they were LF, and keeps them. A byte-order mark stays.
struct CodexConfigFile {
  CodexConfigFile() = delete;

  /// The text that `CodexConfig::adding` makes. Throws ConfigRefused.
  static ConfigEdit adding(std::string_view command, std::string_view to);

  /// The text that `CodexConfig::removing` makes; unchanged if it has none of our tables. Throws ConfigRefused.
  static ConfigEdit removing(std::string_view from);

  /// The command of our entry, in whatever form it is written; empty if there is none, or its command is not a string.
  /// Throws ConfigRefused if the text is not TOML.
  static std::optional<std::string> command(std::string_view in);

  /// The arguments of our entry's command, none if it gives none or there is no entry. Empty if what it gives is not an
  /// array of strings. Throws ConfigRefused if the text is not TOML.
  static std::optional<std::vector<std::string>> arguments(std::string_view in);

  /// What our entry sets HOME to for its command; empty if it does not.
  /// Throws ConfigRefused if the text is not TOML.
  static std::optional<std::string> home(std::string_view in);

  /// Whether our entry is switched off (`enabled = false`), so that the client does not start its command.
  /// Throws ConfigRefused if the text is not TOML.
  static bool isSwitchedOff(std::string_view in);

  /// Whether the lines of a text, TOML or not, register the command: what `CodexConfig::names` says, with line breaks
  /// that are all CR LF taken as LF. For a text that `command` refuses.
  static bool names(std::string_view command, std::string_view in);

  /// The lines of our entry alone, for a person to paste, with a command of any UTF-8 written as TOML has it.
  static std::string example(std::string_view command);
};

}  // namespace kelvane
