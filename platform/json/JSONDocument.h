#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

/// A JSON document that a person may have written. A member can be changed, and every other byte stays: the order, the
/// layout, how numbers are written, a byte-order mark, the line ends.
///
///     auto settings = JSONDocument::read("{ \"a\": 1.50 }");   // optional: empty if it is not JSON
///     settings->set({"b", "c"}, quotedJSON("new"));
///     settings->json();                                        // { "a": 1.50, "b": {"c": "new"} }
///
/// Grammar. A document is JSON if RFC 8259 says so. `JSON::decoded` refuses two such documents, because no JSON value
/// can hold them: a lone surrogate escape, such as "\ud800", and a number too large for a double. Both are allowed
/// here; a lone surrogate reads as U+FFFD. Keys are equal if they are canonically equivalent, and the last of equal
/// keys counts, as in `JSON::decoded`.
///
/// Cost. Nothing recurses. Every operation takes time and memory linear in the document, times the keys of a path where
/// there is one. Only the JSON is stored, so each operation reads what it needs again.
///
/// Failure. Only std::bad_alloc is thrown. If `set` throws, the document may be changed in part.
///
/// Sharing. The document owns its JSON. Several threads may read one document at once; a change needs it alone.
class JSONDocument {
 public:
  enum class Kind : std::uint8_t { null, boolean, number, string, array, object };

  /// A value of the document and its bytes [begin, end). Valid until the document is changed.
  struct Value {
    Kind kind;
    std::size_t begin;
    std::size_t end;
  };

  struct Member {
    std::string key;    ///< What it says, its escapes replaced.
    std::size_t begin;  ///< Where its key starts, the quote included.
    Value value;
  };

  /// A path of keys, from the root inwards.
  using Path = std::initializer_list<std::string_view>;

  /// Takes the JSON over. Empty if it is not JSON; `fault` says where.
  static std::optional<JSONDocument> read(std::string json);

  /// Where a document stops being JSON: the offset of the byte, string, number or word that is not permitted there, or
  /// the document's size if it ends too early. Empty if it is JSON.
  static std::optional<std::size_t> fault(std::string_view json);

  const std::string& json() const noexcept { return json_; }

  /// A copy of the document that `JSON::decoded` accepts. Each lone surrogate is replaced by the escape of U+FFFD, and
  /// each number too large for a double by 1e308 or -1e308. Everything keeps its offset and its size.
  std::string decodable() const;

  const Value& root() const noexcept { return root_; }

  /// A value as it is written.
  std::string_view written(const Value& value) const noexcept {
    return std::string_view(json_).substr(value.begin, value.end - value.begin);
  }

  /// What a string says, its escapes replaced. `value` must be a string.
  std::string string(const Value& value) const;

  /// The members of an object in the order of the document, including those with equal keys. `object` must be an
  /// object.
  std::vector<Member> members(const Value& object) const;

  /// The value at the path. Empty if a key is missing, or if a value on the path is not an object.
  std::optional<Value> find(Path path) const;

  /// Writes a value at the path. `json` is the value as JSON on one line; it is not checked. An existing member keeps
  /// its position. A new member comes last in its object and is laid out like its neighbours. Missing objects on the
  /// path are created; anything else on it is replaced by an object.
  void set(Path path, std::string_view json);

  /// Removes the member at the path, and all others of its object with the same key. False if there is none; then the
  /// document is unchanged. The path must have a key.
  bool erase(Path path);

 private:
  struct Layout;

  JSONDocument(std::string json, Value root) : json_(std::move(json)), root_(root) {}

  std::optional<Value> find(const Value& at, const std::string_view* key, const std::string_view* end) const;
  Value replace(const Value& value, std::string_view json);
  Value append(const Value& object, std::string_view key, std::string_view json);
  Layout layout(const Value& object, const std::vector<Member>& members) const;
  void splice(std::size_t begin, std::size_t end, std::string_view bytes);

  std::string json_;
  Value root_;
};

/// A string as it is written in JSON, in quotes. `string` must be UTF-8; only quotes, backslashes and control
/// characters are escaped.
std::string quotedJSON(std::string_view string);

}  // namespace kelvane
