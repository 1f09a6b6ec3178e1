#include "scripttools/Chapters.h"

#include <charconv>
#include <cstdint>
#include <system_error>
#include <utility>

#include "platform/FatalError.h"
#include "protocol/JSON.h"
#include "protocol/RPCError.h"

/// The chapter model comes from the application, so what it returns is checked before it is used: a chapter that ends
/// after its script would otherwise be a read outside the text. A contradiction is a defect of the application and not
/// of a client, so it stops the process before anything is written.
namespace kelvane {

using quorvel::ControllerStatus;
using quorvel::Script;
using quorvel::ScriptChapter;
using quorvel::ScriptChapters;
using quorvel::TextEdit;

namespace {

// The string as a signed 64-bit integer: one optional sign, then digits to the end. (from_chars accepts "-" itself, so
// "+-1" is read as -1; neither is a position.)
std::optional<std::int64_t> strictInteger(std::string_view string) {
  if (string.starts_with('+')) string.remove_prefix(1);
  std::int64_t value = 0;
  const char* const end = string.data() + string.size();
  const auto [stopped, error] = std::from_chars(string.data(), end, value);
  if (error != std::errc() || stopped != end) return std::nullopt;
  return value;
}

}  // namespace

std::string chapterList(const Script& script) {
  JSON::Array entries;
  for (const ScriptChapter& chapter : chaptersOf(script)) {
    entries.append(JSON::Object{{"chapter", chapter.index + 1},
                                {"starts_at", ControllerStatus::clock(chapter.startSecond)},
                                {"title", chapter.title},
                                {"words", chapter.words.end - chapter.words.begin}});
  }
  return JSON(std::move(entries)).encoded();
}

std::size_t chapterIndex(std::string_view position, const Script& script) {
  // Also for a position that is not a number: that there are no chapters helps a client more.
  const std::size_t count = script.headings().size();
  if (count == 0) throw RPCError::invalidParams("This script has no chapters. " + std::string(chapterRule));
  const auto value = strictInteger(position);
  if (!value || *value < 1 || static_cast<std::uint64_t>(*value) > count) {
    const auto number = std::to_string(count);
    throw RPCError::invalidParams("There is no chapter " + std::string(position) + ". This script has " + number +
                                  ", numbered 1 to " + number + ".");
  }
  return static_cast<std::size_t>(*value - 1);
}

std::string_view chapterBody(std::size_t index, const std::vector<ScriptChapter>& chapters, const Script& script) {
  const std::size_t begin = script.headings()[index].range.end;
  return std::string_view(script.text()).substr(begin, chapters[index].range.end - begin);
}

std::vector<ScriptChapter> chaptersOf(const Script& script) {
  auto chapters = ScriptChapters::chapters(script);
  requireConsistent(chapters, script);
  return chapters;
}

void requireConsistent(const std::vector<ScriptChapter>& chapters, const Script& script) {
  if (chapters.size() != script.headings().size())
    fatalError("The number of chapters differs from the number of headings.");
  for (std::size_t index = 0; index < chapters.size(); ++index) {
    const ScriptChapter& chapter = chapters[index];
    if (chapter.index != index) fatalError("The index of a chapter is not its position in the list.");
    if (chapter.range.end > script.text().size()) fatalError("A chapter ends after the end of its script.");
    if (script.headings()[index].range.end > chapter.range.end) fatalError("A chapter ends before its text begins.");
    if (chapter.words.end < chapter.words.begin) fatalError("The word range of a chapter runs backwards.");
  }
}

TextEdit requireEdit(std::optional<TextEdit> edit) {
  if (!edit) fatalError("The chapter model returned no edit for a chapter that exists.");
  return *std::move(edit);
}

}  // namespace kelvane
