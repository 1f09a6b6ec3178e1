#include "protocol/Server.h"

#include <exception>
#include <new>
#include <utility>

#include "platform/FreeMemory.h"
#include "platform/Unicode.h"
#include "protocol/RPCError.h"

namespace kelvane {
namespace {

// For std::bad_alloc, whose own message says nothing to a person.
constexpr std::string_view noMemory =
    "There is not enough memory for this. Close some programs and try again, or ask for less at a time.";

constexpr std::string_view noReason = "The tool failed without saying why.";

/// The message of a host's exception. `what` of an application may be null or empty, and a client needs a reason.
std::string_view reason(const std::exception& error) noexcept {
  const char* said = error.what();
  return said != nullptr && *said != '\0' ? said : noReason;
}

/// What is in an optional member that should be an object; no members if it is missing or something else.
const JSON::Object& membersOf(const JSON* value) noexcept {
  static const JSON::Object none;
  const JSON::Object* members = value ? value->object() : nullptr;
  return members ? *members : none;
}

/// The members of a message that the server reads; nullptr for each that is missing.
struct Request {
  const JSON* id = nullptr;
  const JSON* method = nullptr;
  const JSON* params = nullptr;
};

/// Reads the members in one pass, which takes less than three searches in the four that most messages have. No other
/// string is canonically equivalent to one of these keys, so they are compared as bytes.
Request requestIn(const JSON& message) {
  Request request;
  for (const JSON::Member& member : membersOf(&message)) {
    const std::string_view key = member.key();
    if (key == "id") request.id = &member.value();
    if (key == "method") request.method = &member.value();
    if (key == "params") request.params = &member.value();
  }
  return request;
}

JSON initializeResult(const std::string& name, const JSON::Object& params) {
  // The server speaks only what all versions have in common, so it accepts the version that the client proposes.
  const JSON* proposed = params.find("protocolVersion");
  return JSON::Object{
      {"protocolVersion", proposed && proposed->kind() == JSON::Kind::string ? *proposed : JSON(Server::version)},
      {"capabilities", JSON::Object{{"tools", JSON::Object()}}},
      {"serverInfo", JSON::Object{{"name", name}, {"version", Server::ownVersion}}}};
}

JSON toolList(const std::vector<Tool>& tools) {
  JSON::Array entries;
  for (const Tool& tool : tools) {
    entries.append(
        JSON::Object{{"name", tool.name()}, {"description", tool.description()}, {"inputSchema", tool.schema()}});
  }
  return JSON::Object{{"tools", std::move(entries)}};
}

const Tool& toolOf(const JSON::Object& params, const std::vector<Tool>& tools) {
  const std::string_view name = requiredString("name", params);
  for (const Tool& tool : tools) {
    if (unicode::equivalent(tool.name(), name)) return tool;
  }
  std::string message = "No such tool: ";
  throw RPCError::invalidParams(std::move(message.append(name)));
}

/// How much of a text is in one piece if that has at most `most` bytes and cuts no character, nor an ill-formed part of
/// one. No character has more than three bytes that continue it.
std::size_t pieceOf(std::string_view text, std::size_t most) noexcept {
  if (text.size() <= most) return text.size();
  const auto continues = [&](std::size_t at) { return (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80; };
  for (std::size_t end = most; end + 4 > most; --end) {
    if (!continues(end)) return end;
  }
  return most;
}

/// Appends a text with its escapes. The memory of a long one is given back piece by piece, so that text and reply are
/// not both there as a whole.
void appendLast(std::string text, std::string& reply) {
  constexpr std::size_t longPiece = std::size_t{4} << 20;
  if (text.size() > longPiece) reply.reserve(reply.size() + text.size() + text.size() / 16);
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t size = pieceOf(std::string_view(text).substr(at), longPiece);
    JSON::appendEscaped(std::string_view(text).substr(at, size), reply);
    if (text.size() > longPiece) giveBack(text.data() + at, size);
    at += size;
  }
}

/// Appends what `toolResult` describes. The text is written once, where it leaves from.
void appendCallResult(const Tool& tool, const JSON::Object& arguments, std::string& reply) {
  reply.append(R"({"content":[{"text":")");
  const std::size_t textStart = reply.size();
  bool isError = false;
  const auto fail = [&](std::string_view sentence) {
    isError = true;
    reply.resize(textStart);
    JSON::appendEscaped(sentence, reply);
  };
  // A failure here is the tool's: it becomes a failed result, so that the client's model reads it.
  std::string text;
  try {
    if (const Tool::Write* write = tool.writer()) {
      ResultText pieces(reply, ResultText::Form::escaped);
      (*write)(arguments, pieces);
    } else {
      text = tool.run(arguments);
    }
  } catch (const RPCError& error) {
    fail(error.message().empty() ? noReason : std::string_view(error.message()));
  } catch (const std::bad_alloc&) {
    fail(noMemory);
  } catch (const std::exception& error) {
    fail(reason(error));
  } catch (...) {
    fail(noReason);
  }
  appendLast(std::move(text), reply);
  reply.append(isError ? R"(","type":"text"}],"isError":true})" : R"(","type":"text"}],"isError":false})");
}

// The members of an envelope are in the order of their keys, as in every object that is encoded.

void appendID(const JSON* id, std::string& reply) {
  reply.append(R"("id":)");
  if (id == nullptr || !id->appendEncoded(reply)) reply.append("null");
  reply.append(R"(,"jsonrpc":"2.0")");
}

/// Makes the reply an error. Always true: an error is due.
bool replaceByError(const RPCError& error, const JSON* id, std::string& reply) {
  reply.assign(R"({"error":{"code":)").append(std::to_string(error.code())).append(R"(,"message":")");
  JSON::appendEscaped(error.message(), reply);
  reply.append(R"("},)");
  appendID(id, reply);
  reply.push_back('}');
  return true;
}

}  // namespace

bool Server::handle(std::string_view line, std::string& reply) const {
  reply.clear();
  const std::optional<JSON> message = JSON::decoded(line);
  if (!message) return replaceByError(RPCError::parse(), nullptr, reply);
  const Request request = requestIn(*message);
  const JSON* const id = request.id;  // one that is null is an id, too
  const auto method = request.method ? request.method->string() : std::nullopt;
  if (!method) return replaceByError(RPCError::invalidRequest(), id, reply);
  const JSON::Object& params = membersOf(request.params);
  try {
    reply.push_back('{');
    appendID(id, reply);
    reply.append(R"(,"result":)");
    bool isEncoded = true;
    if (*method == "ping") {
      reply.append("{}");
    } else if (*method == "tools/call") {
      appendCallResult(toolOf(params, tools_), membersOf(params.find("arguments")), reply);
    } else if (*method == "initialize") {
      isEncoded = initializeResult(name_, params).appendEncoded(reply);
    } else if (*method == "tools/list") {
      isEncoded = toolList(tools_).appendEncoded(reply);
    } else if (id == nullptr) {
      reply.clear();
      return false;
    } else {
      throw RPCError::methodNotFound(*method);
    }
    reply.push_back('}');
    // As an envelope that contains it would be encoded: a schema may hold a number that JSON does not have.
    if (!isEncoded) reply = "null";
    return true;
  } catch (const RPCError& error) {
    return replaceByError(error, id, reply);
  } catch (const std::bad_alloc&) {
    return replaceByError(RPCError::invalidParams(std::string(noMemory)), id, reply);
  } catch (const std::exception& error) {
    return replaceByError(RPCError::invalidParams(std::string(reason(error))), id, reply);
  }
}

std::optional<std::string> Server::handle(std::string_view line) const {
  std::string reply;
  return handle(line, reply) ? std::optional(std::move(reply)) : std::nullopt;
}

}  // namespace kelvane
