#include "protocol/Tool.h"

#include <vector>

#include "platform/FatalError.h"
#include "protocol/RPCError.h"

namespace kelvane {

// The keys of these objects are not in the order that is written: an object sorts its members.
JSON schema(std::initializer_list<Property> properties, std::initializer_list<std::string_view> required) {
  JSON::Object described;
  for (const auto& [name, description] : properties) {
    if (described.find(name)) fatalError(std::string("Duplicate values for key: '").append(name).append("'"));
    described.set(name, JSON::Object{{"type", "string"}, {"description", description}});
  }
  JSON::Array names;
  for (const std::string_view name : required) names.append(name);
  return JSON::Object{{"type", "object"}, {"properties", described}, {"required", names}};
}

std::string_view requiredString(std::string_view key, const JSON::Object& arguments) {
  if (const JSON* value = arguments.find(key)) {
    if (const auto text = value->string(); text && !text->empty()) return *text;
  }
  throw RPCError::invalidParams(std::string("Missing \"").append(key).append("\""));
}

JSON toolResult(std::string_view text, bool isError) {
  return JSON::Object{{"content", JSON::Array{JSON::Object{{"type", "text"}, {"text", text}}}}, {"isError", isError}};
}

}  // namespace kelvane
