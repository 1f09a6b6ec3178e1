#include "examples/demo/Page.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "platform/Unicode.h"

namespace kelvane::demo {
namespace {

constexpr std::size_t width = 100;        // of a page, in characters
constexpr std::size_t longestSent = 400;  // bytes of a line to the server that are shown
constexpr std::string_view bold = "\x1b[1m", dim = "\x1b[2m", plain = "\x1b[0m";

/// How many bytes of the line fit on one row: all of them, or up to a space between words.
std::size_t row(std::string_view line, std::size_t room) {
  std::size_t end = 0;
  std::size_t blank = std::string_view::npos;
  for (std::size_t characters = 0; end < line.size(); end = unicode::characterEnd(line, end), ++characters) {
    if (line[end] == ' ') blank = end;
    if (characters >= room && blank != std::string_view::npos) return blank;
  }
  return end;
}

/// Where the second column of a line starts, if two or more spaces separate one.
std::size_t secondColumn(std::string_view line) {
  const std::size_t gap = line.find("  ");
  return gap == std::string_view::npos ? 0 : std::min(line.find_first_not_of(' ', gap), line.size());
}

/// The text with its lines indented, and broken between words where they would pass the width.
std::string wrapped(std::string_view text, std::string_view indent) {
  std::string result;
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    const std::string hanging(secondColumn(line), ' ');
    result.append(line.empty() ? "" : indent);
    std::size_t room = width - indent.size();
    while (row(line, room) < line.size()) {
      result.append(line.substr(0, row(line, room))).append("\n").append(indent).append(hanging);
      line.remove_prefix(row(line, room) + 1);
      room = width - indent.size() - hanging.size();
    }
    result.append(line).append("\n");
  }
  return result;
}

JSON decodedArray(std::string_view text) {
  const auto value = JSON::decoded(text);
  if (!value || value->items() == nullptr)
    throw std::runtime_error("The server answered with something else than a list.");
  return *value;
}

std::string text(const JSON& entry, std::string_view key) {
  const JSON* member = entry[key];
  if (member == nullptr || !member->string()) throw std::runtime_error("An entry has no " + std::string(key) + ".");
  return std::string(*member->string());
}

std::size_t count(const JSON& entry, std::string_view key) {
  const JSON* member = entry[key];
  if (member == nullptr || !member->number()) throw std::runtime_error("An entry has no " + std::string(key) + ".");
  return static_cast<std::size_t>(*member->number());
}

}  // namespace

Page::Page() : inColor_(isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr) {
}

void Page::heading(std::string_view text) const {
  std::cout << '\n'
            << (inColor_ ? bold : "") << text << '\n'
            << std::string(unicode::characterCount(text), '=') << (inColor_ ? plain : "") << '\n';
}

void Page::sentence(std::string_view text) const {
  std::cout << '\n' << (inColor_ ? bold : "") << text << (inColor_ ? plain : "") << '\n';
}

void Page::sent(std::string_view line) const {
  std::string shown(line.substr(0, unicode::validUTF8Prefix(line.substr(0, longestSent))));
  if (shown.size() < line.size()) shown += " … and " + std::to_string(line.size() - shown.size()) + " bytes more";
  std::cout << (inColor_ ? dim : "") << "  -> " << shown << (inColor_ ? plain : "") << '\n';
}

void Page::answer(std::string_view text) const {
  const std::string rows = wrapped(text.empty() ? "(an empty text)" : text, "     ");
  std::cout << "  <-" << std::string_view(rows).substr(4);
}

void Page::remark(std::string_view text) const {
  std::cout << '\n' << wrapped(text, "");
}

std::string asIntroduction(const JSON& initialize) {
  const JSON* server = initialize["serverInfo"];
  if (server == nullptr) throw std::runtime_error("The server does not say who it is.");
  return "I am " + text(*server, "name") + " " + text(*server, "version") + " and speak MCP as of " +
         text(initialize, "protocolVersion") + ".";
}

std::string asCatalogue(const JSON& listTools) {
  const JSON* tools = listTools["tools"];
  if (tools == nullptr || tools->items() == nullptr) throw std::runtime_error("The server lists no tools.");
  std::ostringstream result;
  for (const JSON& tool : *tools->items()) {
    const std::string description = text(tool, "description") + " ";
    result << std::setw(18) << std::left << text(tool, "name") << description.substr(0, description.find(". ")) << '\n';
  }
  return result.str();
}

std::string asTree(std::string_view listScripts) {
  const JSON tree = decodedArray(listScripts);
  std::string result;
  std::vector<std::pair<const JSON*, std::size_t>>
      open;  // entries still to be shown, the next one last, and their depth
  const auto push = [&](const JSON::Array& entries, std::size_t depth) {
    for (std::size_t i = entries.size(); i > 0; --i) open.emplace_back(&entries[i - 1], depth);
  };
  push(*tree.items(), 0);
  while (!open.empty()) {
    const auto [entry, depth] = open.back();
    open.pop_back();
    const JSON* children = (*entry)["children"];
    result.append(2 * depth, ' ').append(text(*entry, "name")).append(children != nullptr ? "/\n" : "\n");
    if (children != nullptr && children->items() != nullptr) push(*children->items(), depth + 1);
  }
  return result;
}

std::string asSummary(std::string_view summary) {
  const auto item = JSON::decoded(summary);
  if (!item) throw std::runtime_error("The server answered with something else than an item.");
  return "\"" + text(*item, "name") + "\" has " + std::to_string(count(*item, "words")) + " words now.";
}

std::string asChapters(std::string_view listChapters) {
  const JSON chapters = decodedArray(listChapters);
  std::ostringstream result;
  for (const JSON& chapter : *chapters.items()) {
    result << count(chapter, "chapter") << ". at " << std::setw(5) << std::left << text(chapter, "starts_at") << " "
           << std::setw(4) << std::right << count(chapter, "words") << " words   " << text(chapter, "title") << '\n';
  }
  return result.str();
}

std::string asVersions(std::string_view listVersions) {
  const JSON versions = decodedArray(listVersions);
  if (versions.items()->empty()) return "No versions have been saved.";
  std::ostringstream result;
  for (const JSON& version : *versions.items()) {
    result << text(version, "saved") << "   " << std::setw(4) << count(version, "words") << " words   "
           << text(version, "name") << '\n';
  }
  return result.str();
}

std::string beginning(std::string_view text, std::size_t paragraphs) {
  std::size_t end = 0;
  for (; paragraphs > 0 && end != std::string_view::npos; --paragraphs) end = text.find("\n\n", end + 1);
  if (end == std::string_view::npos) return std::string(text);
  return std::string(text.substr(0, end)) + "\n\n(" + std::to_string(unicode::wordCount(text.substr(end))) +
         " more words)";
}

}  // namespace kelvane::demo
