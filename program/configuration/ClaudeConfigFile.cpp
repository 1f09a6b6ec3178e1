#include "program/configuration/ClaudeConfigFile.h"

#include "host/ClaudeConfig.h"
#include "platform/json/JSONDocument.h"
#include "protocol/JSON.h"

namespace kelvane {
namespace {

using Kind = JSONDocument::Kind;
using Value = JSONDocument::Value;

constexpr std::string_view serversKey = ClaudeConfig::serversKey;
constexpr std::string_view entryKey = ClaudeConfig::serverName;

bool isWhitespace(std::string_view text) noexcept {
  if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
  return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

JSONDocument read(std::string_view text) {
  auto document = JSONDocument::read(std::string(text));
  if (document) return *std::move(document);
  throw ConfigRefused("The file is not valid JSON at " + positionIn(text, *JSONDocument::fault(text)) +
                      ". The file is unchanged. Fix it there and try again.");
}

/// What a value holds beyond what we write.
void describe(const Value& entry, const JSONDocument& document, std::vector<std::string>& dropped) {
  if (entry.kind != Kind::object) {
    dropped.push_back("The entry was not an object: " + std::string(document.written(entry)));
    return;
  }
  for (const JSONDocument::Member& member : document.members(entry)) {
    const std::string written(document.written(member.value));
    const bool isOurs = (member.key == "command" && member.value.kind == Kind::string) ||
                        (member.key == "args" && JSON::decoded(written) == JSON(JSON::Array{}));
    if (!isOurs) dropped.push_back("The entry had " + quotedJSON(member.key) + ": " + written);
  }
}

/// What the text says. Where JSON allows what no value of ours can hold, another value stands in for it. So two texts
/// with equal documents say the same only if such things are the same in both, which their bytes must show.
std::optional<JSON> document(const JSONDocument& text) {
  return JSON::decoded(text.decodable());
}

/// Throws unless the new text says what it must and the old one stands in it but for [begin, end).
void prove(const JSON& expected, std::size_t begin, std::size_t end, std::string_view before, std::string_view after) {
  const auto made = JSONDocument::read(std::string(after));
  requireProof(made && document(*made) == expected && differsOnlyWithin(begin, end, before, after));
}

}  // namespace

ConfigEdit ClaudeConfigFile::adding(std::string_view command, std::string_view to) {
  requireUTF8(command, "JSON");
  if (isWhitespace(to)) {
    const std::string_view mark = to.substr(0, to.starts_with(byteOrderMark) ? byteOrderMark.size() : 0);
    return {std::string(mark).append(example(command)), {}};
  }

  const JSONDocument before = read(to);
  const std::optional<JSON> old = document(before);
  const JSON expected = ClaudeConfig::adding(command, old);
  if (old == expected) return {std::string(to), {}};
  ConfigEdit edit;
  Value replaced = before.root();
  if (replaced.kind != Kind::object) {
    edit.dropped.push_back("The file was not an object: " + std::string(before.written(replaced)));
  } else if (const auto servers = before.find({serversKey})) {
    replaced = *servers;
    if (replaced.kind != Kind::object) {
      edit.dropped.push_back(quotedJSON(serversKey) + " was not an object: " + std::string(before.written(replaced)));
    } else if (const auto entry = before.find({serversKey, entryKey})) {
      replaced = *entry;
      describe(replaced, before, edit.dropped);
    }
  }

  JSONDocument after = before;
  after.set({serversKey, entryKey}, "{}");
  after.set({serversKey, entryKey, "args"}, "[]");
  after.set({serversKey, entryKey, "command"}, JSON(command).encoded());
  edit.text = after.json();
  prove(expected, replaced.begin, replaced.end, to, edit.text);
  return edit;
}

ConfigEdit ClaudeConfigFile::removing(std::string_view from) {
  ConfigEdit edit{std::string(from), {}};
  if (isWhitespace(from)) return edit;
  const JSONDocument before = read(from);
  const auto servers = before.find({serversKey});
  if (!servers || servers->kind != Kind::object) return edit;
  for (const JSONDocument::Member& member : before.members(*servers)) {
    if (member.key == entryKey) describe(member.value, before, edit.dropped);
  }
  JSONDocument after = before;
  if (!after.erase({serversKey, entryKey})) return edit;
  edit.text = after.json();
  prove(ClaudeConfig::removing(document(before)), servers->begin, servers->end, from, edit.text);
  return edit;
}

std::optional<std::string> ClaudeConfigFile::command(std::string_view in) {
  return isWhitespace(in) ? std::nullopt : ClaudeConfig::command(document(read(in)));
}

std::optional<std::vector<std::string>> ClaudeConfigFile::arguments(std::string_view in) {
  std::vector<std::string> arguments;
  if (isWhitespace(in)) return arguments;
  const std::optional<JSON> root = document(read(in));
  const JSON* value = root ? &*root : nullptr;
  for (const std::string_view key : {serversKey, entryKey, std::string_view("args")}) {
    value = value ? (*value)[key] : nullptr;
  }
  if (value == nullptr) return arguments;
  if (value->items() == nullptr) return std::nullopt;
  for (const JSON& item : *value->items()) {
    const auto string = item.string();
    if (!string) return std::nullopt;
    arguments.emplace_back(*string);
  }
  return arguments;
}

std::optional<std::string> ClaudeConfigFile::home(std::string_view in) {
  if (isWhitespace(in)) return std::nullopt;
  const JSONDocument document = read(in);
  const auto value = document.find({serversKey, entryKey, "env", "HOME"});
  return value && value->kind == Kind::string ? std::optional(document.string(*value)) : std::nullopt;
}

std::string ClaudeConfigFile::example(std::string_view command) {
  JSONDocument text = read("{}\n");
  text.set({serversKey, entryKey, "args"}, "[]");
  text.set({serversKey, entryKey, "command"}, JSON(command).encoded());
  return text.json();
}

}  // namespace kelvane
