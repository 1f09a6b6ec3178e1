#include "host/CodexConfig.h"

#include <algorithm>

#include "host/CodexLines.h"

namespace kelvane {
namespace {

std::string commandAssignment(std::string_view command) {
  return std::string("command = \"").append(command).append("\"");
}

}  // namespace

std::string CodexConfig::header() {
  return std::string("[").append(serversKey).append(".").append(serverName).append("]");
}

std::string CodexConfig::adding(std::string_view command, std::string_view to) {
  std::string text = removing(to);
  if (!text.empty()) text += "\n\n";
  return text.append(header()).append("\nargs = []\n").append(commandAssignment(command)).append("\n");
}

std::string CodexConfig::removing(std::string_view from) {
  std::string kept;
  kept.reserve(from.size());
  bool isFirst = true;
  for (const CodexLine& line : codexLines(from)) {
    if (line.isOwned) continue;
    if (!isFirst) kept += '\n';
    kept += line.text;
    isFirst = false;
  }
  kept.resize(withoutTrailingLineBreaks(kept).size());
  return kept;
}

bool CodexConfig::names(std::string_view command, std::string_view in) {
  const auto lines = codexLines(in);
  return std::any_of(lines.begin(), lines.end(), [](const CodexLine& line) { return line.isOwned; }) &&
         in.find(commandAssignment(command)) != std::string_view::npos;
}

}  // namespace kelvane
