#include "program/AIClient.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <stdexcept>

#include "platform/HomeFolder.h"
#include "program/configuration/ClaudeConfigFile.h"
#include "program/configuration/CodexConfigFile.h"

namespace kelvane {
namespace {

using Files = std::vector<std::filesystem::path>;

std::filesystem::path home() {
  if (auto home = homeFolder()) return *std::move(home);
  throw std::runtime_error("There is no home folder to look for a client's configuration in: let HOME name one.");
}

/// The folder that a variable names, else this one in the home.
std::filesystem::path folderOf(const char* variable, std::string_view below) {
  const char* named = std::getenv(variable);
  if (named != nullptr && *named != '\0') return named;
  return below.empty() ? home() : home() / below;
}

// A link counts though it leads nowhere: whoever made it wants the file where it points.
bool isThere(const std::filesystem::path& file) {
  std::error_code error;
  return std::filesystem::exists(std::filesystem::symlink_status(file, error));
}

Files claudeFiles() {
  const Files all = {
      folderOf("CLAUDE_CONFIG_DIR", "") / ".claude.json",                        // the command line's
      home() / ".config/Claude/claude_desktop_config.json",                      // the desktop's, on Linux
      home() / "Library/Application Support/Claude/claude_desktop_config.json",  // and on macOS
  };
  Files present;
  std::copy_if(all.begin(), all.end(), std::back_inserter(present), isThere);
  return present.empty() ? Files{all.front()} : present;
}

Files codexFiles() {
  return {folderOf("CODEX_HOME", ".codex") / "config.toml"};
}

}  // namespace

const std::vector<AIClient>& aiClients() {
  static const std::vector<AIClient> all = {
      {"claude", "Claude", claudeFiles, ClaudeConfigFile::adding, ClaudeConfigFile::removing, ClaudeConfigFile::command,
       ClaudeConfigFile::arguments, ClaudeConfigFile::example},
      {"codex", "Codex", codexFiles, CodexConfigFile::adding, CodexConfigFile::removing, CodexConfigFile::command,
       CodexConfigFile::arguments, CodexConfigFile::example},
  };
  return all;
}

}  // namespace kelvane
