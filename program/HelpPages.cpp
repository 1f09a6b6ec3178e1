#include "program/HelpPages.h"

#include <vector>

#include "program/PageText.h"
#include "protocol/Server.h"

namespace kelvane {
namespace {

PageRow helpRow() {
  return {"-h, " + std::string(helpOption.name), helpOption.help};
}

}  // namespace

std::string helpOn(const Command& command) {
  std::string text;
  appendParagraphs(command.about, text);
  std::string usage("Usage: kelvane ");
  usage.append(command.name).append(command.usage.empty() ? "" : " ").append(command.usage);
  for (const Option& option : command.options)
    usage.append(" [").append(usageOf(option)).append(option.isRepeatable ? " ...]" : "]");
  text.append("\n");
  appendFilled(usage, 4, text);
  std::vector<PageRow> rows;
  for (const Word& word : command.words) rows.emplace_back(word.name, word.help);
  for (const Option& option : command.options) rows.emplace_back(usageOf(option), option.help);
  rows.push_back(helpRow());
  text.append("\n");
  appendRows(rows, text);
  if (!command.notes.empty()) text.append("\n");
  appendParagraphs(command.notes, text);
  return text;
}

std::string helpOn(Commands commands) {
  std::string text;
  appendParagraphs(
      "Kelvane lets an AI client on this machine work on a folder of scripts, over the Model Context Protocol.\n\n"
      "Usage: kelvane COMMAND [OPTIONS]",
      text);
  std::vector<PageRow> rows;
  for (const Command* command : commands) {
    if (command != nullptr && command->summary.empty()) continue;
    command != nullptr ? rows.emplace_back(command->name, command->summary) : rows.emplace_back();
  }
  rows.emplace_back();
  rows.emplace_back(std::string(helpWord) + " [COMMAND]", "Explain the program or a command.");
  rows.push_back(helpRow());
  rows.emplace_back(versionOption.name, versionOption.help);
  text.append("\n");
  appendRows(rows, text);
  text.append("\n");
  appendParagraphs(
      "For help on a command, run: kelvane help COMMAND\n\nTo begin:\n\n"
      "  kelvane setup",
      text);
  return text;
}

std::string versionLine() {
  return "kelvane " + std::string(Server::ownVersion) + '\n';
}

}  // namespace kelvane
