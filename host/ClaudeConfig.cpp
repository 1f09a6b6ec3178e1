#include "host/ClaudeConfig.h"

namespace kelvane {
namespace {

constexpr std::string_view commandKey = "command";

/// The members of an object; an empty object for null or any other value.
JSON::Object members(const JSON* value) {
  const JSON::Object* object = value ? value->object() : nullptr;
  return object ? *object : JSON::Object{};
}

}  // namespace

JSON ClaudeConfig::adding(std::string_view command, const std::optional<JSON>& to) {
  JSON::Object root = members(to ? &*to : nullptr);
  JSON::Object servers = members(root.find(serversKey));
  servers.set(serverName, JSON::Object{{"args", JSON::Array{}}, {commandKey, command}});
  root.set(serversKey, std::move(servers));
  return root;
}

JSON ClaudeConfig::removing(const std::optional<JSON>& from) {
  JSON::Object root = members(from ? &*from : nullptr);
  const JSON* servers = root.find(serversKey);
  if (servers == nullptr || servers->object() == nullptr) return root;
  JSON::Object others = *servers->object();
  if (others.erase(serverName)) root.set(serversKey, std::move(others));
  return root;
}

std::optional<std::string> ClaudeConfig::command(const std::optional<JSON>& in) {
  const JSON* value = in ? &*in : nullptr;
  for (const std::string_view key : {serversKey, serverName, commandKey}) {
    value = value ? (*value)[key] : nullptr;
  }
  const auto command = value ? value->string() : std::nullopt;
  return command ? std::optional<std::string>(*command) : std::nullopt;
}

}  // namespace kelvane
