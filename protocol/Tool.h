#pragma once

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "protocol/JSON.h"

namespace kelvane {

/// Where a tool writes the text of its result piece by piece, so that a long text is not put together first.
///
///     text.append("[");
///     for (const Item& item : items) text.append(item.name);
///
/// Used by one thread during one call of the tool. Its operations throw only std::bad_alloc.
class ResultText {
 public:
  /// How the pieces are appended to the string: as they are, or with the escapes of a JSON string.
  enum class Form { plain, escaped };

  /// A short piece of JSON text that is known when the program is compiled. Its escapes are made then.
  ///
  ///     static constexpr ResultText::Markup id(R"({"id":")");
  class Markup {
   public:
    template <std::size_t size>
    explicit constexpr Markup(const char (&text)[size]) : plain_(text, size - 1) {
      static_assert(size <= longest);
      for (const char c : plain_) {
        if (c == '"' || c == '\\') escaped_[escapedSize_++] = '\\';
        escaped_[escapedSize_++] = c;
      }
    }

    constexpr std::string_view in(Form form) const noexcept {
      return form == Form::plain ? plain_ : std::string_view(escaped_, escapedSize_);
    }

   private:
    static constexpr std::size_t longest = 40;

    std::string_view plain_;
    char escaped_[2 * longest] = {};
    std::size_t escapedSize_ = 0;
  };

  /// `out` must outlive the object and is changed by nothing else meanwhile.
  ResultText(std::string& out, Form form) noexcept : out_(out), form_(form) {}

  /// Makes room for a text of about that many bytes. Never needed, but faster for a long text than growing.
  void reserve(std::size_t size);

  /// Appends a piece. A character's bytes must be in one piece. Linear in the piece.
  void append(std::string_view piece);
  void append(const Markup& piece);

  /// Appends what is between the quotes in the JSON text of a string, where the text is JSON. Linear in the string.
  void appendString(std::string_view string);

 private:
  void makeRoom(std::size_t size);

  std::string& out_;
  Form form_;
};

/// An operation offered to an MCP client: its name, the description that the client's model reads, the JSON Schema of
/// its arguments, and the function that runs it. Immutable. The constructors check nothing.
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

  /// The same for a long text: writes it instead of returning it. What was written before a failure is dropped.
  using Write = std::function<void(const JSON::Object& arguments, ResultText& text)>;

  Tool(std::string name, std::string description, JSON schema, Run run)
      : name_(std::move(name)),
        description_(std::move(description)),
        schema_(std::move(schema)),
        run_(std::move(run)) {}
  Tool(std::string name, std::string description, JSON schema, Write write)
      : name_(std::move(name)),
        description_(std::move(description)),
        schema_(std::move(schema)),
        write_(std::move(write)) {}

  const std::string& name() const noexcept { return name_; }
  const std::string& description() const noexcept { return description_; }
  const JSON& schema() const noexcept { return schema_; }
  /// The text of the result, however the tool makes it.
  std::string run(const JSON::Object& arguments) const;

  /// The function that writes the text; nullptr if the tool returns it.
  const Write* writer() const noexcept { return write_ ? &write_ : nullptr; }

 private:
  std::string name_;
  std::string description_;
  JSON schema_;
  Run run_;      // either this
  Write write_;  // or this
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
