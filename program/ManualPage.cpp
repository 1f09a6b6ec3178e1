#include "program/ManualPage.h"

#include <algorithm>
#include <string_view>

#include "program/Environment.h"
#include "program/OpenedLibrary.h"
#include "protocol/Server.h"

namespace kelvane {
namespace {

// Text as roff takes it literally: no line begins with a control character, and a hyphen is a hyphen that can be
// pasted.
std::string literal(std::string_view text) {
  std::string roff;
  for (const char character : text) {
    const bool beginsLine = roff.empty() || roff.back() == '\n';
    if (beginsLine && (character == '.' || character == '\'')) roff.append("\\&");
    if (character == '\\') {
      roff.append("\\e");
    } else if (character == '-') {
      roff.append("\\-");
    } else {
      roff.push_back(character);
    }
  }
  return roff;
}

// Paragraphs; one that begins with a space is shown as it is.
void appendParagraphs(std::string_view paragraphs, std::string& page) {
  while (!paragraphs.empty()) {
    const std::string_view paragraph = paragraphs.substr(0, paragraphs.find("\n\n"));
    paragraphs.remove_prefix(std::min(paragraph.size() + 2, paragraphs.size()));
    if (paragraph.starts_with(' ')) {
      page.append(".PP\n.nf\n").append(literal(paragraph)).append("\n.fi\n");
    } else {
      page.append(".PP\n").append(literal(paragraph)).append("\n");
    }
  }
}

void appendTagged(std::string_view tag, std::string_view text, std::string& page) {
  page.append(".TP\n.B ").append(literal(tag)).append("\n").append(literal(text)).append("\n");
}

void append(const Command& command, std::string& page) {
  page.append(".SS ").append(literal(command.name)).append("\n");
  std::string usage = "kelvane " + std::string(command.name);
  if (!command.usage.empty()) usage.append(" ").append(command.usage);
  for (const Option& option : command.options) {
    usage.append(" [").append(usageOf(option)).append(option.isRepeatable ? " ...]" : "]");
  }
  page.append(".B ").append(literal(usage)).append("\n");
  appendParagraphs(command.about, page);
  for (const Word& word : command.words) appendTagged(word.name, word.help, page);
  for (const Option& option : command.options) appendTagged(usageOf(option), option.help, page);
  appendParagraphs(command.notes, page);
}

}  // namespace

std::string manualPage(Commands commands) {
  std::string page = ".TH KELVANE 1 \"\" \"kelvane " + std::string(Server::ownVersion) + "\" \"User Commands\"\n";
  page.append(
      ".SH NAME\nkelvane \\- let AI clients work on a folder of scripts without losing a word\n"
      ".SH SYNOPSIS\n.B kelvane\n.I COMMAND\n[\\fIOPTIONS\\fR]\n"
      ".SH DESCRIPTION\n"
      "Kelvane lets an AI client on this machine work on a folder of scripts, over the Model Context Protocol. Without "
      "a "
      "command it serves as the settings say, which is what AI clients start.\n"
      ".SH COMMANDS\n");
  for (const Command* command : commands) {
    if (command != nullptr && !command->summary.empty()) append(*command, page);
  }
  page.append(".SH ENVIRONMENT\n");
  appendTagged(libraryOption.variable, "The folder that holds the scripts, unless --library is given.", page);
  appendTagged(allowWritesVariable, "1 does the same as --allow-writes. 0 forbids writing where the settings allow it.",
               page);
  appendTagged("PAGER", "What shows long output at a terminal. Default: less -FRX.", page);
  appendTagged("NO_COLOR", "If it is set, nothing is coloured.", page);
  page.append(".SH FILES\n");
  appendTagged("~/.config/kelvane/org.quorvel.Quorvel.json", "The settings.", page);
  appendTagged(".kelvane/history.sqlite", "In each library: the saved versions.", page);
  page.append(".SH EXIT STATUS\n");
  appendTagged("0", "It was done.", page);
  appendTagged("1", "It failed. Standard error says why and what to do.", page);
  appendTagged("2", "The command line was wrong. Standard error says what to type.", page);
  return page;
}

}  // namespace kelvane
