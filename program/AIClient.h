#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "program/configuration/ConfigEdit.h"

namespace kelvane {

/// An AI client that can start this program: where its configuration is, and how to edit it. A new client is one more
/// value in `aiClients`.
///
/// The functions on texts are pure: they read and write no file, and take time linear in the text. They throw
/// ConfigRefused, as program/configuration says, if a text is not of the client's format.
struct AIClient {
  std::string_view name;   ///< As it is typed: "claude".
  std::string_view title;  ///< As sentences have it: "Claude".

  /// The files that the client reads: all that exist, else the one to create. Empty if they would be in the home folder
  /// and there is none.
  std::vector<std::filesystem::path> (*files)();

  /// The operations of ClaudeConfigFile or CodexConfigFile. A question that does not arise for the client's format has
  /// the answer false.
  ConfigEdit (*adding)(std::string_view command, std::string_view to);
  ConfigEdit (*removing)(std::string_view from);
  std::optional<std::string> (*command)(std::string_view in);
  std::optional<std::vector<std::string>> (*arguments)(std::string_view in);
  std::optional<std::string> (*home)(std::string_view in);
  bool (*isSwitchedOff)(std::string_view in);
  bool (*names)(std::string_view command, std::string_view in);
  std::string (*example)(std::string_view command);
};

/// All known clients, in the order of the help. The values live as long as the program.
const std::vector<AIClient>& aiClients();

}  // namespace kelvane
