#include "program/HelpPages.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "protocol/Server.h"

namespace kelvane {
namespace {

constexpr std::size_t width = 79;

// Appends words to a text, and breaks a line before a word that does not fit. Lines after the first are indented.
void fill(std::string_view words, std::size_t indent, std::string& text) {
  std::size_t column = text.size() - (text.rfind('\n') + 1);
  for (bool isFirst = true; !words.empty(); isFirst = false) {
    const std::string_view word = words.substr(0, words.find_first_of(" \n"));
    words.remove_prefix(std::min(word.size() + 1, words.size()));
    if (!isFirst && column + 1 + word.size() > width) {
      text.append("\n").append(indent, ' ');
      column = indent;
    } else if (!isFirst) {
      text.append(" ");
      ++column;
    }
    text.append(word);
    column += word.size();
  }
  text.append("\n");
}

// Paragraphs, with an empty line between them and none at the end.
void append(std::string_view paragraphs, std::string& text) {
  while (!paragraphs.empty()) {
    const std::string_view paragraph = paragraphs.substr(0, paragraphs.find("\n\n"));
    paragraphs.remove_prefix(std::min(paragraph.size() + 2, paragraphs.size()));
    if (paragraph.starts_with(' ')) {
      text.append(paragraph).append("\n");
    } else {
      fill(paragraph, 0, text);
    }
    if (!paragraphs.empty()) text.append("\n");
  }
}

// A name and its explanation, or an empty line for two empty ones.
using Row = std::pair<std::string, std::string_view>;

void append(const std::vector<Row>& rows, std::string& text) {
  std::size_t indent = 0;
  for (const Row& row : rows) indent = std::max(indent, row.first.size() + 5);
  for (const auto& [name, help] : rows) {
    if (!name.empty()) text.append("  ").append(name).append(indent - name.size() - 2, ' ');
    fill(help, indent, text);
  }
}

Row helpRow() {
  return {"-h, " + std::string(helpOption.name), helpOption.help};
}

}  // namespace

std::string helpOn(const Command& command) {
  std::string text;
  append(command.about, text);
  std::string usage("Usage: kelvane ");
  usage.append(command.name).append(command.usage.empty() ? "" : " ").append(command.usage);
  for (const Option& option : command.options) usage.append(" [").append(usageOf(option)).append("]");
  text.append("\n");
  fill(usage, 4, text);
  std::vector<Row> rows;
  for (const Word& word : command.words) rows.emplace_back(word.name, word.help);
  for (const Option& option : command.options) rows.emplace_back(usageOf(option), option.help);
  rows.push_back(helpRow());
  text.append("\n");
  append(rows, text);
  if (!command.notes.empty()) text.append("\n");
  append(command.notes, text);
  return text;
}

std::string helpOn(Commands commands) {
  std::string text;
  append(
      "Kelvane lets an AI client on this machine work on a folder of scripts, over the Model Context Protocol.\n\n"
      "Usage: kelvane COMMAND [OPTIONS]",
      text);
  std::vector<Row> rows;
  for (const Command* command : commands) {
    command != nullptr ? rows.emplace_back(command->name, command->summary) : rows.emplace_back();
  }
  rows.emplace_back();
  rows.push_back(helpRow());
  rows.emplace_back(versionOption.name, versionOption.help);
  text.append("\n");
  append(rows, text);
  text.append("\n");
  append(
      "For help on a command, run: kelvane COMMAND --help\n\nTo begin:\n\n"
      "  kelvane settings library ~/Scripts\n  kelvane settings enable\n  kelvane connect claude",
      text);
  return text;
}

std::string versionLine() {
  return "kelvane " + std::string(Server::ownVersion) + '\n';
}

}  // namespace kelvane
