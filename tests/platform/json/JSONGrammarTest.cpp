#include "platform/json/JSONGrammar.h"

#include <gtest/gtest.h>

#include <string>

namespace kelvane {
namespace {

/// A sink that records what it is told. It refuses the number 13, and lone surrogates unless it `allowsLone`.
struct Recorder {
  bool allowsLone = false;
  std::string told{};
  std::string memory{};
  int opened = 0;

  int open(bool isObject, const char* at) {
    told += (isObject ? "object#" : "array#") + std::to_string(++opened) + *at + ' ';
    return opened;
  }
  void close(bool isObject, int mark, const char* end) {
    told += (isObject ? "/object#" : "/array#") + std::to_string(mark) + end[-1] + ' ';
  }
  void string(std::string_view string, const JSONString& found) {
    told += std::string(found.isKey ? "key" : "string") + (found.isASCII ? "" : "*") + '<' + std::string(string) + "|" +
            std::string(found.written) + "> ";
  }
  bool number(const jsonscanner::Number&, std::string_view written) {
    told += std::string(written) + ' ';
    return written != "13";
  }
  void boolean(bool value, std::string_view written) { told += (value ? "T:" : "F:") + std::string(written) + ' '; }
  void null(std::string_view written) { told += std::string(written) + ' '; }
  char* room(std::size_t bytes) {
    memory.resize(bytes);
    return memory.data();
  }
  bool loneSurrogate(const char* escape) {
    told += "lone" + std::string(escape, 6) + ' ';
    return allowsLone;
  }
};

TEST(JSONGrammar, tellsItsSinkWhatItFindsInTheOrderOfTheDocument) {
  const struct {
    const char* description;
    const char* json;
    const char* told;
  } rows[] = {
      {"words", "[true,false,null]", "array#1[ T:true F:false null /array#1] "},
      {"numbers as they are written", " -1.50E+2 ", "-1.50E+2 "},
      {"strings, and how they are written", R"(["","a\n"])", "array#1[ string<|\"\"> string<a\n|\"a\\n\"> /array#1] "},
      {"a string that is not ASCII", "\"\u00e9\"", "string*<\u00e9|\"\u00e9\"> "},
      {"a string whose escapes are not ASCII", R"("\u00e9")", "string*<\u00e9|\"\\u00e9\"> "},
      {"keys before their values", R"({"a":1,"b":"c"})",
       R"(object#1{ key<a|"a"> 1 key<b|"b"> string<c|"c"> /object#1} )"},
      {"the mark of each bracket, when it closes", "[[],{\"a\":[ ]}]",
       "array#1[ array#2[ /array#2] object#3{ key<a|\"a\"> array#4[ /array#4] /object#3} /array#1] "},
      {"half a surrogate pair", R"("\ud800")", "lone\\ud800 string*<\uFFFD|\"\\ud800\"> "},
      {"a whole pair at once", R"("\ud83d\ude00")", "string*<\U0001F600|\"\\ud83d\\ude00\"> "},
  };
  for (const auto& row : rows) {
    Recorder recorder{.allowsLone = true};
    EXPECT_TRUE(JSONGrammar<Recorder>(row.json, recorder).read()) << row.description;
    EXPECT_EQ(recorder.told, row.told) << row.description;
  }
}

TEST(JSONGrammar, stopsWhereTheSinkRefuses) {
  const struct {
    const char* description;
    std::string_view json;
    std::size_t at;
    const char* told;
  } rows[] = {
      {"a number", "[1, 13, 2]", 4, "array#1[ 1 13 "},
      {"a lone surrogate, at its string", R"([ "a\ud800", 2])", 2, "array#1[ lone\\ud800 "},
  };
  for (const auto& row : rows) {
    Recorder recorder;
    JSONGrammar<Recorder> grammar(row.json, recorder);
    EXPECT_FALSE(grammar.read()) << row.description;
    EXPECT_EQ(static_cast<std::size_t>(grammar.at() - row.json.data()), row.at) << row.description;
    EXPECT_EQ(recorder.told, row.told) << row.description;
  }
}

}  // namespace
}  // namespace kelvane
