#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "program/configuration/ConfigEdit.h"

namespace kelvane {

/// `ClaudeConfig` for the text that a person has in a file: the same documents, with every byte outside our entry as it
/// was. Both operations read back what they made and compare it with what `ClaudeConfig` says before they return it.
///
/// An empty text, or one of white space only, is not a document, and gets one. Of members with equal keys the last
/// counts, as for every reader of JSON that we know.
///
/// A text is JSON by its grammar. A number too large for a double and a lone surrogate escape, such as "\ud800", are
/// JSON, although no `JSON` value can hold them. They stay as they are written. In our entry such an escape says
/// U+FFFD, which is what a client's runtime passes to the program that it starts.
struct ClaudeConfigFile {
  ClaudeConfigFile() = delete;

  /// The text with our entry for this command. A new member comes last in its object and is laid out like its
  /// neighbours; an entry that is there keeps its position. An entry that is already right stays as it is written.
  /// Throws ConfigRefused if the text is not JSON, or the command not UTF-8.
  static ConfigEdit adding(std::string_view command, std::string_view to);

  /// The text without our entry; unchanged if it has none, whatever else it is.
  /// Throws ConfigRefused if the text is not JSON.
  static ConfigEdit removing(std::string_view from);

  /// The command of our entry; empty if there is no entry, or its command is not a string.
  /// Throws ConfigRefused if the text is not JSON.
  static std::optional<std::string> command(std::string_view in);

  /// The arguments of our entry's command, none if it gives none or there is no entry. Empty if what it gives is not an
  /// array of strings. Throws ConfigRefused if the text is not JSON.
  static std::optional<std::vector<std::string>> arguments(std::string_view in);

  /// What our entry sets HOME to for its command; empty if it does not.
  /// Throws ConfigRefused if the text is not JSON.
  static std::optional<std::string> home(std::string_view in);

  /// A whole document with only our entry, for a person to paste from.
  static std::string example(std::string_view command);
};

}  // namespace kelvane
