#include "program/Table.h"

#include <algorithm>
#include <string_view>

#include "platform/Unicode.h"

namespace kelvane {
namespace {

// Breaks a cell between words, so that no line is longer than the width unless a word is.
void appendFilled(std::string_view cell, std::size_t indent, std::size_t width, std::string& text) {
  std::size_t column = width;  // a new line begins
  while (!cell.empty()) {
    const std::string_view word = cell.substr(0, cell.find(' '));
    cell.remove_prefix(std::min(word.size() + 1, cell.size()));
    const std::size_t size = unicode::characterCount(word);
    if (column + 1 + size > width) {
      text.append("\n").append(indent, ' ');
      column = indent;
    } else {
      text.push_back(' ');
      ++column;
    }
    text.append(word);
    column += size;
  }
}

}  // namespace

std::string table(const std::vector<TableRow>& rows, std::size_t columnsOfNumbers, std::size_t width) {
  std::vector<std::size_t> widths;
  for (const TableRow& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], unicode::characterCount(row[i]));
  }
  std::string text;
  for (const TableRow& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string padding(widths[i] - unicode::characterCount(row[i]), ' ');
      const bool isLast = i + 1 == row.size();
      if (i > 0) line.append("  ");
      if (i < columnsOfNumbers) line.append(padding);
      if (isLast && width > 0 && unicode::characterCount(line) + unicode::characterCount(row[i]) > width) {
        appendFilled(row[i], 4, width, line);
      } else {
        line.append(row[i]);
      }
      if (i >= columnsOfNumbers && !isLast) line.append(padding);
    }
    text.append(line).append("\n");
  }
  return text;
}

}  // namespace kelvane
