#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace kelvane {

/// Thrown by `JSON::from` (protocol/JSONCoding.h) if a decoder holds no value of a kind that JSON has.
class JSONDecodingError : public std::exception {
 public:
  const char* what() const noexcept override { return "Unrecognised JSON"; }
};

/// A JSON value (RFC 8259): null, a Bool, a number (an IEEE double), a string, an array or an object.
///
///     const auto request = JSON::decoded(R"({"id": 7, "method": "ping"})");   // optional: empty if it is not JSON
///     if (const JSON* id = (*request)["id"]) reply = JSON::Object{{"id", *id}, {"result", JSON::Object{}}};
///     reply.encoded();                                                        // {"id":7,"result":{}}
///
/// Cost. A value is 16 bytes. Null, Bools, numbers and strings of up to 14 bytes are stored in it. Anything longer is
/// storage that copies share and that a change copies first (copy-on-write), so copying takes constant time and never
/// allocates. Nothing recurses, however deep a value nests. Destroying a value allocates nothing.
///
/// Failure. Only std::bad_alloc is thrown, and only by what is not `noexcept`; `from` and `encode` throw more.
///
/// Threads. Different values may be used from different threads, even if they share storage. One value may be read by
/// several threads at once, like a standard container.
///
/// Memory. The memory of a decoded document is released as a whole, when the last value taken out of that document is
/// destroyed. So a small value copied out of a large document keeps all of it.
///
/// Lifetime. A view or a pointer from an accessor is valid until the value it came from is assigned, moved from or
/// destroyed. On a temporary such an accessor does not compile. A value that was moved from is null.
///
/// Braces. Around one value of the same type they copy it: `Array{items}` is `items`, `Object{members}` is `members`,
/// `JSON{value}` is `value`, whatever the compiler. An array of one array is `Array{JSON(items)}`.
///
/// Strings. A string holds UTF-8. Other bytes are kept, and are written as U+FFFD. Two strings are equal if they are
/// canonically equivalent, and so are two keys.
class JSON {
  struct Block;
  class Storage;

 public:
  enum class Kind : std::uint8_t { null, boolean, number, string, array, object };

  class Member;

  /// A sequence of values. Copies share storage; `append` copies shared storage first.
  ///
  ///     JSON::Array items{1, "two", nullptr};
  ///     items.append(true);
  ///     for (const JSON& item : items) …
  class Array {
    class Element;

   public:
    /// Empty. Allocates nothing, like moving.
    Array() noexcept = default;
    /// The values in braces, each of whatever a JSON is made from. One Array alone is copied.
    Array(std::initializer_list<Element> values);
    template <std::same_as<std::initializer_list<JSON>> List>
    Array(List values) : Array(std::vector<JSON>(values)) {}
    /// The values are moved out of the vector. Takes linear time.
    explicit Array(std::vector<JSON> values);
    Array(const Array& other) noexcept;
    Array(Array&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
    Array& operator=(const Array& other) noexcept;
    Array& operator=(Array&& other) noexcept;
    ~Array();

    std::size_t size() const noexcept;
    bool empty() const noexcept { return size() == 0; }

    /// Pointers to contiguous values: to the first and past the last.
    const JSON* begin() const& noexcept;
    const JSON* begin() const&& = delete;
    const JSON* end() const& noexcept;
    const JSON* end() const&& = delete;

    /// `index` must be less than `size()`.
    const JSON& operator[](std::size_t index) const& noexcept { return begin()[index]; }
    const JSON& operator[](std::size_t index) const&& = delete;

    /// Takes amortised constant time, or linear if the storage is shared. Pointers into the array become invalid.
    void append(JSON value);

   private:
    friend class JSON;
    friend class Storage;
    explicit Array(Block* block) noexcept : block_(block) {}
    Block* block_ = nullptr;
  };

  /// Values under keys, each key once, in the order of the keys' canonical form (for ASCII: of their bytes). Copies
  /// share storage; `set` and `erase` copy shared storage first.
  ///
  ///     JSON::Object person{{"name", "Ada"}, {"born", 1815}};
  ///     person.set("born", nullptr);
  ///     if (const JSON* name = person.find("name")) …
  class Object {
   public:
    /// Empty. Allocates nothing, like moving.
    Object() noexcept = default;

    /// The members in braces, or in a vector out of which the values are moved. If keys are equal, the last of their
    /// members stays. The list is for a few members: it takes quadratic time; the vector is sorted first.
    Object(std::initializer_list<std::pair<std::string_view, JSON>> members);
    explicit Object(std::vector<std::pair<std::string, JSON>> members);
    Object(const Object& other) noexcept;
    Object(Object&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
    Object& operator=(const Object& other) noexcept;
    Object& operator=(Object&& other) noexcept;
    ~Object();

    std::size_t size() const noexcept;
    bool empty() const noexcept { return size() == 0; }

    /// Pointers to contiguous members in key order: to the first and past the last.
    const Member* begin() const& noexcept;
    const Member* begin() const&& = delete;
    const Member* end() const& noexcept;
    const Member* end() const&& = delete;

    /// The value under the key, or nullptr. Takes time logarithmic in the number of members, and never allocates.
    const JSON* find(std::string_view key) const& noexcept;
    const JSON* find(std::string_view key) const&& = delete;

    /// Puts the value under the key, and replaces the one that was there. Takes time linear in the number of members.
    /// If it throws, nothing is changed. Pointers into the object become invalid, here and in `erase`.
    void set(std::string_view key, JSON value);

    /// Removes the member. False if there was none; then nothing is allocated. Takes time linear in the number of
    /// members.
    bool erase(std::string_view key);

   private:
    friend class JSON;
    friend class Storage;
    explicit Object(Block* block) noexcept : block_(block) {}
    Block* block_ = nullptr;
  };

  /// A value is made from null, a Bool (and nothing that only converts to one), any number, a string, an Array or an
  /// Object, without an explicit conversion. A number becomes the nearest double, so integers beyond 2^53 may be
  /// rounded. A string's bytes are copied; they need not be UTF-8.
  JSON() noexcept : JSON(nullptr) {}
  JSON(std::nullptr_t) noexcept;
  JSON(std::same_as<bool> auto value) noexcept : JSON(FromBoolean{value}) {}
  template <class Number>
  requires((std::integral<Number> && !std::same_as<Number, bool>) || std::floating_point<Number>) JSON(Number value)
  noexcept : JSON(FromNumber{static_cast<double>(value)}) {}
  JSON(std::string_view string);
  JSON(const std::string& string) : JSON(std::string_view(string)) {}
  JSON(const char* string) : JSON(std::string_view(string)) {}
  JSON(Array items) noexcept;
  JSON(Object members) noexcept;
  /// Pointers other than `const char*` would be taken for Bools elsewhere; here they do not compile.
  JSON(const void*) = delete;

  JSON(const JSON& other) noexcept;
  JSON(JSON&& other) noexcept;
  JSON& operator=(const JSON& other) noexcept;
  JSON& operator=(JSON&& other) noexcept;
  ~JSON();

  /// The value of a JSON document. Empty if it is not JSON to the letter of RFC 8259.
  ///
  /// What the RFC leaves open: one byte-order mark at the start is skipped; a number too small for a double is zero;
  /// the last of equal keys counts; nesting has no limit; any value may stand at the top. A number too large for a
  /// double, bytes that are not UTF-8 and escapes of lone surrogates are refused.
  ///
  /// The value does not refer to `json`. Takes time linear in the document, besides sorting the members of each object.
  static std::optional<JSON> decoded(std::string_view json);

  /// The value as JSON: no white space, members in key order, slashes and non-ASCII characters unescaped. A number
  /// that is integral and below 9e15 is written as an integer (-0.0 as 0), any other in the fewest digits that read
  /// back to it. A value that holds a NaN or an infinity anywhere is "null" as a whole.
  std::string encoded() const;

  /// Appends the same to `out`. False, with `out` as before, if the value holds a NaN or an infinity anywhere. If
  /// it throws, a part of it may have been appended.
  bool appendEncoded(std::string& out) const;

  /// Appends what is between the quotes where a string is written in JSON, without making a value of the string.
  static void appendEscaped(std::string_view string, std::string& out);

  Kind kind() const noexcept;

  /// The content of a value of one kind. They take constant time. `string` refers to the value's own bytes, which are
  /// not terminated by a NUL and may contain one.
  ///
  /// For a value of another kind the accessors return an empty optional or nullptr; none converts. To read a Bool,
  /// compare with `JSON(true)`.
  std::optional<std::string_view> string() const& noexcept;
  std::optional<std::string_view> string() const&& = delete;
  std::optional<double> number() const noexcept;
  const Array* items() const& noexcept;
  const Array* items() const&& = delete;
  const Object* object() const& noexcept;
  const Object* object() const&& = delete;
  /// The value under the key; nullptr if there is none or if this is not an object.
  const JSON* operator[](std::string_view key) const& noexcept;
  const JSON* operator[](std::string_view key) const&& = delete;

  /// Equal in kind and content: numbers by IEEE rules (a NaN is not equal to itself), strings by canonical equivalence,
  /// members in any order. Two arrays that share storage are equal without a look at their values. Takes linear time.
  friend bool operator==(const JSON& left, const JSON& right) { return left.equals(right); }

  /// Reads a value from a single-value decoder, and writes it to a single-value encoder; see protocol/JSONCoding.h.
  template <class Decoder>
  static JSON from(Decoder& decoder);
  template <class Encoder>
  void encode(Encoder& encoder) const;

 private:
  friend class Storage;

  struct FromBoolean {
    bool value;
  };
  struct FromNumber {
    double value;
  };
  explicit JSON(FromBoolean) noexcept;
  explicit JSON(FromNumber) noexcept;

  bool equals(const JSON& other) const;

  /// Takes over one reference to the block, which may be null for an empty array or object.
  JSON(std::uint8_t tag, Block* block) noexcept;

  static constexpr std::size_t inlineCapacity = 14;

  // Every alternative starts with the same two bytes, so that they can be read whichever is there.
  struct Head {
    std::uint8_t tag;     // the kind, where a string is kept, and what is known of it
    std::uint8_t length;  // of a string kept inline
  };
  struct Boolean {
    Head head;
    bool value;
  };
  struct Number {
    Head head;
    double value;
  };
  struct InlineString {
    Head head;
    char bytes[inlineCapacity];
  };
  struct SharedString {
    Head head;
    Block* block;
  };
  struct Items {
    Head head;
    Array array;
  };
  struct Members {
    Head head;
    Object object;
  };
  union {
    Head head_;
    Boolean boolean_;
    Number number_;
    InlineString inlineString_;
    SharedString sharedString_;
    Items items_;
    Members members_;
  };
};

/// A key and its value.
class JSON::Member {
 public:
  std::string_view key() const& noexcept { return *key_.string(); }
  std::string_view key() const&& = delete;
  const JSON& value() const& noexcept { return value_; }
  const JSON& value() const&& = delete;

 private:
  friend class JSON::Storage;
  JSON key_;
  JSON value_;
};

/// What stands between the braces of an Array. It remembers what it was made from: by the standard, braces around one
/// Array are a list of one value; some compilers copy it instead, before the class is asked. So all do.
class JSON::Array::Element {
 public:
  Element() noexcept = default;
  template <std::convertible_to<JSON> Value>
  Element(Value value) : value_(std::move(value)), isArray_(std::same_as<Value, Array>) {}

 private:
  friend class Array;
  JSON value_;
  bool isArray_ = false;
};

static_assert(sizeof(JSON) == 16);
static_assert(std::is_nothrow_copy_constructible_v<JSON> && std::is_nothrow_copy_assignable_v<JSON>);
static_assert(std::is_nothrow_move_constructible_v<JSON> && std::is_nothrow_move_assignable_v<JSON>);

}  // namespace kelvane
