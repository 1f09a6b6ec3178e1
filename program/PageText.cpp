#include "program/PageText.h"

#include <algorithm>

namespace kelvane {

void appendFilled(std::string_view words, std::size_t indent, std::string& text) {
  std::size_t column = text.size() - (text.rfind('\n') + 1);
  for (bool isFirst = true; !words.empty(); isFirst = false) {
    const std::string_view word = words.substr(0, words.find_first_of(" \n"));
    words.remove_prefix(std::min(word.size() + 1, words.size()));
    if (!isFirst && column + 1 + word.size() > pageWidth) {
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

void appendParagraphs(std::string_view paragraphs, std::string& text) {
  while (!paragraphs.empty()) {
    const std::string_view paragraph = paragraphs.substr(0, paragraphs.find("\n\n"));
    paragraphs.remove_prefix(std::min(paragraph.size() + 2, paragraphs.size()));
    if (paragraph.starts_with(' ')) {
      text.append(paragraph).append("\n");
    } else {
      appendFilled(paragraph, 0, text);
    }
    if (!paragraphs.empty()) text.append("\n");
  }
}

void appendRows(const std::vector<PageRow>& rows, std::string& text) {
  std::size_t indent = 0;
  for (const PageRow& row : rows) indent = std::max(indent, row.first.size() + 5);
  for (const auto& [name, help] : rows) {
    if (!name.empty()) text.append("  ").append(name).append(indent - name.size() - 2, ' ');
    appendFilled(help, indent, text);
  }
}

}  // namespace kelvane
