#include "protocol/Server.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

#include "platform/Unicode.h"
#include "protocol/RPCError.h"

namespace kelvane {
namespace {

// For std::bad_alloc, whose own message says nothing to a person.
constexpr std::string_view noMemory =
    "There is not enough memory for this. Close some programs and try again, or ask for less at a time.";

constexpr std::string_view noReason = "The tool failed without saying why.";

struct RPCRequest {
  std::optional<JSON> id;  // holds null for an id that is null: the member is there
  std::string_view method;
  JSON::Object params;
};

/// The message of a host's exception. `what` of an application may be null or empty, and a client needs a reason.
std::string_view reason(const std::exception& error) noexcept {
  const char* said = error.what();
  return said != nullptr && *said != '\0' ? said : noReason;
}

/// The request's id. std::nullopt if `message` is not an object or has no id.
std::optional<JSON> idOf(const JSON& message) {
  const JSON* id = message["id"];
  return id ? std::optional(*id) : std::nullopt;
}

/// std::nullopt if the message is not a request. The method's name lives as long as the message.
std::optional<RPCRequest> parsedRequest(const JSON& message) {
  const JSON* member = message["method"];
  const auto method = member ? member->string() : std::nullopt;
  if (!method) return std::nullopt;
  const JSON* params = message["params"];
  const JSON::Object* members = params ? params->object() : nullptr;
  return RPCRequest{idOf(message), *method, members ? *members : JSON::Object()};
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

JSON callResult(const std::vector<Tool>& tools, const JSON::Object& params) {
  const std::string_view name = requiredString("name", params);
  const auto tool = std::find_if(tools.begin(), tools.end(),
                                 [&](const Tool& each) { return unicode::equivalent(each.name(), name); });
  if (tool == tools.end()) throw RPCError::invalidParams(std::string("No such tool: ").append(name));

  // From here on a failure is the tool's: it becomes a failed result, so that the client's model reads it. Before, it
  // is an error of the protocol.
  const JSON* given = params.find("arguments");
  const JSON::Object* arguments = given ? given->object() : nullptr;
  try {
    return toolResult(tool->run(arguments ? *arguments : JSON::Object()), false);
  } catch (const RPCError& error) {
    return toolResult(error.message(), true);
  } catch (const std::bad_alloc&) {
    return toolResult(noMemory, true);
  } catch (const std::exception& error) {
    return toolResult(reason(error), true);
  } catch (...) {
    return toolResult(noReason, true);
  }
}

/// std::nullopt if no reply is due. Throws RPCError.
std::optional<JSON> dispatch(const RPCRequest& request, const std::vector<Tool>& tools, const std::string& name) {
  if (request.method == "initialize") return initializeResult(name, request.params);
  if (request.method == "ping") return JSON::Object();
  if (request.method == "tools/list") return toolList(tools);
  if (request.method == "tools/call") return callResult(tools, request.params);
  if (!request.id) return std::nullopt;
  throw RPCError::methodNotFound(request.method);
}

JSON resultEnvelope(JSON result, const std::optional<JSON>& id) {
  return JSON::Object{{"jsonrpc", "2.0"}, {"id", id.value_or(nullptr)}, {"result", std::move(result)}};
}

JSON errorEnvelope(const RPCError& error, const std::optional<JSON>& id) {
  return JSON::Object{{"jsonrpc", "2.0"},
                      {"id", id.value_or(nullptr)},
                      {"error", JSON::Object{{"code", error.code()}, {"message", error.message()}}}};
}

}  // namespace

std::optional<std::string> Server::handle(std::string_view line) const {
  const std::optional<JSON> message = JSON::decoded(line);
  if (!message) return errorEnvelope(RPCError::parse(), std::nullopt).encoded();
  const std::optional<RPCRequest> request = parsedRequest(*message);
  if (!request) return errorEnvelope(RPCError::invalidRequest(), idOf(*message)).encoded();
  try {
    std::optional<JSON> result = dispatch(*request, tools_, name_);
    if (!result) return std::nullopt;
    return resultEnvelope(*std::move(result), request->id).encoded();
  } catch (const RPCError& error) {
    return errorEnvelope(error, request->id).encoded();
  } catch (const std::bad_alloc&) {
    return errorEnvelope(RPCError::invalidParams(std::string(noMemory)), request->id).encoded();
  } catch (const std::exception& error) {
    return errorEnvelope(RPCError::invalidParams(std::string(reason(error))), request->id).encoded();
  }
}

}  // namespace kelvane
