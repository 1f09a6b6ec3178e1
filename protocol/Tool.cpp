#include "protocol/Tool.h"

#include <vector>

#include "platform/FatalError.h"
#include "protocol/RPCError.h"

namespace kelvane {

void ResultText::reserve(std::size_t size) {
  // An escaped text is a little longer. Room that is not used takes no memory of the machine.
  if (form_ == Form::escaped) size += size / 4;
  out_.reserve(out_.size() + size);
}

// A long text is not copied each time that it has doubled. Room that is not used takes no memory of the machine.
void ResultText::makeRoom(std::size_t size) {
  constexpr std::size_t smallSize = std::size_t{512} << 10;
  constexpr std::size_t largeSize = std::size_t{16} << 20;
  const std::size_t withSomeEscapes = size + size / 8 + 128;
  if (out_.capacity() - out_.size() >= withSomeEscapes) return;
  if (out_.capacity() >= smallSize && out_.capacity() < largeSize) out_.reserve(largeSize);
}

void ResultText::append(const Markup& piece) {
  const std::string_view bytes = piece.in(form_);
  makeRoom(bytes.size());
  out_.append(bytes);
}

void ResultText::appendString(std::string_view string) {
  makeRoom(string.size());
  const std::size_t start = out_.size();
  JSON::appendEscaped(string, out_);
  // A string without escapes has none for its escapes to be escaped.
  if (form_ == Form::plain || out_.size() - start == string.size()) return;
  const std::string escaped = out_.substr(start);
  out_.resize(start);
  append(escaped);
}

void ResultText::append(std::string_view piece) {
  makeRoom(piece.size());
  if (form_ == Form::escaped) {
    JSON::appendEscaped(piece, out_);
  } else {
    out_.append(piece);
  }
}

std::string Tool::run(const JSON::Object& arguments) const {
  if (!write_) return run_(arguments);
  std::string text;
  ResultText pieces(text, ResultText::Form::plain);
  write_(arguments, pieces);
  return text;
}

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
