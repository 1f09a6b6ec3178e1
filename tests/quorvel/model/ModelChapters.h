#pragma once

#include <cstddef>
#include <optional>
#include <string>

/// The chapter tools' work on a text, told a second time: by lists of chapters and not by ranges of bytes. Positions
/// count from 0 and exist. Slow and simple, for tests to compare with.
namespace quorvel::tests {

/// The whole text with the chapter added, with the line breaks of the `old` text, which may lack the first heading of
/// this one; nothing for an empty title.
std::optional<std::string> withChapterAdded(const std::string& text, const std::string& title, const std::string& given,
                                            std::optional<std::size_t> before, const std::string& old);
std::string withChapterRenamed(const std::string& text, std::size_t chapter, const std::string& title);
std::string withChapterRewritten(const std::string& text, std::size_t chapter, const std::string& given);
std::string withChapterMoved(const std::string& text, std::size_t chapter, std::size_t to);
std::string withChapterRemoved(const std::string& text, std::size_t chapter, bool keepingText);

std::string withTextAppended(const std::string& text, const std::string& added);

std::size_t chapterCount(const std::string& text);

/// Whether anything in it is read aloud.
bool hasWords(const std::string& text);

/// What "list_chapters" and "read_chapter" answer.
std::string chapterListing(const std::string& text);
std::string chapterText(const std::string& text, std::size_t chapter);

}  // namespace quorvel::tests
