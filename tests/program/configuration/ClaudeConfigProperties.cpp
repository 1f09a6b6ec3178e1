#include <optional>
#include <utility>
#include <vector>

#include "host/ClaudeConfig.h"
#include "platform/Unicode.h"
#include "platform/json/JSONDocument.h"
#include "program/configuration/ClaudeConfigFile.h"
#include "protocol/JSON.h"
#include "tests/program/configuration/ConfigProperties.h"

namespace kelvane {
namespace {

using Members = std::vector<std::pair<std::string, std::string>>;

std::optional<ConfigEdit> adding(std::string_view command, std::string_view text) {
  try {
    return ClaudeConfigFile::adding(command, text);
  } catch (const ConfigRefused&) {
    return std::nullopt;
  }
}

/// The members of an object but one, as they are written, in their order; none for what is no object.
Members others(std::string_view text, JSONDocument::Path path, std::string_view key) {
  Members members;
  const auto document = JSONDocument::read(std::string(text));
  const auto object = document ? document->find(path) : std::nullopt;
  if (!object || object->kind != JSONDocument::Kind::object) return members;
  for (const JSONDocument::Member& member : document->members(*object)) {
    if (member.key != key) members.emplace_back(member.key, document->written(member.value));
  }
  return members;
}

/// What a text says, with another value for what none of ours can hold; nothing when it is not JSON.
std::optional<JSON> document(std::string_view text) {
  const auto read = JSONDocument::read(std::string(text));
  return read ? JSON::decoded(read->decodable()) : std::nullopt;
}

bool isBlank(std::string_view text) {
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

std::string brokenByRemoving(std::string_view text) {
  const auto old = document(text);
  ConfigEdit removed;
  try {
    removed = ClaudeConfigFile::removing(text);
  } catch (const ConfigRefused&) {
    return old || isBlank(text) ? "Removing is refused without need." : "";
  }
  if (!old) return isBlank(text) && removed.text == text ? "" : "Removing changes what is no JSON.";
  if (ClaudeConfig::command(document(removed.text))) return "A command is left.";
  if (removed.text != text && document(removed.text) != ClaudeConfig::removing(old)) {
    return "Removing says something else in the file than in the document.";
  }
  if (others(removed.text, {}, "mcpServers") != others(text, {}, "mcpServers") ||
      others(removed.text, {"mcpServers"}, "kelvane") != others(text, {"mcpServers"}, "kelvane")) {
    return "Removing changes how another member is written.";
  }
  if (ClaudeConfigFile::removing(removed.text) != ConfigEdit{removed.text, {}}) return "Removing twice is not once.";
  return "";
}

}  // namespace

std::string brokenByClaudeConfig(std::string_view text, std::string_view command) {
  const auto old = document(text);
  const JSON expected = ClaudeConfig::adding(command, old);
  if (ClaudeConfig::command(expected) != command) return "The document does not give the command back.";
  if (ClaudeConfig::adding(command, expected) != expected) return "Adding twice to the document is not once.";

  const auto added = adding(command, text);
  const bool isPossible = unicode::isValidUTF8(command) && (old || isBlank(text));
  if (added.has_value() != isPossible) return "Adding is refused without need, or not refused.";
  if (std::string broken = brokenByRemoving(text); !broken.empty()) return broken;
  if (!added) return "";
  if (document(added->text) != expected) return "Adding says something else in the file than in the document.";
  if (ClaudeConfig::command(document(added->text)) != command) return "The file does not give the command back.";
  if (adding(command, added->text) != ConfigEdit{added->text, {}}) return "Adding twice to the file is not once.";
  const bool isObject = old && old->object() != nullptr;
  if (isObject && others(added->text, {}, "mcpServers") != others(text, {}, "mcpServers")) {
    return "Adding changes how another member is written.";
  }
  const Members servers = others(text, {"mcpServers"}, "kelvane");
  if (others(added->text, {"mcpServers"}, "kelvane") != servers) return "Adding changes how another server is written.";
  if (std::string broken = brokenByRemoving(added->text); !broken.empty()) return broken;
  const JSON* present = isObject ? (*old)["mcpServers"] : nullptr;
  const bool isNew = present != nullptr && (*present)["kelvane"] == nullptr && !servers.empty();
  if (isNew && ClaudeConfigFile::removing(added->text).text != text) return "Removing does not give the text back.";
  return "";
}

}  // namespace kelvane
