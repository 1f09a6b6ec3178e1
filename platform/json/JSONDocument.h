#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

/// A JSON text that a person may have written, and where things stand in it, so that a member can be changed and every
/// other byte stays: order, layout, how numbers are spelled, a byte-order mark, line ends.
///
/// A text is JSON by its grammar (RFC 8259). So two things are allowed here that `JSON::decoded` refuses, because no
/// value of ours can hold them: a lone surrogate escape, such as "\ud800", which says U+FFFD, and a number too large
/// for a double. Which members have the same key (the last of them counts) is judged as `JSON::decoded` does.
///
/// Nothing recurses, and every operation takes time linear in the text.
class JSONDocument {
 public:
  enum class Kind : std::uint8_t { null, boolean, number, string, array, object };

  /// A value of the text and its bytes [begin, end). Good until the text is changed.
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

  /// Nothing when the text is not JSON.
  static std::optional<JSONDocument> read(std::string text);

  /// Where a text ceases to be JSON: the offset of the byte, text, number or word that cannot stand there, or the
  /// text's size where it ends too early. Nothing for JSON.
  static std::optional<std::size_t> fault(std::string_view text);

  const std::string& text() const noexcept { return text_; }

  /// The text as `JSON::decoded` takes it, in which everything has the same place and size: the escape of each lone
  /// surrogate is that of U+FFFD, and each number too large for a double is 1e308 or -1e308. The text itself where it
  /// has none of these.
  std::string decodable() const;

  const Value& root() const noexcept { return root_; }

  /// A value as it is written.
  std::string_view written(const Value& value) const noexcept {
    return std::string_view(text_).substr(value.begin, value.end - value.begin);
  }

  /// What a text in quotes says. `value` must be of that kind.
  std::string string(const Value& value) const;

  /// The members of an object in their order, those with the same key included. `object` must be of that kind.
  std::vector<Member> members(const Value& object) const;

  /// The value at the path; nothing where a key is missing or what should have it is no object.
  std::optional<Value> find(Path path) const;

  /// Puts a value, given as it is to be written on one line, at the path. A member that is there keeps its place, a new
  /// one comes last in its object and is laid out like its neighbours. What is missing on the way, or is no object, is
  /// made one.
  void set(Path path, std::string_view json);

  /// Takes the member at the path away, all that have its key; false when there is none.
  bool erase(Path path);

 private:
  struct Layout;

  JSONDocument(std::string text, Value root) : text_(std::move(text)), root_(root) {}

  std::optional<Value> find(const Value& at, const std::string_view* key, const std::string_view* end) const;
  Value replace(const Value& value, std::string_view json);
  Value append(const Value& object, std::string_view key, std::string_view json);
  Layout layout(const Value& object, const std::vector<Member>& members) const;
  void splice(std::size_t begin, std::size_t end, std::string_view bytes);

  std::string text_;
  Value root_;
};

/// The text in quotes that says `text`, which must be UTF-8.
std::string quotedJSON(std::string_view text);

}  // namespace kelvane
