#include "program/ShellWords.h"

#include <algorithm>

#include "program/OwnSettings.h"

namespace kelvane {
namespace {

bool isPlain(char character) {
  constexpr std::string_view others = "_./+,@%:-";
  return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'z') ||
         (character >= 'A' && character <= 'Z') || others.find(character) != std::string_view::npos;
}

}  // namespace

std::string quotedForShell(std::string_view word) {
  if (!word.empty() && std::all_of(word.begin(), word.end(), isPlain)) return std::string(word);
  std::string quoted = "'";
  for (const char character : word) {
    if (character == '\'') {
      quoted.append("'\\''");
    } else {
      quoted.push_back(character);
    }
  }
  return quoted.append("'");
}

std::string restoreCommandFor(std::string_view identifier, std::string_view version, const OpenedLibrary& opened) {
  std::string command = "kelvane restore ";
  const std::filesystem::path& root = opened.library->root();
  if (OwnSettings().namedLibraryFolder() != root) {
    command.append(libraryOption.name).append(" ").append(quotedForShell(root.native())).append(" ");
  }
  if (identifier.starts_with('-')) command.append("-- ");
  return command.append(quotedForShell(identifier)).append(" ").append(version);
}

}  // namespace kelvane
