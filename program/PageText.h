#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// How the text of a help page is laid out. Pure functions; their time is linear in the text.
namespace kelvane {

/// No line is longer, in bytes, unless it is a single word or is shown as it is.
inline constexpr std::size_t pageWidth = 79;

/// Appends words and a line feed, and breaks the line before a word that does not fit. Spaces and line feeds separate
/// words. All lines but the first are indented by that many spaces.
void appendFilled(std::string_view words, std::size_t indent, std::string& text);

/// Appends paragraphs with an empty line between them, each filled, or as it is if it begins with a space.
void appendParagraphs(std::string_view paragraphs, std::string& text);

/// A name and its explanation, or an empty line for two empty ones.
using PageRow = std::pair<std::string, std::string_view>;

/// Appends rows as two columns.
void appendRows(const std::vector<PageRow>& rows, std::string& text);

}  // namespace kelvane
