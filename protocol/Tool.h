#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "protocol/JSON.h"

namespace kelvane {

/// An operation offered to an MCP client: its name, the description that the client's model reads, the JSON Schema of
/// its arguments, and the function that runs it. Immutable. The constructor checks nothing.
///
///     const Tool hello("hello", "Greets a person.", schema({{"name", "Whom to greet"}}, {"name"}),
///                      [](const JSON::Object& arguments) {
///                        return "Hello, " + std::string(requiredString("name", arguments));
///                      });
///
/// Copying copies the strings and the function. The accessors' references live as long as the tool.
class Tool {
 public:
  /// Returns the text of the result. A failure is thrown as a std::exception, whose message becomes the text of a
  /// failed result. The server calls it from every thread that it is called from, so shared state must be thread-safe.
  using Run = std::function<std::string(const JSON::Object& arguments)>;

  Tool(std::string name, std::string description, JSON schema, Run run)
      : name_(std::move(name)),
        description_(std::move(description)),
        schema_(std::move(schema)),
        run_(std::move(run)) {}

  const std::string& name() const noexcept { return name_; }
  const std::string& description() const noexcept { return description_; }
  const JSON& schema() const noexcept { return schema_; }
  std::string run(const JSON::Object& arguments) const { return run_(arguments); }

 private:
  std::string name_;
  std::string description_;
  JSON schema_;
  Run run_;
};

/// A property of an input schema: its name and its description. Its type is always "string".
using Property = std::pair<std::string_view, std::string_view>;

/// The input schema {"properties": …, "required": …, "type": "object"}. The required names keep their order and are not
/// checked against the properties. If a property is named twice, the process stops: the tool table has a mistake.
JSON schema(std::initializer_list<Property> properties, std::initializer_list<std::string_view> required);

/// The string under the key, unchanged. Throws RPCError::invalidParams, "Missing \"<key>\"", if there is none, if it is
/// not a string, or if it is empty. The view is valid as long as the arguments are.
std::string_view requiredString(std::string_view key, const JSON::Object& arguments);
std::string_view requiredString(std::string_view key, JSON::Object&& arguments) = delete;

/// The result of "tools/call": {"content": [{"text": text, "type": "text"}], "isError": isError}.
JSON toolResult(std::string_view text, bool isError);

}  // namespace kelvane
