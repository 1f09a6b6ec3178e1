#include <optional>

#include "host/CodexConfig.h"
#include "host/CodexLines.h"
#include "program/configuration/CodexConfigFile.h"
#include "program/configuration/TOMLText.h"
#include "tests/program/configuration/ConfigProperties.h"

namespace kelvane {
namespace {

template <class Operation>
auto unlessRefused(Operation operation) -> std::optional<decltype(operation())> {
  try {
    return operation();
  } catch (const ConfigRefused&) {
    return std::nullopt;
  }
}

std::string brokenByLines(std::string_view text, std::string_view command) {
  const std::string rest = CodexConfig::removing(text);
  const std::string added = CodexConfig::adding(command, text);
  if (CodexConfig::removing(rest) != rest) return "Removing twice is not once.";
  if (CodexConfig::names(command, rest)) return "What was removed is still named.";
  // A command may break its line in the middle; what follows is no line of ours then.
  const bool isOneLine = command.find_first_of("\r\n") == std::string_view::npos;
  // A CR at the end joins the line break behind it.
  if (!isOneLine || rest.ends_with('\r')) return "";
  if (!CodexConfig::names(command, added)) return "What was added is not named.";
  if (CodexConfig::adding(command, added) != added) return "Adding twice is not once.";
  if (CodexConfig::removing(added) != rest) return "Removing does not give back what was there.";
  return "";
}

std::string brokenByFile(std::string_view text, std::string_view command) {
  const auto old = unlessRefused([&] { return TOMLText(text); });
  const bool isPlain = text.find('\r') == std::string_view::npos && !text.starts_with("\xEF\xBB\xBF");
  if (const auto added = unlessRefused([&] { return CodexConfigFile::adding(command, text); })) {
    if (!old) return "What is no TOML is changed.";
    if (CodexConfigFile::command(added->text) != command) return "The file does not give the command back.";
    if (isPlain && added->text != CodexConfig::adding(command, text)) return "Adding to the file is not adding.";
    if (added->text != text && !TOMLText(added->text).equalsBesidesEntry(*old)) return "Adding changes another key.";
    const auto again = unlessRefused([&] { return CodexConfigFile::adding(command, added->text); });
    if (again != ConfigEdit{added->text, {}}) return "Adding twice to the file is not once.";
  }
  if (const auto removed = unlessRefused([&] { return CodexConfigFile::removing(text); })) {
    if (!old) return "What is no TOML is changed by removing.";
    if (TOMLText(removed->text).entryLine()) return "An entry is left.";
    if (!TOMLText(removed->text).equalsBesidesEntry(*old)) return "Removing changes another key.";
    if (removed->text != text && isPlain && removed->text != CodexConfig::removing(text)) {
      return "Removing from the file is not removing.";
    }
  }
  return "";
}

}  // namespace

std::string brokenByCodexConfig(std::string_view text, std::string_view command) {
  const std::string broken = brokenByLines(text, command);
  return broken.empty() ? brokenByFile(text, command) : broken;
}

}  // namespace kelvane
