#include "platform/json/JSONDocument.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/Unicode.h"
#include "platform/json/JSONGrammar.h"

// A document keeps only its JSON and where its root is. Each question reads the part of it that it is about with
// the grammar, whose sinks here note offsets instead of building values. So there is no tree that a change could leave
// out of step with it, and changing a member is replacing one range of bytes (JSONDocumentEditing.cpp).
namespace kelvane {
namespace {

using Kind = JSONDocument::Kind;
using Value = JSONDocument::Value;

/// The sink that notes where a value is and, if it is an object, where its members are. It permits all of JSON. Offsets
/// count from `json`, which may start before the part that is read.
class Outline {
 public:
  explicit Outline(const char* json) noexcept : json_(json) {}

  Value root{};
  std::vector<JSONDocument::Member> members;
  std::string rootString;  // what the root says if it is a string

  std::size_t open(bool, const char* at) noexcept {
    ++depth_;
    return offset(at);
  }

  void close(bool isObject, std::size_t begin, const char* end) noexcept {
    --depth_;
    note({isObject ? Kind::object : Kind::array, begin, offset(end)});
  }

  void string(std::string_view string, const JSONString& found) {
    if (depth_ == 0) rootString = string;
    if (!found.isKey) return note(Kind::string, found.written);
    if (depth_ == 1) members.push_back({std::string(string), offset(found.written.data()), {}});
  }

  bool number(const jsonscanner::Number&, std::string_view written) noexcept {
    note(Kind::number, written);
    return true;
  }

  void boolean(bool, std::string_view written) noexcept { note(Kind::boolean, written); }
  void null(std::string_view written) noexcept { note(Kind::null, written); }

  char* room(std::size_t bytes) {
    room_.resize(bytes);
    return room_.data();
  }

  static bool loneSurrogate(const char*) noexcept { return true; }

 protected:
  std::size_t offset(const char* at) const noexcept { return static_cast<std::size_t>(at - json_); }

 private:
  void note(Kind kind, std::string_view written) noexcept {
    note({kind, offset(written.data()), offset(written.data() + written.size())});
  }

  void note(const Value& value) noexcept {
    if (depth_ == 0) root = value;
    if (depth_ == 1 && !members.empty()) members.back().value = value;
  }

  const char* json_;
  std::size_t depth_ = 0;
  std::string room_;
};

/// The sink that replaces what JSON permits and no JSON value can hold, in a copy of the document that is read. Each
/// replacement has the size of what it replaces, so offsets stay the same.
class StandIns : public Outline {
 public:
  explicit StandIns(std::string& copy, const char* json) noexcept : Outline(json), copy_(copy) {}

  bool number(const jsonscanner::Number& number, std::string_view written) noexcept {
    constexpr std::string_view mantissa = "1e";
    constexpr std::string_view exponent = "308";
    if (!std::isinf(jsonscanner::doubleValue(number, written.data()))) return true;
    // Even the shortest number that is too large, such as 2e308, has room for 1e308. Zeros fill what is left.
    const std::size_t sign = number.isNegative ? 1 : 0;
    char* const digits = copy_.data() + offset(written.data()) + sign;
    const std::size_t size = written.size() - sign;
    std::memset(digits, '0', size);
    std::memcpy(digits, mantissa.data(), mantissa.size());
    std::memcpy(digits + size - exponent.size(), exponent.data(), exponent.size());
    return true;
  }

  bool loneSurrogate(const char* escape) noexcept {
    constexpr std::string_view replacement = "\\ufffd";
    std::copy(replacement.begin(), replacement.end(), copy_.data() + offset(escape));
    return true;
  }

 private:
  std::string& copy_;
};

/// The outline of a value that is known to be JSON.
Outline outline(const std::string& json, const Value& value) {
  Outline outline(json.data());
  JSONGrammar<Outline>(std::string_view(json).substr(value.begin, value.end - value.begin), outline).read();
  return outline;
}

}  // namespace

std::optional<JSONDocument> JSONDocument::read(std::string json) {
  Outline outline(json.data());
  if (!JSONGrammar<Outline>(json, outline).read()) return std::nullopt;
  return JSONDocument(std::move(json), outline.root);
}

std::optional<std::size_t> JSONDocument::fault(std::string_view json) {
  Outline outline(json.data());
  JSONGrammar<Outline> grammar(json, outline);
  return grammar.read() ? std::nullopt : std::optional(static_cast<std::size_t>(grammar.at() - json.data()));
}

std::string JSONDocument::decodable() const {
  std::string copy = json_;
  StandIns standIns(copy, json_.data());
  JSONGrammar<StandIns>(json_, standIns).read();
  return copy;
}

std::string JSONDocument::string(const Value& value) const {
  return outline(json_, value).rootString;
}

std::vector<JSONDocument::Member> JSONDocument::members(const Value& object) const {
  return outline(json_, object).members;
}

std::optional<JSONDocument::Value> JSONDocument::find(Path path) const {
  return find(root_, path.begin(), path.end());
}

std::optional<JSONDocument::Value> JSONDocument::find(const Value& at, const std::string_view* key,
                                                      const std::string_view* end) const {
  std::optional<Value> value = at;
  for (; key != end && value; ++key) {
    const auto members = value->kind == Kind::object ? this->members(*value) : std::vector<Member>();
    value.reset();
    for (const Member& member : members) {
      if (unicode::equivalent(member.key, *key)) value = member.value;
    }
  }
  return value;
}

std::string quotedJSON(std::string_view string) {
  constexpr char digits[] = "0123456789abcdef";
  std::string quoted = "\"";
  for (const char byte : string) {
    if (byte == '"' || byte == '\\') {
      quoted.append({'\\', byte});
    } else if (static_cast<unsigned char>(byte) < ' ') {
      quoted.append({'\\', 'u', '0', '0', digits[byte >> 4], digits[byte & 0xF]});
    } else {
      quoted += byte;
    }
  }
  return quoted += '"';
}

}  // namespace kelvane
