#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "program/configuration/ConfigEdit.h"

namespace kelvane {

/// An AI client that can be told to start this program: where it keeps its configuration, and how that is edited.
struct AIClient {
  std::string_view name;   ///< As it is typed: "claude".
  std::string_view title;  ///< As sentences have it: "Claude".

  /// The files to register with, which are those that the client reads: all that exist, else the one to make. None
  /// where they would be in the home folder and there is none.
  std::vector<std::filesystem::path> (*files)();

  /// The operations of ClaudeConfigFile and CodexConfigFile. What one of the two does not have is never so.
  ConfigEdit (*adding)(std::string_view command, std::string_view to);
  ConfigEdit (*removing)(std::string_view from);
  std::optional<std::string> (*command)(std::string_view in);
  std::vector<std::string> (*arguments)(std::string_view in);
  std::optional<std::string> (*home)(std::string_view in);
  bool (*isSwitchedOff)(std::string_view in);
  bool (*names)(std::string_view command, std::string_view in);
  std::string (*example)(std::string_view command);
};

/// All that are known.
const std::vector<AIClient>& aiClients();

}  // namespace kelvane
