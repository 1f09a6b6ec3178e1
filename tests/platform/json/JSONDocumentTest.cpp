#include "platform/json/JSONDocument.h"

#include <gtest/gtest.h>

namespace kelvane {
namespace {

using Kind = JSONDocument::Kind;
using Path = JSONDocument::Path;

JSONDocument read(std::string json) {
  auto result = JSONDocument::read(std::move(json));
  if (!result) throw std::runtime_error("not JSON");
  return *result;
}

struct RootCase {
  const char* description;
  std::string json;
  Kind kind;
  std::string written;
};

TEST(JSONDocument, hasTheKindAndTheRangeOfItsRoot) {
  const RootCase cases[] = {
      {"null", "null", Kind::null, "null"},
      {"true", " true", Kind::boolean, "true"},
      {"false", "false\n", Kind::boolean, "false"},
      {"a number", "\t-0.5e+1\r\n", Kind::number, "-0.5e+1"},
      {"a number too small for a double", "1e-999", Kind::number, "1e-999"},
      {"a number too large for a double", "[1e400]", Kind::array, "[1e400]"},
      {"a lone surrogate", R"(["\ud800"])", Kind::array, R"(["\ud800"])"},
      {"a string", R"( "a\"b" )", Kind::string, R"("a\"b")"},
      {"an array", " [1, [2]] ", Kind::array, "[1, [2]]"},
      {"an object", R"({"a": {}})", Kind::object, R"({"a": {}})"},
      {"empty ones", "[ ]", Kind::array, "[ ]"},
      {"a byte-order mark", "\xEF\xBB\xBF {}", Kind::object, "{}"},
  };
  for (const RootCase& row : cases) {
    const auto document = JSONDocument::read(row.json);
    ASSERT_TRUE(document.has_value()) << row.description;
    EXPECT_EQ(document->json(), row.json) << row.description;
    EXPECT_EQ(document->root().kind, row.kind) << row.description;
    EXPECT_EQ(document->written(document->root()), row.written) << row.description;
    EXPECT_EQ(JSONDocument::fault(row.json), std::nullopt) << row.description;
  }
}

struct FaultCase {
  const char* description;
  std::string json;
  std::size_t offset;
};

TEST(JSONDocument, saysWhereADocumentCeasesToBeJSON) {
  const FaultCase cases[] = {
      {"nothing", "", 0},
      {"only white space", "  \n", 3},
      {"a byte-order mark alone", "\xEF\xBB\xBF", 3},
      {"two byte-order marks", "\xEF\xBB\xBF\xEF\xBB\xBF{}", 3},
      {"an open object", "{", 1},
      {"an open array", "[1", 2},
      {"a comma at the end", R"({"a":1,})", 7},
      {"a comma at the end of an array", "[1,]", 3},
      {"a missing comma", "[1 2]", 3},
      {"a missing colon", R"({"a" 1})", 5},
      {"a missing value", R"({"a":})", 5},
      {"a key without quotes", "{a:1}", 1},
      {"a number as a key", "{1:1}", 1},
      {"the wrong bracket", "[1}", 2},
      {"something behind", "{} x", 3},
      {"two values", "1 2", 2},
      {"a comment", "{\n  // note\n}", 4},
      {"single quotes", "['a']", 1},
      {"an open string", R"(["ab)", 4},
      {"a line break in a string", "[\"a\nb\"]", 3},
      {"a byte that is not UTF-8", "[\"a\xFF\"]", 3},
      {"a broken escape, by its string", R"(["a\x"])", 1},
      {"an escape cut short behind a lone surrogate, by its string", R"({"k":"\ud800\ud8"})", 5},
      {"a number that starts wrong", "[01]", 2},
      {"a number too large for a double that ends wrong", "[1, 1e]", 4},
      {"a word cut short", "[tru]", 1},
      {"a word in capitals", "[True]", 1},
  };
  for (const FaultCase& row : cases) {
    EXPECT_EQ(JSONDocument::fault(row.json), row.offset) << row.description;
    EXPECT_FALSE(JSONDocument::read(row.json).has_value()) << row.description;
  }
}

TEST(JSONDocument, readsMembersInTheirOrder) {
  const JSONDocument document = read(R"( {"b": [1, {"x": 2}], "a\n\u00e9" :null, "": "t", "b":true} )");
  const auto members = document.members(document.root());
  ASSERT_EQ(members.size(), 4U);
  EXPECT_EQ(members[0].key, "b");
  EXPECT_EQ(document.written(members[0].value), R"([1, {"x": 2}])");
  EXPECT_EQ(members[1].key, "a\n\u00e9");
  EXPECT_EQ(document.json().substr(members[1].begin, 4), R"("a\n)");
  EXPECT_EQ(members[1].value.kind, Kind::null);
  EXPECT_EQ(members[2].key, "");
  EXPECT_EQ(document.string(members[2].value), "t");
  EXPECT_EQ(members[3].key, "b");
  EXPECT_EQ(members[3].value.kind, Kind::boolean);
  EXPECT_TRUE(read("{ }").members({Kind::object, 0, 3}).empty());
}

TEST(JSONDocument, readsALoneSurrogateAsAReplacementCharacter) {
  const struct {
    const char* description;
    const char* written;
    const char* said;
  } cases[] = {
      {"a high one", R"("\ud800")", "\uFFFD"},
      {"a low one in capitals", R"("a\uDFFFb")", "a\uFFFDb"},
      {"two high ones", R"("\udbff\ud800")", "\uFFFD\uFFFD"},
      {"a pair the wrong way round", R"("\udc00\ud800")", "\uFFFD\uFFFD"},
      {"a high one before a pair", R"("\ud83d\ud83d\ude00")", "\uFFFD\U0001F600"},
      {"a low one behind a pair", R"("\ud83d\ude00\ude00")", "\U0001F600\uFFFD"},
      {"a high one before another escape", R"("\ud800\n\u0041")", "\uFFFD\nA"},
      {"a high one before a plain u", R"("\ud800udc00")", "\uFFFDudc00"},
      {"an escaped backslash before what looks like one", R"("\\ud800")", "\\ud800"},
  };
  for (const auto& row : cases) {
    const JSONDocument document = read(row.written);
    EXPECT_EQ(document.string(document.root()), row.said) << row.description;
    const JSONDocument object = read("{" + std::string(row.written) + ":1}");
    EXPECT_EQ(object.members(object.root()).at(0).key, row.said) << row.description;
  }
}

TEST(JSONDocument, isDecodableWhateverItsNumbersAndSurrogates) {
  const struct {
    const char* description;
    std::string json;
    std::string decodable;
  } cases[] = {
      {"nothing to do", R"({"a": ["\ud83d\ude00", 1e308, -0, 1e-999, "1e999"]})",
       R"({"a": ["\ud83d\ude00", 1e308, -0, 1e-999, "1e999"]})"},
      {"the shortest numbers that are too large", "[2e308,-9E308,1e309]", "[1e308,-1e308,1e308]"},
      {"longer ones", "[ 1e999999 , -12.5E+00400]", "[ 1e000308 , -1e000000308]"},
      {"one of very many digits", "1" + std::string(400, '0'), "1e" + std::string(396, '0') + "308"},
      {"lone surrogates in keys and values, behind a byte-order mark",
       "\xEF\xBB\xBF"
       R"({"\uD800": "\udc00\ud800\udc00"})",
       "\xEF\xBB\xBF"
       R"({"\ufffd": "\ufffd\ud800\udc00"})"},
      {"halves in two strings", R"(["\ud83d","\ude00"])", R"(["\ufffd","\ufffd"])"},
  };
  for (const auto& row : cases) {
    const JSONDocument document = read(row.json);
    EXPECT_EQ(document.decodable(), row.decodable) << row.description;
    EXPECT_EQ(document.json(), row.json) << row.description;
  }
}

TEST(JSONDocument, editsAroundValuesThatJSONValuesCannotHold) {
  JSONDocument document = read(R"({"\ud800": 1e400, "a": 1, "z": "\udc00"})");
  document.set({"b"}, "2");
  EXPECT_TRUE(document.erase({"a"}));
  EXPECT_EQ(document.json(), R"({"\ud800": 1e400, "z": "\udc00", "b": 2})");
}

struct FindCase {
  const char* description;
  std::string json;
  Path path;
  const char* written;
};

TEST(JSONDocument, findsAValueByItsPath) {
  const FindCase cases[] = {
      {"no path", "[1]", {}, "[1]"},
      {"a key", R"({"a": 1})", {"a"}, "1"},
      {"a key in a key", R"({"a": {"b": [2]}})", {"a", "b"}, "[2]"},
      {"the last of equal keys", R"({"a": 1, "b": 2, "a": 3})", {"a"}, "3"},
      {"the last of equal keys on the way", R"({"a": {"b": 1}, "a": {"c": 2}})", {"a", "b"}, nullptr},
      {"an escaped key", R"({"\u0061": 1})", {"a"}, "1"},
      {"two spellings of one string", "{\"e\u0301\": 1}", {"\u00E9"}, "1"},
      {"a missing key", R"({"a": 1})", {"b"}, nullptr},
      {"a key in what is no object", R"({"a": [1]})", {"a", "b"}, nullptr},
      {"a key of what is no object", "[1]", {"a"}, nullptr},
  };
  for (const FindCase& row : cases) {
    const JSONDocument document = read(row.json);
    const auto value = document.find(row.path);
    EXPECT_EQ(value.has_value(), row.written != nullptr) << row.description;
    EXPECT_EQ(value ? document.written(*value) : "", row.written ? row.written : "") << row.description;
  }
}

struct SetCase {
  const char* description;
  std::string before;
  Path path;
  const char* json;
  std::string after;
};

TEST(JSONDocument, setsAMemberAndLeavesEveryOtherByte) {
  const SetCase cases[] = {
      {"a value keeps its position",
       R"({ "a" :1.50, "b":  12345678901234567890 })",
       {"a"},
       "true",
       R"({ "a" :true, "b":  12345678901234567890 })"},
      {"the last of equal keys", R"({"a": 1, "a": 2})", {"a"}, "3", R"({"a": 1, "a": 3})"},
      {"a new member on lines of its own", "{\n  \"a\": 1\n}\n", {"b"}, "2", "{\n  \"a\": 1,\n  \"b\": 2\n}\n"},
      {"tabs", "{\n\t\"a\": 1\n}", {"b"}, "2", "{\n\t\"a\": 1,\n\t\"b\": 2\n}"},
      {"CR LF", "{\r\n  \"a\": 1\r\n}\r\n", {"b"}, "2", "{\r\n  \"a\": 1,\r\n  \"b\": 2\r\n}\r\n"},
      {"empty lines are not repeated", "{\n\n\n  \"a\": 1\n\n}", {"b"}, "2", "{\n\n\n  \"a\": 1,\n  \"b\": 2\n\n}"},
      {"no spaces at all", R"({"a":1})", {"b"}, "2", R"({"a":1,"b":2})"},
      {"one line with spaces", R"({"a": 1})", {"b"}, "2", R"({"a": 1, "b": 2})"},
      {"spaces behind commas only", R"({"a":1, "b":2})", {"c"}, "3", R"({"a":1, "b":2, "c":3})"},
      {"spaces inside the brackets", R"({ "a": 1 })", {"b"}, "2", R"({ "a": 1, "b": 2 })"},
      {"spaces around the colon", "{\n \"a\" : 1\n}", {"b"}, "2", "{\n \"a\" : 1,\n \"b\" : 2\n}"},
      {"a value on a line of its own", "{\n \"a\":\n  1\n}", {"b"}, "2", "{\n \"a\":\n  1,\n \"b\": 2\n}"},
      {"commas in front", "{ \"a\": 1\n, \"b\": 2\n}", {"c"}, "3", "{ \"a\": 1\n, \"b\": 2, \"c\": 3\n}"},
      {"an empty object", "{}", {"a"}, "1", "{\n  \"a\": 1\n}"},
      {"an empty object and a line break", "{ }\n", {"a"}, "1", "{\n  \"a\": 1\n}\n"},
      {"an empty object in CR LF", "{\r\n}\r\n", {"a"}, "1", "{\r\n  \"a\": 1\r\n}\r\n"},
      {"an empty object behind a byte-order mark", "\xEF\xBB\xBF{}", {"a"}, "1", "\xEF\xBB\xBF{\n  \"a\": 1\n}"},
      {"an empty object in another",
       "{\n    \"a\": {},\n    \"z\": 0\n}",
       {"a", "b"},
       "1",
       "{\n    \"a\": {\n        \"b\": 1\n    },\n    \"z\": 0\n}"},
      {"an empty object in a single line", R"({"a":{},"z":0})", {"a", "b"}, "1", R"({"a":{"b":1},"z":0})"},
      {"a path that is missing",
       "{\n  \"z\": 0\n}",
       {"a", "b"},
       "1",
       "{\n  \"z\": 0,\n  \"a\": {\n    \"b\": 1\n  }\n}"},
      {"a path that is missing in an empty object", "{}", {"a", "b"}, "[]", "{\n  \"a\": {\n    \"b\": []\n  }\n}"},
      {"a value on the way that is no object",
       R"({"a": [1, 2], "z": 0})",
       {"a", "b"},
       "1",
       R"({"a": {"b": 1}, "z": 0})"},
      {"a root that is no object", " [1]\n", {"a"}, "1", " {\n   \"a\": 1\n }\n"},
      {"an object that is not indented", "{\n\"a\": {}\n}", {"a", "b"}, "1", "{\n\"a\": {\n\"b\": 1\n}\n}"},
      {"the root", " [1]\n", {}, "{}", " {}\n"},
      {"a key with quotes", "{\"a\":1}", {"b\"\\\n\u00E9"}, "2", "{\"a\":1,\"b\\\"\\\\\\u000a\u00E9\":2}"},
  };
  for (const SetCase& row : cases) {
    JSONDocument document = read(row.before);
    document.set(row.path, row.json);
    EXPECT_EQ(document.json(), row.after) << row.description;
    const auto again = read(document.json());
    EXPECT_EQ(document.root().kind, again.root().kind) << row.description;
    EXPECT_EQ(document.root().begin, again.root().begin) << row.description;
    EXPECT_EQ(document.root().end, again.root().end) << row.description;
    EXPECT_EQ(document.written(*document.find(row.path)), row.json) << row.description;
  }
}

struct EraseCase {
  const char* description;
  std::string before;
  Path path;
  std::string after;
};

TEST(JSONDocument, erasesAMemberAndLeavesEveryOtherByte) {
  const EraseCase cases[] = {
      {"the first", "{\n  \"a\": 1,\n  \"b\": 2\n}\n", {"a"}, "{\n  \"b\": 2\n}\n"},
      {"the middle", R"({"a":1, "b" : {"x": 1},  "c":3})", {"b"}, R"({"a":1, "c":3})"},
      {"the last", "{\n  \"a\": 1,\n  \"b\": 2\n}\n", {"b"}, "{\n  \"a\": 1\n}\n"},
      {"the only one", "{\n  \"a\": {\n    \"b\": 1\n  }\n}", {"a", "b"}, "{\n  \"a\": {}\n}"},
      {"the only one at the root", " { \"a\": 1 } ", {"a"}, " {} "},
      {"all that have the key", R"({"a":1,"b":2,"a":3,"c":4,"a":5})", {"a"}, R"({"b":2,"c":4})"},
      {"all that have the key, side by side at the end", R"({"b":2, "a":1, "a":3})", {"a"}, R"({"b":2})"},
      {"all that have the key, and no other", R"({"a":1, "a":3})", {"a"}, "{}"},
      {"in the last of equal keys on the way", R"({"x":{"a":1},"x":{"a":2}})", {"x", "a"}, R"({"x":{"a":1},"x":{}})"},
      {"in an escaped spelling", R"({"\u0061":1,"b":2})", {"a"}, R"({"b":2})"},
      {"numbers as they are spelled",
       R"({"a":1,"n":12345678901234567890.10E+1})",
       {"a"},
       R"({"n":12345678901234567890.10E+1})"},
  };
  for (const EraseCase& row : cases) {
    JSONDocument document = read(row.before);
    EXPECT_TRUE(document.erase(row.path)) << row.description;
    EXPECT_EQ(document.json(), row.after) << row.description;
    EXPECT_EQ(document.root().end, read(document.json()).root().end) << row.description;
    EXPECT_FALSE(document.erase(row.path)) << row.description;
    EXPECT_EQ(document.json(), row.after) << row.description;
  }
  const EraseCase without[] = {
      {"no such key", R"({ "a":1 })", {"b"}, {}},
      {"an empty object", "{ }", {"a"}, {}},
      {"no object on the way", R"({"a":[1]})", {"a", "b"}, {}},
      {"nothing on the way", R"({"a":{}})", {"b", "a"}, {}},
      {"a root that is no object", "[1]", {"a"}, {}},
  };
  for (const EraseCase& row : without) {
    JSONDocument document = read(row.before);
    EXPECT_FALSE(document.erase(row.path)) << row.description;
    EXPECT_EQ(document.json(), row.before) << row.description;
  }
}

TEST(JSONDocument, quotesAStringSoThatItReadsBack) {
  std::string all;
  for (char byte = 0; byte < 0x7F; ++byte) all += byte;
  const std::string strings[] = {"", "a/b", "\"\\\"", all, "\u007F\u00E9\u65E5\U0001F600"};
  for (const std::string& string : strings) {
    const JSONDocument quoted = read(quotedJSON(string));
    ASSERT_EQ(quoted.root().kind, Kind::string);
    EXPECT_EQ(quoted.string(quoted.root()), string);
  }
  EXPECT_EQ(quotedJSON("a/\u00E9\x01"), "\"a/\u00E9\\u0001\"");
}

TEST(JSONDocument, readsHundredsOfThousandsOfLevels) {
  std::string json;
  for (int i = 0; i < 300'000; ++i) json += i % 2 == 0 ? "[" : "{\"a\":";
  EXPECT_EQ(JSONDocument::fault(json), json.size());
  std::string close;
  for (int i = 0; i < 300'000; ++i) close += i % 2 == 0 ? '}' : ']';
  EXPECT_EQ(JSONDocument::fault(json + "1" + close), std::nullopt);
  JSONDocument whole = read("{\"x\":" + json + "1" + close + "}");
  whole.set({"y"}, "1");
  EXPECT_TRUE(whole.erase({"x"}));
  EXPECT_EQ(whole.json(), "{\"y\":1}");
}

}  // namespace
}  // namespace kelvane
