#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the module asks of the application's model of a script: items of the library, the chapters of a text and the
/// edits of chapters. Everything here is declared only; the application's library defines it, or `quorvel/core` does.
namespace quorvel {

/// A script or a folder of the library, as it was when it was looked up. A value: it does not follow later changes.
struct ScriptItem {
  enum class Kind { script, folder };

  std::string identifier;  ///< Path relative to the library's root, pieces joined by "/"; empty for the root itself.
  std::string name;        ///< What a person reads: the last piece, a script's without its file extension.
  Kind kind = Kind::script;
  std::optional<std::vector<ScriptItem>> children;  ///< Only for folders, and only where they were listed.

  bool operator==(const ScriptItem&) const = default;
};

/// A half-open range [begin, end) of bytes in a script's text.
struct TextRange {
  std::size_t begin = 0;
  std::size_t end = 0;

  bool operator==(const TextRange&) const = default;
};

/// A half-open range [begin, end) of positions in a script's sequence of words, 0 for the first word.
struct WordRange {
  std::size_t begin = 0;
  std::size_t end = 0;

  bool operator==(const WordRange&) const = default;
};

/// A line that starts a chapter.
struct ScriptHeading {
  TextRange range;              ///< From its marker to the start of the chapter's text, its line break included.
  std::size_t wordsBefore = 0;  ///< How many words are read aloud before it.

  bool operator==(const ScriptHeading&) const = default;
};

/// A script's text and what the chapter model knows of it. Immutable; building one takes time linear in the text.
class Script {
 public:
  /// Takes the text as it is, bytes that are not UTF-8 included. Does not fail for any text.
  explicit Script(std::string text);

  const std::string& text() const noexcept { return text_; }

  /// One record a chapter, in the order of the text.
  const std::vector<ScriptHeading>& headings() const noexcept { return headings_; }

  /// How many words are read aloud; the words of heading lines are not.
  std::size_t wordCount() const noexcept { return wordCount_; }

 private:
  std::string text_;
  std::vector<ScriptHeading> headings_;
  std::size_t wordCount_ = 0;
};

/// One chapter of a script.
struct ScriptChapter {
  std::size_t index = 0;         ///< Its place among the chapters, 0 for the first.
  std::string title;             ///< May be empty.
  TextRange range;               ///< From its heading's marker to the next heading or the end of the text.
  WordRange words;               ///< The words of its text, the heading's not among them.
  std::int64_t startSecond = 0;  ///< When it starts when the script is read aloud from its beginning.

  bool operator==(const ScriptChapter&) const = default;
};

struct ScriptChapters {
  ScriptChapters() = delete;

  /// The chapters in the order of the text, as many as the script has headings. Linear in the text.
  static std::vector<ScriptChapter> chapters(const Script& script);
};

struct ControllerStatus {
  ControllerStatus() = delete;

  /// A number of seconds (0 or more) as a clock shows it to a person: "0:05", "12:34", "1:02:03".
  static std::string clock(std::int64_t seconds);
};

struct ScriptHeadings {
  ScriptHeadings() = delete;

  /// What a heading line starts with.
  static const std::string_view marker;
};

/// The text without white space (Unicode's: blanks, tabs, line breaks and the like) at either end, taken off a
/// character, that is a grapheme cluster, at a time. The result is a part of `text` and lives as long.
std::string_view trimmingWhitespace(std::string_view text);

/// One replacement in a text: what stands in `range` gives way to `replacement`.
struct TextEdit {
  TextRange range;
  std::string replacement;

  /// `text` with this edit made. `range` must lie within it; everything outside stays byte for byte.
  std::string applied(std::string_view text) const;

  bool operator==(const TextEdit&) const = default;
};

/// The edits of a script's chapters. Each takes 0-based chapter positions, which the caller has checked against
/// `script.headings()`, and answers with the edit to make in `script.text()`; none changes anything itself.
///
/// Line breaks are of the script's own kind, the more frequent of LF and CR LF (LF on a tie): those that an edit adds,
/// and those of a given text that contains no CR LF. A given text may hold heading lines; those are chapters
/// afterwards. A given title's line breaks become blanks, and a title that begins with the marker loses it, as often as
/// it does
/// ("# # New" is "New").
struct ChapterEdits {
  ChapterEdits() = delete;

  /// Inserts a chapter before another one, at the end for no `before`. Nothing when the title is blank or has nothing
  /// behind its marker.
  static std::optional<TextEdit> add(std::string_view title, std::string_view text, std::optional<std::size_t> before,
                                     const Script& script);

  /// Replaces a chapter's title and nothing else. The title that the chapter has already stays as it is, with a marker,
  /// too. Always gives an edit for a position that exists.
  static std::optional<TextEdit> rename(std::size_t chapter, std::string_view title, const Script& script);

  /// Replaces a chapter's text; its heading stays. Where the first line of `text` that is not blank is the chapter's
  /// own heading line (the marker and an equivalent title, whatever white space is around it), it is taken for that
  /// heading, once, and what follows is the new text, which may be empty. Always gives an edit for a position that
  /// exists.
  static std::optional<TextEdit> replaceText(std::size_t chapter, std::string_view text, const Script& script);

  /// Moves a chapter, heading and text, so that it ends up at position `to`. Nothing when there is no edit to make.
  static std::optional<TextEdit> move(std::size_t chapter, std::size_t to, const Script& script);

  /// Takes a chapter's heading away, and its text unless `keepingText`; a kept text joins the chapter before it. With
  /// the text of the last chapter the line breaks above its heading go too: the one that makes an empty line there, and
  /// then, in a script that does not end in a line break, the one before that. So the script ends as it did before that
  /// chapter was added. Always gives an edit for a position that exists.
  static std::optional<TextEdit> remove(std::size_t chapter, bool keepingText, const Script& script);
};

}  // namespace quorvel
