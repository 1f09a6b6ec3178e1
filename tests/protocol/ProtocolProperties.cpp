#include "tests/protocol/ProtocolProperties.h"

#include <optional>
#include <stdexcept>

#include "platform/Unicode.h"
#include "platform/json/JSONDocument.h"
#include "protocol/JSON.h"
#include "protocol/RPCError.h"
#include "protocol/Server.h"

namespace kelvane {
namespace {

bool hasItsKeysInOrder(const JSON::Object& object) {
  const JSON::Member* previous = nullptr;
  for (const JSON::Member& member : object) {
    if (previous != nullptr && unicode::order(previous->key(), member.key()) >= 0) return false;
    if (object.find(member.key()) != &member.value()) return false;
    previous = &member;
  }
  return true;
}

/// A value built again from the parts of another.
JSON rebuilt(const JSON& value) {
  if (const JSON::Object* object = value.object()) {
    JSON::Object result;
    for (const JSON::Member& member : *object) result.set(member.key(), member.value());
    return result;
  }
  if (const JSON::Array* items = value.items()) {
    JSON::Array result;
    for (const JSON& item : *items) result.append(item);
    return result;
  }
  return value.string() ? JSON(*value.string()) : value;
}

const Server& server() {
  static const Server server(
      "kelvane",
      {Tool("echo", "", schema({}, {}),
            [](const JSON::Object& arguments) { return std::string(requiredString("text", arguments)); }),
       Tool("say", "", schema({}, {}), [](const JSON::Object& arguments) { return JSON(arguments).encoded(); }),
       Tool("bytes", "", schema({}, {}), [](const JSON::Object&) { return std::string("\xFF\0\n", 3); }),
       Tool("fail", "", schema({}, {}),
            [](const JSON::Object& arguments) -> std::string {
              throw RPCError::invalidParams(JSON(arguments).encoded());
            }),
       Tool("break", "", schema({}, {}),
            [](const JSON::Object&) -> std::string { throw std::runtime_error("\xC3\n"); })});
  return server;
}

bool isText(const JSON* value) {
  return value != nullptr && value->string();
}

bool isError(const JSON& error) {
  const JSON* code = error["code"];
  return error.object() && error.object()->size() == 2 && isText(error["message"]) && code &&
         (*code == JSON(-32700) || *code == JSON(-32600) || *code == JSON(-32601) || *code == JSON(-32602));
}

bool needsNoReply(const JSON& message) {
  const JSON* method = message["method"];
  if (!isText(method) || message["id"] != nullptr) return false;
  for (const std::string_view known : {"initialize", "ping", "tools/list", "tools/call"}) {
    if (*method->string() == known) return false;
  }
  return true;
}

}  // namespace

std::string brokenByJSON(std::string_view text) {
  const std::optional<JSON> value = JSON::decoded(text);
  const auto read = JSONDocument::read(std::string(text));
  if (value && !read) return "what one reader takes another refuses";
  if (read && (read->decodable() == text) != value.has_value()) return "a text is not what it is said to be";
  if (read && !JSON::decoded(read->decodable())) return "what should be decodable is not";
  if (!value) return {};
  const std::string written = value->encoded();
  if (written.find('\n') != std::string::npos) return "what is written is more than one line";
  if (!unicode::isValidUTF8(written)) return "what is written is not UTF-8";
  const std::optional<JSON> again = JSON::decoded(written);
  if (!again) return "what was written cannot be read";
  if (!(*again == *value && *value == *again)) return "what was written reads as another value";
  if (again->encoded() != written) return "what was read again is written differently";
  const JSON anew = rebuilt(*value);
  if (!(anew == *value) || anew.encoded() != written) return "what is made of the same parts is another value";
  if (value->object() && !hasItsKeysInOrder(*value->object())) return "keys are twice there or out of order";
  return {};
}

std::string brokenByServer(std::string_view line) {
  const std::optional<JSON> message = JSON::decoded(line);
  const std::optional<std::string> reply = server().handle(line);
  if (!reply) return message && needsNoReply(*message) ? "" : "a message is not answered";
  if (message && needsNoReply(*message)) return "a notification is answered";
  if (reply->find('\n') != std::string::npos) return "a reply is more than one line";
  const std::optional<JSON> envelope = JSON::decoded(*reply);
  if (!envelope || !envelope->object()) return "a reply is no JSON object";
  const JSON* result = (*envelope)["result"];
  const JSON* error = (*envelope)["error"];
  const JSON* id = (*envelope)["id"];
  const JSON* version = (*envelope)["jsonrpc"];
  if (envelope->object()->size() != 3 || !id || !version || !(*version == JSON("2.0"))) return "a reply is no envelope";
  if ((result == nullptr) == (error == nullptr)) return "a reply is neither a result nor an error, or both";
  if (result && !result->object()) return "a result is no object";
  if (error && !isError(*error)) return "an error is none";
  const JSON* asked = message ? (*message)["id"] : nullptr;
  if (!(*id == (asked ? *asked : JSON(nullptr)))) return "a reply answers another message";
  return {};
}

}  // namespace kelvane
