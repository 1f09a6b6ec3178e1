#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>

#include "protocol/JSON.h"
#include "tests/support/Random.h"
#include "tests/support/RowName.h"

namespace kelvane {
namespace {

using tests::RowName;

using namespace std::string_view_literals;

struct Accepted {
  const char* about;
  std::string json;
  JSON value;

  friend void PrintTo(const Accepted& row, std::ostream* out) { *out << row.about; }
};

class AcceptedJSON : public testing::TestWithParam<Accepted> {};

TEST_P(AcceptedJSON, decodesToItsValue) {
  const auto value = JSON::decoded(GetParam().json);
  ASSERT_TRUE(value) << GetParam().about;
  EXPECT_EQ(*value, GetParam().value) << GetParam().about << ": " << value->encoded();
}

INSTANTIATE_TEST_SUITE_P(
    JSON, AcceptedJSON,
    testing::Values(
        Accepted{"null", "null", nullptr},                                                             //
        Accepted{"true is a Bool and no number", "true", true},                                        //
        Accepted{"false", "false", false},                                                             //
        Accepted{"an integer", "1", 1.0},                                                              //
        Accepted{"a negative zero", "-0", -0.0},                                                       //
        Accepted{"a fraction", "3.5", 3.5},                                                            //
        Accepted{"an exponent", "1E+2", 100},                                                          //
        Accepted{"the largest double", "1.7976931348623157e308", std::numeric_limits<double>::max()},  //
        Accepted{"the smallest double", "5e-324", std::numeric_limits<double>::denorm_min()},          //
        Accepted{"underflow is zero", "1e-400", 0},                                                    //
        Accepted{"underflow by a long fraction", "0." + std::string(400, '0') + "1", 0},
        Accepted{"underflow by a long fraction with an exponent above zero", "0." + std::string(400, '0') + "1e5", 0},
        Accepted{"underflow of many digits", "0." + std::string(350, '0') + std::string(400, '1') + "e20", 0},
        Accepted{"overflow undone by a long fraction", "0." + std::string(400, '0') + "1e402", 10},
        Accepted{"no underflow for many digits", std::string(400, '1') + "e-400", 0.1111111111111111},
        Accepted{"negative underflow is zero", "-1e-999999999999999999999", 0},                                       //
        Accepted{"zero with a huge exponent", "0e999999999999999999999", 0},                                          //
        Accepted{"zeros behind the point", "0.000e+400", 0},                                                          //
        Accepted{"a large mantissa with a small exponent", "1000000000000000000000000000000e-30", 1},                 //
        Accepted{"zeros before a small digit", "0.00000000000000000000000000000001e32", 1},                           //
        Accepted{"half way rounds to even", "9007199254740993", 9007199254740992.0},                                  //
        Accepted{"nineteen digits", "9999999999999999999", 1e19},                                                     //
        Accepted{"twenty digits", "18446744073709551616", 18446744073709551616.0},                                    //
        Accepted{"half way but for the last of many digits",                                                          //
                 "9007199254740993.0000000000000000000000000000000001", 9007199254740994.0},                          //
        Accepted{"an empty string", R"("")", ""},                                                                     //
        Accepted{"fourteen bytes", R"("12345678901234")", "12345678901234"},                                          //
        Accepted{"fifteen bytes", R"("123456789012345")", "123456789012345"},                                         //
        Accepted{"every escape", R"("\"\\\/\b\f\n\r\t\u0041")", "\"\\/\b\f\n\r\tA"},                                  //
        Accepted{"a NUL by escape", R"("a\u0000b")", "a\0b"sv},                                                       //
        Accepted{"hexadecimal digits of both cases", R"("\u00e9\u00E9")", "éé"},                                      //
        Accepted{"a surrogate pair by escapes", R"("\uD834\uDD1E")", "\U0001D11E"},                                   //
        Accepted{"the last scalar", R"("\uDBFF\uDFFF")", "\U0010FFFF"},                                               //
        Accepted{"the first pair", R"("\uD800\uDC00")", "\U00010000"},                                                //
        Accepted{"the scalars beside the surrogates", R"("\uD7FF\uE000")", "\uD7FF\uE000"},                           //
        Accepted{"a long string with an escape at its end", R"("0123456789012345678901234567890\n")",                 //
                 "0123456789012345678901234567890\n"},                                                                //
        Accepted{"many escapes in a short string", R"("\u0031\u0032\u0033\u0034\u0035\u0036\u0037\u0038")",           //
                 "12345678"},                                                                                         //
        Accepted{"a delete character bare", "\"\x7f\"", "\x7f"},                                                      //
        Accepted{"two, three and four bytes bare", "\"é€𝄞\"", "é€𝄞"},                                                 //
        Accepted{"a line separator bare", "\"\u2028\"", "\u2028"},                                                    //
        Accepted{"an empty array", "[]", JSON::Array()},                                                              //
        Accepted{"an empty object", "{}", JSON::Object()},                                                            //
        Accepted{"white space of every kind", " \t\r\n[ \t\r\n1 \t\r\n, \t\r\n2 \t\r\n] \t\r\n", JSON::Array{1, 2}},  //
        Accepted{"more than sixteen spaces", "[                  1,\n                    2]", JSON::Array{1, 2}},
        Accepted{"nested", R"({"a":[{"b":[null]}],"c":{}})",
                 JSON::Object{{"c", JSON::Object()}, {"a", JSON::Array{JSON::Object{{"b", JSON::Array{nullptr}}}}}}},
        Accepted{"of equal keys the last", R"({"a":1,"b":2,"a":3})", JSON::Object{{"a", 3}, {"b", 2}}},
        Accepted{"of equal keys the last, by escape", R"({"a":1,"\u0061":3})", JSON::Object{{"a", 3}}},
        Accepted{"of canonically equal keys the last", "{\"\u00e9\":1,\"e\u0301\":2}", JSON::Object{{"\u00e9", 2}}},
        Accepted{"a key that is canonically an ASCII one", "{\"K\":1,\"\u212a\":2}", JSON::Object{{"K", 2}}},
        Accepted{"an empty key", R"({"":0})", JSON::Object{{"", 0}}},
        Accepted{"a byte-order mark", "\xEF\xBB\xBF{}", JSON::Object()}),
    RowName());

struct Rejected {
  const char* about;
  std::string json;

  friend void PrintTo(const Rejected& row, std::ostream* out) { *out << row.about; }
};

class RejectedJSON : public testing::TestWithParam<Rejected> {};

TEST_P(RejectedJSON, isRefused) {
  const auto value = JSON::decoded(GetParam().json);
  EXPECT_FALSE(value) << GetParam().about << ": " << value->encoded();
}

INSTANTIATE_TEST_SUITE_P(
    JSON, RejectedJSON,
    testing::Values(
        Rejected{"nothing", ""}, Rejected{"spaces", "  "}, Rejected{"a lone opening brace", "{"},
        Rejected{"a lone opening bracket", "["}, Rejected{"a lone closing bracket", "]"},
        Rejected{"brackets that do not match", "[}"}, Rejected{"braces that do not match", "{]"},
        Rejected{"a trailing comma in an object", R"({"a":1,})"}, Rejected{"a trailing comma in an array", "[1,]"},
        Rejected{"a leading comma", "[,1]"}, Rejected{"two commas", "[1,,2]"}, Rejected{"no comma", "[1 2]"},
        Rejected{"no colon", R"({"a" 1})"}, Rejected{"no value", R"({"a":})"}, Rejected{"no key", "{:1}"},
        Rejected{"a key that is no json", "{1:1}"}, Rejected{"a key alone", R"({"a"})"}, Rejected{"two values", "1 2"},
        Rejected{"two documents", "{}{}"}, Rejected{"a word cut short", "tru"}, Rejected{"a word too long", "nulls"},
        Rejected{"a word in capitals", "NULL"}, Rejected{"no word", "nan"}, Rejected{"infinity", "Infinity"},
        Rejected{"a plus sign", "+1"}, Rejected{"a sign alone", "-"}, Rejected{"a leading zero", "01"},
        Rejected{"a negative leading zero", "-01"}, Rejected{"no digit before", ".5"},
        Rejected{"no digit behind", "1."}, Rejected{"no digit between", "1.e1"}, Rejected{"no exponent", "1e"},
        Rejected{"a sign for an exponent", "1e+"}, Rejected{"hexadecimal", "0x10"}, Rejected{"two points", "1.2.3"},
        Rejected{"overflow", "1e309"}, Rejected{"negative overflow", "-1e309"},
        Rejected{"overflow nested", R"({"a":[1e400]})"},
        Rejected{"overflow by many digits alone", std::string(400, '1')},
        Rejected{"overflow by many digits with a fraction", std::string(400, '1') + "." + std::string(500, '1')},
        Rejected{"overflow by many digits with an exponent below zero", std::string(400, '1') + "e-50"},
        Rejected{"an exponent beyond 64 bits", "1e99999999999999999999"},
        Rejected{"a long number that overflows", "1000000000000000000000e300"}, Rejected{"an open string", "\"a"},
        Rejected{"an open long string", "\"0123456789012345678901234567890123456789"},
        Rejected{"a string that ends in a backslash", "\"\\"}, Rejected{"single quotes", "'a'"},
        Rejected{"an unknown escape", R"("\a")"}, Rejected{"an escape in capitals", R"("\N")"},
        Rejected{"three hexadecimal digits", R"("\u004")"}, Rejected{"no hexadecimal digit", R"("\u00g0")"},
        Rejected{"a sign in hexadecimal", R"("\u-041")"}, Rejected{"an x in hexadecimal", R"("\u0x41")"},
        Rejected{"a lone high surrogate", R"("\uD834")"},
        Rejected{"a high surrogate and a letter", R"("\uD834abcdef")"}, Rejected{"a lone low surrogate", R"("\uDD1E")"},
        Rejected{"two high surrogates", R"("\uD834\uD834")"},
        Rejected{"a high surrogate and the last high one", R"("\uD834\uDBFF")"},
        Rejected{"a high surrogate and what lies behind the low ones", R"("\uD834\uE000")"},
        Rejected{"a high surrogate and the last of its plane", R"("\uD834\uFFFF")"},
        Rejected{"the last high surrogate alone", R"("\uDBFF")"},
        Rejected{"the last low surrogate alone", R"("\uDFFF")"},
        Rejected{"the last low surrogate and a low one", R"("\uDFFF\uDC00")"},
        Rejected{"a pair the wrong way round", R"("\uDD1E\uD834")"},
        Rejected{"a high surrogate and another escape", R"("\uD834\n12345")"},
        Rejected{"a lone surrogate in a key", R"({"\uD834":1})"}, Rejected{"a line feed in a string", "\"a\nb\""},
        Rejected{"a NUL in a string", std::string("\"a\0b\""sv)}, Rejected{"a tab in a string", "\"\t\""},
        Rejected{"a control character far into a string", "\"0123456789012345678901234567890\x1f\""},
        Rejected{"a stray continuation byte", "\"\x80\""}, Rejected{"an overlong slash", "\"\xC0\xAF\""},
        Rejected{"an overlong three-byte form", "\"\xE0\x80\xAF\""},
        Rejected{"an overlong four-byte form", "\"\xF0\x80\x80\xAF\""},
        Rejected{"a surrogate in UTF-8", "\"\xED\xA0\x80\""},
        Rejected{"beyond the last scalar", "\"\xF4\x90\x80\x80\""}, Rejected{"a sequence cut short", "\"\xE2\x82\""},
        Rejected{"a sequence at the end of the input", "\"\xE2"}, Rejected{"a byte that never occurs", "\"\xFF\""},
        Rejected{"UTF-8 cut short far into a string", "\"0123456789012345é\xE2\x82 \""},
        Rejected{"a NUL behind the value", std::string("1\0"sv)}, Rejected{"a comment", "1 // one"},
        Rejected{"a form feed", "\f1"},
        Rejected{"a no-break space",
                 "\u00a0"
                 "1"},
        Rejected{"two byte-order marks", "\xEF\xBB\xBF\xEF\xBB\xBF{}"},
        Rejected{"a byte-order mark alone", "\xEF\xBB\xBF"}, Rejected{"half a byte-order mark", "\xEF\xBB{}"},
        Rejected{"a byte-order mark behind a space", " \xEF\xBB\xBF{}"}),
    RowName());

TEST(JSONDecoding, readsAStringTheSameWithEachByteAtEveryOffset) {
  // Every length around the number of bytes that are read at a time, with each kind of byte at each offset.
  for (const std::string_view piece : {"x", "\\n", "é", "€", "𝄞", "\\u0041"}) {
    for (std::size_t length = 0; length < 70; ++length) {
      for (std::size_t offset = 0; offset <= length; ++offset) {
        const std::string before(offset, 'a');
        const std::string after(length - offset, 'b');
        const auto decodedPiece = JSON::decoded("\"" + std::string(piece) + "\"");
        ASSERT_TRUE(decodedPiece);
        const std::string expected = before + std::string(*decodedPiece->string()) + after;
        const auto value = JSON::decoded("\"" + before + std::string(piece) + after + "\"");
        ASSERT_TRUE(value) << piece << " at " << offset << " of " << length;
        ASSERT_EQ(*value->string(), expected) << piece << " at " << offset << " of " << length;
      }
    }
  }
}

TEST(JSONDecoding, readsNoByteAfterTheDocument) {
  // Each document is a part of a larger one that would change the result. The address sanitizer checks the same json
  // alone.
  const std::string whole = R"({"key":[12345.5e1,"string\n",true,null]})";
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_FALSE(JSON::decoded(std::string_view(whole).substr(0, length))) << length;
    const std::vector<char> alone(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_FALSE(JSON::decoded({alone.data(), length})) << length;
  }
  EXPECT_EQ(JSON::decoded("123456"sv.substr(0, 3))->number(), 123);
}

TEST(JSONDecoding, numbersAreRoundedLikeTheSystemRoundsThem) {
  auto generator = tests::seededGenerator();
  const auto digit = [&](char lowest) {
    const std::string_view digits = std::string_view("0123456789").substr(lowest == '0' ? 0 : 1);
    return digits[tests::below(digits.size(), generator)];
  };
  for (int i = 0; i < 200000; ++i) {
    std::string json = tests::below(2, generator) == 0 ? "-" : "";
    if (tests::below(4, generator) == 0) {
      json += "0." + std::string(tests::below(25, generator), '0');
    } else {
      json += digit('1');
      for (std::size_t more = tests::below(12, generator); more > 0; --more) json += digit('0');
      json += '.';
    }
    for (std::size_t more = 1 + tests::below(20, generator); more > 0; --more) json += digit('0');
    if (tests::below(2, generator) == 0)
      json += "e" + std::to_string(static_cast<int>(tests::below(80, generator)) - 40);
    const auto value = JSON::decoded(json);
    ASSERT_TRUE(value) << json;
    ASSERT_EQ(*value->number(), std::strtod(json.c_str(), nullptr)) << json;
  }
}

TEST(JSONDecoding, manyMembersInAnyOrderAreFoundAndWrittenInOrder) {
  for (const std::size_t count : {1U, 2U, 15U, 16U, 17U, 100U, 3000U}) {
    for (const std::string_view prefix : {"", "profile_background_", "é"}) {
      std::string json = "{";
      for (std::size_t i = 0; i < count; ++i) {
        if (i > 0) json += ',';
        json += '"' + std::string(prefix) + std::to_string(i * 7919 % count) + "\":" + std::to_string(i);
      }
      json += '}';
      const auto value = JSON::decoded(json);
      ASSERT_TRUE(value);
      ASSERT_EQ(value->object()->size(), count) << prefix;
      std::string previous;
      for (const JSON::Member& member : *value->object()) {
        EXPECT_TRUE(previous.empty() || previous < member.key()) << previous;
        previous = member.key();
      }
      for (std::size_t i = 0; i < count; ++i) {
        const JSON* found = (*value)[std::string(prefix) + std::to_string(i * 7919 % count)];
        ASSERT_TRUE(found) << prefix << i;
        EXPECT_EQ(found->number(), static_cast<double>(i));
      }
    }
  }
}

TEST(JSONDecoding, ofManyMembersWithEqualKeysTheLastStays) {
  for (const std::size_t keys : {1U, 5U, 8U, 9U, 40U, 1000U}) {
    for (const std::string_view prefix : {"", "profile_background_", "é"}) {
      constexpr std::size_t times = 3;
      std::string json = "{";
      for (std::size_t i = 0; i < times * keys; ++i) {
        if (i > 0) json += ',';
        json += '"' + std::string(prefix) + std::to_string(i * 7919 % keys) + "\":" + std::to_string(i);
      }
      json += '}';
      const auto value = JSON::decoded(json);
      ASSERT_TRUE(value);
      ASSERT_EQ(value->object()->size(), keys) << prefix;
      for (std::size_t i = (times - 1) * keys; i < times * keys; ++i) {
        const JSON* found = (*value)[std::string(prefix) + std::to_string(i * 7919 % keys)];
        ASSERT_TRUE(found) << prefix << i;
        EXPECT_EQ(found->number(), static_cast<double>(i)) << prefix << keys;
      }
    }
  }
}

}  // namespace
}  // namespace kelvane
