#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "protocol/JSON.h"

namespace kelvane {

/// An operation offered to an MCP client: what it is called, what the client's model reads about it, the JSON Schema of
/// its arguments, and what it does. Immutable; nothing is checked when one is made.
class Tool {
 public:
  /// Answers with the text of the result. A failure is thrown; its message becomes the text of a failed result. It may
  /// be called from several threads at once, so what it shares must stand that.
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

/// The input schema {"properties": …, "required": …, "type": "object"}. The required names stay in their order and are
/// not checked against the properties. A property named twice stops the process: it is a defect of the tool table.
JSON schema(std::initializer_list<Property> properties, std::initializer_list<std::string_view> required);

/// The text under the key, as it stands. Throws RPCError::invalidParams, "Missing \"<key>\"", when there is none, when
/// it is no text, or when it is empty. The view lives as long as the arguments.
std::string_view requiredString(std::string_view key, const JSON::Object& arguments);
std::string_view requiredString(std::string_view key, JSON::Object&& arguments) = delete;

/// The result of "tools/call": {"content": [{"text": text, "type": "text"}], "isError": isError}.
JSON toolResult(std::string_view text, bool isError);

}  // namespace kelvane
