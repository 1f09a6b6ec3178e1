#include "program/configuration/CodexConfigFile.h"

#include <algorithm>
#include <vector>

#include "host/CodexConfig.h"
#include "host/CodexLines.h"
#include "platform/Unicode.h"
#include "platform/json/JSONDocument.h"
#include "program/configuration/TOMLText.h"

namespace kelvane {
namespace {

std::string replacingAll(std::string_view old, std::string_view fresh, std::string_view text) {
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t found = std::min(text.find(old, at), text.size());
    result.append(text.substr(at, found - at));
    if (found < text.size()) result.append(fresh);
    at = found + old.size();
  }
  return result;
}

/// A text as `CodexConfig` can take it, and the way back.
class Lines {
 public:
  explicit Lines(std::string_view text) {
    mark_ = text.substr(0, text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0);
    text.remove_prefix(mark_.size());
    const auto feeds = std::count(text.begin(), text.end(), '\n');
    text_ = replacingAll("\r\n", "\n", text);
    isAllCRLF_ = feeds > 0 && text.size() - text_.size() == static_cast<std::size_t>(feeds);
    if (!isAllCRLF_) text_ = text;
  }

  const std::string& text() const noexcept { return text_; }

  std::string back(std::string_view text) const {
    return std::string(mark_).append(isAllCRLF_ ? replacingAll("\n", "\r\n", text) : text);
  }

 private:
  std::string_view mark_;
  std::string text_;
  bool isAllCRLF_ = false;
};

void requireCommandThatStandsForItself(std::string_view command) {
  requireUTF8(command, "TOML");
  const bool isPlain = std::none_of(command.begin(), command.end(), [](char byte) {
    return byte == '"' || byte == '\\' || static_cast<unsigned char>(byte) < ' ' || byte == '\x7F';
  });
  if (isPlain) return;
  throw ConfigRefused(
      "The path of this program contains a quote, a backslash or a control character, which must be escaped in this "
      "file. Move the program to another folder, or paste the lines by hand.");
}

TOMLText read(std::string_view text, const char* refusal) {
  try {
    return TOMLText(text);
  } catch (const TooManyDots&) {  // the header of our table has one
    throw ConfigRefused("With our lines, the file would have more than " + std::to_string(TooManyDots::most) +
                        " dots in its keys, too many to check safely. The file is unchanged. Edit it by hand.");
  } catch (const ConfigRefused&) {
    throw ConfigRefused(refusal);
  }
}

void requireNoEntry(const TOMLText& rest, const TOMLText& whole, std::string_view consequence) {
  if (!rest.entryLine()) return;
  throw ConfigRefused("The file registers \"kelvane\" at line " + std::to_string(whole.entryLine().value_or(1)) +
                      " in another form than ours: dotted keys, an inline table, a header with quotes, spaces or a " +
                      "comment, or mixed line endings. " + std::string(consequence));
}

/// The lines that go, but for those that we write ourselves.
std::vector<std::string> dropped(const std::string& text, const TOMLText& whole) {
  const std::string ours = CodexConfig::adding(whole.command().value_or(""), "");
  const std::vector<CodexLine> written = codexLines(ours);
  std::vector<std::string> lines;
  for (const CodexLine& line : codexLines(text)) {
    const std::string_view trimmed = unicode::trimmingSpacesAndTabs(line.text);
    const bool isOurs = std::any_of(written.begin(), written.end(),
                                    [trimmed](const CodexLine& known) { return known.text == trimmed; });
    if (line.isOwned && !isOurs) lines.emplace_back(line.text);
  }
  return lines;
}

}  // namespace

ConfigEdit CodexConfigFile::adding(std::string_view command, std::string_view to) {
  requireCommandThatStandsForItself(command);
  const TOMLText old(to);
  const Lines lines(to);
  ConfigEdit edit{lines.back(CodexConfig::adding(command, lines.text())), {}};
  if (edit.text == to) return edit;
  constexpr const char* notAdded =
      "With our lines changed, the file would no longer be valid TOML: they are inside a value, or the table of "
      "servers is in a form that takes no other server. The file is unchanged. Edit it by hand.";
  requireNoEntry(read(lines.back(CodexConfig::removing(lines.text())), notAdded), old,
                 "A second entry would keep the client from starting, so the file is unchanged. Remove that entry by "
                 "hand and try again.");
  const TOMLText fresh = read(edit.text, notAdded);
  requireProof(fresh.registersOnly(command) && fresh.equalsBesidesEntry(old));
  edit.dropped = dropped(lines.text(), old);
  return edit;
}

ConfigEdit CodexConfigFile::removing(std::string_view from) {
  const TOMLText old(from);
  const Lines lines(from);
  const std::vector<CodexLine> all = codexLines(lines.text());
  ConfigEdit edit{std::string(from), {}};
  if (std::any_of(all.begin(), all.end(), [](const CodexLine& line) { return line.isOwned; })) {
    edit.text = lines.back(CodexConfig::removing(lines.text()));
    edit.dropped = dropped(lines.text(), old);
  }
  const TOMLText fresh = read(edit.text,
                              "With our lines removed, the file would no longer be valid TOML: they are inside a "
                              "value. The file is unchanged. Remove them by hand.");
  requireNoEntry(fresh, old, "The file is unchanged. Remove that entry by hand.");
  requireProof(fresh.equalsBesidesEntry(old));
  return edit;
}

std::optional<std::string> CodexConfigFile::command(std::string_view in) {
  return TOMLText(in).command();
}

std::optional<std::vector<std::string>> CodexConfigFile::arguments(std::string_view in) {
  return TOMLText(in).arguments();
}

std::optional<std::string> CodexConfigFile::home(std::string_view in) {
  return TOMLText(in).home();
}

bool CodexConfigFile::isSwitchedOff(std::string_view in) {
  return TOMLText(in).isSwitchedOff();
}

bool CodexConfigFile::names(std::string_view command, std::string_view in) {
  return CodexConfig::names(command, Lines(in).text());
}

std::string CodexConfigFile::example(std::string_view command) {
  // TOML has the escapes of JSON, and wants one character more escaped.
  return CodexConfig::header() + "\nargs = []\ncommand = " + replacingAll("\x7F", "\\u007f", quotedJSON(command)) +
         "\n";
}

}  // namespace kelvane
