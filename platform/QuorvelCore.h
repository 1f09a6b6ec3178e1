#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the module asks of the application's model of a script: the items of a library, the chapters of a text, and the
/// edits of chapters.
///
/// # Who defines it
///
/// This header only declares. A program links one definition: its own, or the one in `quorvel/core`. The comments below
/// say what the module relies on, and what `quorvel/core` does where that leaves a choice. Chapters that contradict the
/// rules below, or a missing edit where one is promised, stop the process: they are defects, not input.
///
/// # Common to all of it
///
/// - Positions and sizes are in bytes. A script's text is UTF-8; bytes that are not are kept as they are.
/// - Every type is a value, and every operation depends on its arguments only. So values may be shared between threads
///   as long as no thread changes them, and every static operation may be called from several threads at once.
/// - Each operation takes time and memory linear in the texts that it is given, and does not recurse on them.
/// - Nothing is thrown but std::bad_alloc. Arguments that break a precondition are undefined behaviour.
///
/// # Example
///
///     const Script script("# Intro\n\nHello.\n");
///     const auto edit = ChapterEdits::add("Outro", "Goodbye.", std::nullopt, script);
///     edit->applied(script.text());  // "# Intro\n\nHello.\n\n# Outro\n\nGoodbye.\n"
namespace quorvel {

/// A script or a folder of the library, as it was when it was looked up. It does not follow later changes.
struct ScriptItem {
  enum class Kind { script, folder };

  /// The path relative to the library's root, its pieces joined by "/": "Talks/Opening.md". A script's ends in the
  /// library's file extension. Empty for the root itself. Two identifiers are equal if their bytes are.
  std::string identifier;

  /// The name that a person reads: the last piece, a script's without its file extension: "Opening".
  std::string name;

  Kind kind = Kind::script;

  /// The items in a folder that was listed; an empty vector if the folder is empty. std::nullopt for a script, and for
  /// a folder that was looked up without being listed.
  std::optional<std::vector<ScriptItem>> children;

  bool operator==(const ScriptItem&) const = default;
};

/// A half-open range [begin, end) of bytes in a script's text, with begin <= end.
struct TextRange {
  std::size_t begin = 0;
  std::size_t end = 0;

  bool operator==(const TextRange&) const = default;
};

/// A half-open range [begin, end) of a script's words, with begin <= end. The first word is number 0.
struct WordRange {
  std::size_t begin = 0;
  std::size_t end = 0;

  bool operator==(const WordRange&) const = default;
};

/// A line that starts a chapter.
struct ScriptHeading {
  TextRange range;              ///< The whole line: from its marker through its line break, if it has one.
  std::size_t wordsBefore = 0;  ///< How many words are read aloud before it.

  bool operator==(const ScriptHeading&) const = default;
};

/// A script's text with its headings and its word count. It cannot be changed, only assigned to.
///
/// The default model: a heading is a line that starts with `ScriptHeadings::marker`. Lines end in LF or CR LF. A
/// byte-order mark at the start of the text is not part of the first line. Words are separated by white space.
class Script {
 public:
  /// Takes over the text and analyses it once. Any bytes are accepted.
  explicit Script(std::string text);

  /// The text, byte for byte as it was given. The references that this and `headings` return live as long as the
  /// script, and until it is assigned to or moved from.
  const std::string& text() const noexcept { return text_; }

  /// One record per chapter, in the order of the text. Empty if the script has no chapters.
  const std::vector<ScriptHeading>& headings() const noexcept { return headings_; }

  /// How many words are read aloud. Words in heading lines do not count, words before the first heading do.
  std::size_t wordCount() const noexcept { return wordCount_; }

 private:
  std::string text_;
  std::vector<ScriptHeading> headings_;
  std::size_t wordCount_ = 0;
};

/// One chapter of a script.
struct ScriptChapter {
  std::size_t index = 0;         ///< Its number among the chapters; the first is 0.
  std::string title;             ///< The heading line without the marker and surrounding white space. May be empty.
  TextRange range;               ///< From its heading's marker to the next heading or the end of the text.
  WordRange words;               ///< The words of its text, without those of its heading.
  std::int64_t startSecond = 0;  ///< Seconds from the start of the script to this chapter, read aloud.

  bool operator==(const ScriptChapter&) const = default;
};

/// The chapters of a script.
struct ScriptChapters {
  ScriptChapters() = delete;

  /// The chapters in the order of the text, exactly one for each heading. Chapter n has the index n, its range ends
  /// inside the text and not before its heading ends.
  static std::vector<ScriptChapter> chapters(const Script& script);
};

/// How a reading position is shown to a person.
struct ControllerStatus {
  ControllerStatus() = delete;

  /// A clock reading: "0:05", "12:34", "1:02:03". `seconds` must be 0 or more. Hours have no upper limit.
  static std::string clock(std::int64_t seconds);
};

/// How headings are written.
struct ScriptHeadings {
  ScriptHeadings() = delete;

  /// The string that every heading line starts with, a trailing space included: "# ".
  static const std::string_view marker;
};

/// `text` without white space at its start and end. White space is Unicode's: spaces, tabs, line breaks and so on. It
/// is removed by whole characters (grapheme clusters), so a space goes together with a combining mark on it.
///
/// The result is a part of `text`, and lives as long as the bytes that `text` refers to.
std::string_view trimmingWhitespace(std::string_view text);

/// One replacement in a text: the bytes of `range` become `replacement`. An empty range inserts, an empty replacement
/// deletes, and both together change nothing.
struct TextEdit {
  TextRange range;
  std::string replacement;

  /// A copy of `text` with this edit made. `range` must lie within `text`. Every byte outside it stays as it is.
  std::string applied(std::string_view text) const;

  bool operator==(const TextEdit&) const = default;
};

/// The edits of a script's chapters. Each operation computes the edit of `script.text()` and changes nothing itself.
///
/// Chapters are given by index, 0 for the first. Every index must be less than `script.headings().size()`; the caller
/// checks that.
///
/// What the default model promises for every edit:
///
/// - Bytes outside the chapters that the edit is about stay as they are, including those that are not UTF-8.
/// - New line breaks are of the script's own kind: the more frequent of LF and CR LF, or LF on a tie. So are the line
///   breaks of a given text, unless it contains a CR LF.
/// - One empty line separates a new heading from its text and from what stands above it. Existing text is not tidied.
/// - A given title becomes one line: each line break becomes a space. Markers at its start are removed, so "# # New"
///   becomes "New".
/// - A given text may contain heading lines. They start chapters of their own.
struct ChapterEdits {
  ChapterEdits() = delete;

  /// Inserts a chapter before the chapter `before`, or at the end without one. `text` may be empty. std::nullopt if
  /// nothing is left of the title without markers and white space.
  static std::optional<TextEdit> add(std::string_view title, std::string_view text, std::optional<std::size_t> before,
                                     const Script& script);

  /// Replaces a chapter's title and nothing else. An empty title leaves the marker alone on its line. A title that the
  /// chapter already has changes nothing, even if it begins with the marker. Never std::nullopt.
  static std::optional<TextEdit> rename(std::size_t chapter, std::string_view title, const Script& script);

  /// Replaces a chapter's text and keeps its heading. Clients often send the heading along: if the first line of `text`
  /// that holds more than white space is the marker and a title equivalent to the chapter's own, that line is dropped,
  /// once. A text that the chapter already has changes nothing. Never std::nullopt.
  static std::optional<TextEdit> replaceText(std::size_t chapter, std::string_view text, const Script& script);

  /// Moves a chapter, heading and text, so that its index becomes `to`. The white space between chapters stays where it
  /// is. std::nullopt if the chapter is already there.
  static std::optional<TextEdit> move(std::size_t chapter, std::size_t to, const Script& script);

  /// Removes a chapter's heading, and its text unless `keepingText`. A kept text joins the chapter before it.
  ///
  /// Removing the last chapter with its text also removes the empty line above its heading. If the script does not end
  /// in a line break, the break before that goes too, so that the script ends as it did before the chapter was added.
  /// Never std::nullopt.
  static std::optional<TextEdit> remove(std::size_t chapter, bool keepingText, const Script& script);
};

}  // namespace quorvel
