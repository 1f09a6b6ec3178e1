#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "protocol/JSON.h"
#include "tests/support/Random.h"
#include "tests/support/RowName.h"

namespace kelvane {
namespace {

using tests::RowName;

using namespace std::string_view_literals;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

struct Row {
  const char* about;
  JSON value;
  std::string_view json;

  friend void PrintTo(const Row& row, std::ostream* out) { *out << row.about; }
};

class Encoded : public testing::TestWithParam<Row> {};

TEST_P(Encoded, isExactlyThisJSON) {
  EXPECT_EQ(GetParam().value.encoded(), GetParam().json) << GetParam().about;
}

INSTANTIATE_TEST_SUITE_P(
    JSON, Encoded,
    testing::Values(
        Row{"null", nullptr, "null"}, Row{"true", true, "true"}, Row{"false", false, "false"},
        Row{"an integral double", 3.0, "3"}, Row{"a fraction", 3.5, "3.5"}, Row{"a negative zero", -0.0, "0"},
        Row{"an int", -32601, "-32601"}, Row{"a long", 1234567890123L, "1234567890123"},
        Row{"the last integer form", 8999999999999999.0, "8999999999999999"},
        Row{"the first double form", 9e15, "9e+15"},
        Row{"the last negative integer form", -8999999999999999.0, "-8999999999999999"},
        Row{"the first negative double form", -9e15, "-9e+15"}, Row{"a third", 1.0 / 3, "0.3333333333333333"},
        Row{"a tenth", 0.1, "0.1"}, Row{"the largest", std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
        Row{"the smallest", std::numeric_limits<double>::denorm_min(), "5e-324"}, Row{"a NaN", notANumber, "null"},
        Row{"an infinity", infinity, "null"},
        Row{"a NaN deep inside makes the whole null", JSON::Object{{"a", JSON::Array{1, JSON::Array{notANumber}}}},
            "null"},
        Row{"an infinity behind other members", JSON::Object{{"a", "x"}, {"b", -infinity}}, "null"},
        Row{"an empty string", "", R"("")"}, Row{"a slash is bare", "tools/list", R"("tools/list")"},
        Row{"quote and backslash", "\"\\", R"("\"\\")"}, Row{"short escapes", "\b\f\n\r\t", R"("\b\f\n\r\t")"},
        Row{"other control characters", "\0\x01\x1f"sv, R"("\u0000\u0001\u001f")"},
        Row{"a delete character is bare", "\x7f", "\"\x7f\""}, Row{"non-ASCII is bare", "é€𝄞\u2028", "\"é€𝄞\u2028\""},
        Row{"bytes that are not UTF-8", "a\xFFz\xE2\x82", "\"a\uFFFDz\uFFFD\""},
        Row{"bytes that are not UTF-8, in a long string", "0123456789012345\xC3(", "\"0123456789012345\uFFFD(\""},
        Row{"bytes that are not UTF-8, in a key", JSON::Object{{"\xFF", 1}}, "{\"\uFFFD\":1}"},
        Row{"an empty array", JSON::Array(), "[]"}, Row{"an empty object", JSON::Object(), "{}"},
        Row{"an array", JSON::Array{1, "a", nullptr, JSON::Array()}, R"([1,"a",null,[]])"},
        Row{"members in key order at every depth",
            JSON::Object{{"b", JSON::Object{{"d", 1}, {"c", 2}}}, {"a", JSON::Array{JSON::Object{{"f", 3}, {"e", 4}}}}},
            R"({"a":[{"e":4,"f":3}],"b":{"c":2,"d":1}})"},
        Row{"capitals before small letters, shorter keys first", JSON::Object{{"a", 1}, {"B", 2}, {"aa", 3}, {"", 4}},
            R"({"":4,"B":2,"a":1,"aa":3})"},
        Row{"a key is escaped", JSON::Object{{"\n\"", 1}}, R"({"\n\"":1})"}),
    RowName());

TEST(JSONEncoding, escapesEachByteAtEveryOffset) {
  for (const auto& [bare, escaped] : {std::pair{"\n", "\\n"}, {"\"", "\\\""}, {"é", "é"}, {"\x01", "\\u0001"}}) {
    for (std::size_t length = 0; length < 40; ++length) {
      for (std::size_t offset = 0; offset <= length; ++offset) {
        const std::string before(offset, 'a');
        const std::string after(length - offset, 'b');
        ASSERT_EQ(JSON(before + bare + after).encoded(), '"' + before + escaped + after + '"');
      }
    }
  }
}

TEST(JSONEncoding, writesStringsOfEverySizeWhole) {
  for (const std::size_t size : {0U, 13U, 14U, 15U, 2047U, 2048U, 2049U, 4095U, 4096U, 4097U, 100000U}) {
    std::string string;
    for (std::size_t i = 0; i < size; ++i) string += static_cast<char>('a' + i % 26);
    EXPECT_EQ(JSON(JSON::Array{string, string, 1}).encoded(), "[\"" + string + "\",\"" + string + "\",1]");
  }
}

TEST(JSONEncoding, hasRoomForTheLongestOutputAtEveryOffset) {
  // The longest output of each kind that is written without a check, after any number of bytes in the buffer.
  const auto controls = [](std::size_t count) { return std::string(count, '\x01'); };
  const auto escaped = [](std::size_t count) {
    std::string json;
    for (; count > 0; --count) json += "\\u0001";
    return json;
  };
  const struct {
    const char* what;
    JSON value;
    std::string json;
  } rows[] = {
      {"a member, its key and its value kept inline", JSON::Object{{"", 1}, {controls(14), controls(14)}},
       R"({"":1,")" + escaped(14) + R"(":")" + escaped(14) + R"("})"},
      {"a string that is not kept inline", controls(100), '"' + escaped(100) + '"'},
      {"a string in several steps", controls(1500), '"' + escaped(1500) + '"'},
      {"a member whose key is not kept inline", JSON::Object{{controls(100), controls(14)}},
       "{\"" + escaped(100) + R"(":")" + escaped(14) + R"("})"},
      {"a number", -2.2250738585072014e-308, "-2.2250738585072014e-308"},
      {"nested arrays", JSON::Array{JSON(JSON::Array{JSON(JSON::Array{controls(14)})})},
       "[[[\"" + escaped(14) + "\"]]]"},
  };
  for (std::size_t size = 1; size < 4100; ++size) {
    JSON::Array before;
    std::string json = "[";
    if (size % 2 == 0) {
      before.append(10);
      json += "10,";
    }
    for (std::size_t i = 0; i < size / 2; ++i) {
      before.append(1);
      json += "1,";
    }
    for (const auto& row : rows) {
      // If more was written than there was room for, what follows is wrong too.
      JSON::Array whole = before;
      whole.append(row.value);
      whole.append(2);
      ASSERT_TRUE(JSON(whole).encoded() == json + row.json + ",2]")
          << row.what << " behind " << json.size() << " bytes";
    }
  }
}

TEST(JSONEncoding, everyDoubleReadsBackAsItself) {
  auto generator = tests::seededGenerator();
  for (int i = 0; i < 100000; ++i) {
    const std::uint64_t bits = generator();
    const auto value = std::bit_cast<double>(bits);
    if (!std::isfinite(value)) continue;
    const auto back = JSON::decoded(JSON(value).encoded());
    ASSERT_TRUE(back) << JSON(value).encoded();
    ASSERT_EQ(*back->number(), value) << JSON(value).encoded();
  }
}

/// A value of every kind, nested up to a depth.
JSON randomValue(std::mt19937_64& generator, int depth) {
  static constexpr std::string_view pieces[] = {"a", "Z", "0", "\"", "\\", "\n", "\x01", "é", "e\u0301", "€", "𝄞", "/"};
  const auto string = [&generator] {
    std::string result;
    for (std::size_t i = tests::below(24, generator); i > 0; --i) {
      result += pieces[tests::below(std::size(pieces), generator)];
    }
    return result;
  };
  switch (tests::below(depth > 0 ? 7 : 5, generator)) {
    case 0:
      return nullptr;
    case 1:
      return tests::below(2, generator) == 0;
    case 2:
      return static_cast<int>(tests::below(2000, generator)) - 1000;
    case 3:
      return static_cast<double>(tests::below(1000000, generator)) / 1024;
    case 4:
      return string();
    case 5: {
      JSON::Array items;
      for (std::size_t i = tests::below(20, generator); i > 0; --i) items.append(randomValue(generator, depth - 1));
      return items;
    }
    default: {
      JSON::Object members;
      for (std::size_t i = tests::below(20, generator); i > 0; --i) {
        members.set(string(), randomValue(generator, depth - 1));
      }
      return members;
    }
  }
}

TEST(JSONEncoding, everyValueReadsBackAsItself) {
  auto generator = tests::seededGenerator();
  for (int i = 0; i < 2000; ++i) {
    const JSON value = randomValue(generator, 4);
    const std::string json = value.encoded();
    const auto back = JSON::decoded(json);
    ASSERT_TRUE(back) << json;
    ASSERT_EQ(*back, value) << json;
    ASSERT_EQ(back->encoded(), json);
  }
}

TEST(JSONEncoding, isAppendedToWhatIsThere) {
  auto generator = tests::seededGenerator();
  std::string all = "before ";
  for (int i = 0; i < 200; ++i) {
    const JSON value = randomValue(generator, 3);
    const std::string before = all;
    ASSERT_TRUE(value.appendEncoded(all));
    ASSERT_EQ(all, before + value.encoded());
  }
}

TEST(JSONEncoding, appendsNothingIfANumberCannotBeWritten) {
  const std::string large(10000, 'x');
  for (const JSON& value : {JSON(notANumber), JSON(JSON::Array{large, JSON::Object{{"a", infinity}}})}) {
    std::string json = "before";
    EXPECT_FALSE(value.appendEncoded(json));
    EXPECT_EQ(json, "before");
  }
}

/// Strings of many sizes, with few escapes and with nothing but escapes, also where one step of writing ends.
std::vector<std::string> strings() {
  std::vector<std::string> all;
  for (const std::size_t size : std::initializer_list<std::size_t>{0, 1, 7, 15, 16, 17, 681, 682, 683, 4095, 16383,
                                                                   16384, 16385, 100000, 3000000}) {
    for (const std::string_view pattern :
         {"x"sv, "\n"sv, "\x01"sv, "a\"b"sv, "caf\u00E9 \\"sv, "\xFF"sv, "\xE2\x82"sv, "\0\t"sv}) {
      std::string string;
      while (string.size() < size) string.append(pattern);
      all.push_back(std::move(string));
    }
    // The escapes come late, when little room was expected to be needed.
    all.push_back(std::string(size, 'x') + std::string(size, '\x1F'));
  }
  return all;
}

TEST(JSONEncoding, escapesAStringAsItIsWrittenInAValue) {
  for (const std::string& string : strings()) {
    std::string escaped = "\"";
    JSON::appendEscaped(string, escaped);
    escaped += '"';
    ASSERT_TRUE(escaped == JSON(string).encoded()) << string.size() << testing::PrintToString(string.substr(0, 20));
  }
}

TEST(JSONEncoding, escapesWhatWasEscaped) {
  for (const std::string& string : strings()) {
    const std::string once = JSON(string).encoded();
    std::string twice = "\"";
    JSON::appendEscaped(once, twice);
    twice += '"';
    ASSERT_TRUE(JSON::decoded(twice) == JSON(once)) << string.size() << testing::PrintToString(string.substr(0, 20));
  }
}

}  // namespace
}  // namespace kelvane
