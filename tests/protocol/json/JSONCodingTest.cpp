#include "protocol/JSONCoding.h"

#include <gtest/gtest.h>

#include <limits>
#include <new>
#include <stdexcept>
#include <variant>
#include "tests/support/RowName.h"

namespace kelvane {
namespace {

using tests::RowName;

/// A single-value decoder that holds what a test gives it and records which operations are called.
struct Holder {
  bool isNil = false;
  std::optional<bool> boolean = {};
  std::optional<double> number = {};
  std::optional<std::string> string = {};
  std::optional<std::vector<Holder>> items = {};
  std::optional<std::vector<std::pair<std::string, Holder>>> members = {};
  std::string asked = {};
  char outOfMemoryAt = '\0';

  template <class Value>
  const Value& answer(const char* question, const std::optional<Value>& value) {
    asked += question;
    if (*question == outOfMemoryAt) throw std::bad_alloc();
    if (!value) throw std::runtime_error("another kind");
    return *value;
  }
  bool decodeNil() {
    asked += "n";
    return isNil;
  }
  bool decodeBool() { return answer("b", boolean); }
  double decodeDouble() { return answer("d", number); }
  std::string decodeString() { return answer("s", string); }
  JSON::Array decodeArray() {
    JSON::Array array;
    for (Holder item : answer("a", items)) array.append(JSON::from(item));
    return array;
  }
  JSON::Object decodeObject() {
    JSON::Object object;
    for (auto [key, value] : answer("o", members)) object.set(key, JSON::from(value));
    return object;
  }
};

Holder nil() {
  return {.isNil = true};
}
Holder number(double value) {
  return {.number = value};
}

struct Attempt {
  const char* about;
  Holder holder;
  std::optional<JSON> value;  // nothing: it is not recognised
  const char* asked;

  friend void PrintTo(const Attempt& row, std::ostream* out) { *out << row.about; }
};

class FromDecoder : public testing::TestWithParam<Attempt> {};

TEST_P(FromDecoder, triesTheKindsInOrderAndTakesTheFirst) {
  Holder holder = GetParam().holder;
  try {
    const JSON value = JSON::from(holder);
    ASSERT_TRUE(GetParam().value) << GetParam().about;
    EXPECT_EQ(value, *GetParam().value) << GetParam().about;
  } catch (const JSONDecodingError& error) {
    EXPECT_FALSE(GetParam().value) << GetParam().about;
    EXPECT_STREQ(error.what(), "Unrecognised JSON");
  }
  EXPECT_EQ(holder.asked, GetParam().asked) << GetParam().about;
}

INSTANTIATE_TEST_SUITE_P(
    JSON, FromDecoder,
    testing::Values(
        Attempt{"null comes first", {.isNil = true, .boolean = true}, nullptr, "n"},
        Attempt{"a Bool", {.boolean = false}, false, "nb"},
        Attempt{"a decoder that takes numbers for Bools gives Bools", {.boolean = true, .number = 1}, true, "nb"},
        Attempt{"a number", number(2), 2, "nbd"},
        Attempt{"a number before a string", {.number = 2, .string = "2"}, 2, "nbd"},
        Attempt{"a string", {.string = "x"}, "x", "nbds"},
        Attempt{"an array", {.items = std::vector{number(1), nil()}}, JSON::Array{1, nullptr}, "nbdsa"},
        Attempt{"an array before an object",
                {.items = std::vector<Holder>(), .members = {{{"a", nil()}}}},
                JSON::Array(),
                "nbdsa"},
        Attempt{"an object", {.members = {{{"a", number(1)}}}}, JSON::Object{{"a", 1}}, "nbdsao"},
        Attempt{"nothing that JSON knows", {}, {}, "nbdsao"},
        Attempt{"an array of what JSON does not know", {.items = std::vector{Holder()}}, {}, "nbdsao"}),
    RowName());

TEST(JSONCoding, throwsForALackOfMemoryInsteadOfTryingTheNextKind) {
  for (const char at : {'b', 'd', 's', 'a', 'o'}) {
    Holder holder;
    holder.outOfMemoryAt = at;
    EXPECT_THROW(JSON::from(holder), std::bad_alloc) << at;
    EXPECT_EQ(holder.asked.back(), at) << "nothing else is tried";
  }
  Holder item;
  item.outOfMemoryAt = 'd';
  Holder outer{.items = std::vector{number(1), item}, .members = {{{"a", nil()}}}};
  EXPECT_THROW(JSON::from(outer), std::bad_alloc) << "within an array";
}

/// A single-value encoder that records which operations are called.
struct Notes {
  std::string out;
  void encodeNil() { out += "nil "; }
  void encodeBool(bool value) { out += value ? "true " : "false "; }
  void encodeInteger(std::int64_t value) { out += "integer:" + std::to_string(value) + " "; }
  void encodeDouble(double value) { out += "double:" + std::to_string(value) + " "; }
  void encodeString(std::string_view value) { out.append("string:").append(value).append(" "); }
  void encodeArray(const JSON::Array& items) {
    out += "[ ";
    for (const JSON& item : items) item.encode(*this);
    out += "] ";
  }
  void encodeObject(const JSON::Object& members) {
    out += "{ ";
    for (const JSON::Member& member : members) {
      out.append(member.key()).append("=");
      member.value().encode(*this);
    }
    out += "} ";
  }
};

TEST(JSONCoding, writesEachKindAsItself) {
  Notes notes;
  JSON(JSON::Array{nullptr, true, false, "x", 1.5, JSON::Object{{"b", 3.0}, {"a", JSON::Array()}}}).encode(notes);
  EXPECT_EQ(notes.out, "[ nil true false string:x double:1.500000 { a=[ ] b=integer:3 } ] ");
}

/// A single-value encoder whose operations return [[nodiscard]] values and take their arguments as temporaries.
struct Chain {
  std::string out = {};
  [[nodiscard]] Chain& encodeNil() { return put("nil"); }
  [[nodiscard]] bool encodeBool(bool&& value) { return put(value ? "true" : "false").out.empty(); }
  [[nodiscard]] std::string encodeInteger(std::int64_t&& value) { return put(std::to_string(value)).out; }
  [[nodiscard]] int encodeDouble(double&& value) { return static_cast<int>(put(std::to_string(value)).out.size()); }
  [[nodiscard]] const char* encodeString(std::string_view&& value) { return put(value).out.c_str(); }
  [[nodiscard]] std::optional<Chain> encodeArray(JSON::Array items) {
    for (const JSON& item : items) item.encode(*this);
    return std::nullopt;
  }
  [[nodiscard]] const JSON* encodeObject(const JSON::Object& members) {
    for (const JSON::Member& member : members) member.value().encode(*this);
    return members.find("a");
  }

 private:
  Chain& put(std::string_view word) {
    out.append(word).append(" ");
    return *this;
  }
};
static_assert(SingleValueEncoder<Chain> && SingleValueEncoder<Notes>);

/// Its encodeString accepts no temporary, so it is not an encoder.
struct Deaf {
  void encodeNil();
  void encodeBool(bool);
  void encodeInteger(std::int64_t);
  void encodeDouble(double);
  void encodeString(std::string_view&);
  void encodeArray(const JSON::Array&);
  void encodeObject(const JSON::Object&);
};
static_assert(!SingleValueEncoder<Deaf> && !SingleValueEncoder<const Chain>);

TEST(JSONCoding, ignoresWhatAnEncoderReturns) {
  Chain chain;
  JSON(JSON::Array{nullptr, true, "x", 1.5, JSON::Object{{"b", 3.0}, {"a", JSON::Array()}}}).encode(chain);
  EXPECT_EQ(chain.out, "nil true x 1.500000 3 ");
}

struct IntegerRow {
  const char* about;
  double value;
  std::optional<std::int64_t> integer;

  friend void PrintTo(const IntegerRow& row, std::ostream* out) { *out << row.about; }
};

class Integers : public testing::TestWithParam<IntegerRow> {};

TEST_P(Integers, areIntegralNumbersBelowTheBound) {
  EXPECT_EQ(jsonInteger(GetParam().value), GetParam().integer);
}

constexpr double infinite = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

INSTANTIATE_TEST_SUITE_P(JSON, Integers,
                         testing::Values(IntegerRow{"zero", 0, 0}, IntegerRow{"negative zero", -0.0, 0},
                                         IntegerRow{"three", 3, 3}, IntegerRow{"a fraction", 3.5, {}},
                                         IntegerRow{"a negative fraction", -2.5, {}},
                                         IntegerRow{"the largest", 8999999999999999, 8999999999999999},
                                         IntegerRow{"the smallest", -8999999999999999, -8999999999999999},
                                         IntegerRow{"the upper bound", 9e15, {}},
                                         IntegerRow{"the lower bound", -9e15, {}}, IntegerRow{"far above", 1e300, {}},
                                         IntegerRow{"next to zero", 5e-324, {}}, IntegerRow{"infinity", infinite, {}},
                                         IntegerRow{"not a number", notANumber, {}}),
                         RowName());

}  // namespace
}  // namespace kelvane
