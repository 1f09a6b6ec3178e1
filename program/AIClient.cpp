#include "program/AIClient.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <system_error>

#include "platform/HomeFolder.h"
#include "program/configuration/ClaudeConfigFile.h"
#include "program/configuration/CodexConfigFile.h"

namespace kelvane {
namespace {

using Files = std::vector<std::filesystem::path>;

/// The folder that a variable names, else this one in the home folder, if there is a home folder.
std::optional<std::filesystem::path> folderOf(const char* variable, std::string_view below) {
  const char* named = std::getenv(variable);
  if (named != nullptr && *named != '\0') return named;
  auto home = homeFolder();
  if (home && !below.empty()) *home /= below;
  return home;
}

// A link counts even if it leads nowhere: whoever made it wants the file at its target.
bool isThere(const std::filesystem::path& file) {
  std::error_code error;
  return std::filesystem::exists(std::filesystem::symlink_status(file, error));
}

// If this file exists, the command line reads no other. A link that leads nowhere does not count.
std::optional<std::filesystem::path> olderClaudeFile() {
  const auto folder = folderOf("CLAUDE_CONFIG_DIR", ".claude");
  std::error_code error;
  if (!folder || !std::filesystem::exists(*folder / ".config.json", error)) return std::nullopt;
  return *folder / ".config.json";
}

Files claudeFiles() {
  Files all;
  if (const auto older = olderClaudeFile()) {
    all.push_back(*older);
  } else if (const auto folder = folderOf("CLAUDE_CONFIG_DIR", "")) {
    all.push_back(*folder / ".claude.json");
  }
  if (const auto home = homeFolder()) {
    all.push_back(*home / ".config/Claude/claude_desktop_config.json");                      // the desktop's, on Linux
    all.push_back(*home / "Library/Application Support/Claude/claude_desktop_config.json");  // and on macOS
  }
  Files present;
  std::copy_if(all.begin(), all.end(), std::back_inserter(present), isThere);
  if (present.empty() && !all.empty()) present.push_back(all.front());
  return present;
}

Files codexFiles() {
  const auto folder = folderOf("CODEX_HOME", ".codex");
  return folder ? Files{*folder / "config.toml"} : Files{};
}

}  // namespace

const std::vector<AIClient>& aiClients() {
  static const std::vector<AIClient> all = {
      {"claude", "Claude", claudeFiles, ClaudeConfigFile::adding, ClaudeConfigFile::removing, ClaudeConfigFile::command,
       ClaudeConfigFile::arguments, ClaudeConfigFile::home, [](std::string_view) { return false; },
       [](std::string_view, std::string_view) { return false; }, ClaudeConfigFile::example},
      {"codex", "Codex", codexFiles, CodexConfigFile::adding, CodexConfigFile::removing, CodexConfigFile::command,
       CodexConfigFile::arguments, CodexConfigFile::home, CodexConfigFile::isSwitchedOff, CodexConfigFile::names,
       CodexConfigFile::example},
  };
  return all;
}

}  // namespace kelvane
