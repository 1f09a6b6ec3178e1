#include "protocol/Tool.h"

#include <gtest/gtest.h>

#include "protocol/RPCError.h"
#include "tests/support/RowName.h"

namespace kelvane {
namespace {

using tests::RowName;

using namespace std::string_view_literals;

TEST(Schema, withoutPropertiesStillHasItsThreeMembers) {
  EXPECT_EQ(schema({}, {}).encoded(), R"({"properties":{},"required":[],"type":"object"})");
}

TEST(Schema, declaresEveryPropertyAsAStringAndKeepsTheOrderOfTheRequired) {
  EXPECT_EQ(schema({{"text", "D2"}, {"id", "D1"}}, {"text", "id"}).encoded(),
            R"({"properties":{"id":{"description":"D1","type":"string"},"text":{"description":"D2","type":"string"}},)"
            R"("required":["text","id"],"type":"object"})");
}

TEST(Schema, doesNotCheckRequiredNamesAgainstTheProperties) {
  EXPECT_EQ(schema({}, {"ghost"}).encoded(), R"({"properties":{},"required":["ghost"],"type":"object"})");
}

TEST(SchemaDeathTest, aPropertyNamedTwiceStopsTheProcess) {
  EXPECT_DEATH(schema({{"id", "one"}, {"id", "two"}}, {}), "^Fatal error: Duplicate values for key: 'id'\n$");
}

TEST(SchemaDeathTest, aPropertyNamedTwiceInTwoSpellingsStopsTheProcess) {
  EXPECT_DEATH(schema({{"caf\u00E9", "one"}, {"cafe\u0301", "two"}}, {}),
               "^Fatal error: Duplicate values for key: 'cafe\u0301'\n$");
}

struct Required {
  const char* about;
  JSON::Object arguments;
  std::optional<std::string_view> text;  // nothing: it throws

  friend void PrintTo(const Required& row, std::ostream* out) { *out << row.about; }
};

class RequiredString : public testing::TestWithParam<Required> {};

TEST_P(RequiredString, isTheStringOrAnErrorThatNamesTheKey) {
  const auto& [about, arguments, text] = GetParam();
  try {
    const std::string_view found = requiredString("id", arguments);
    ASSERT_TRUE(text) << about;
    EXPECT_EQ(found, *text) << about;
  } catch (const RPCError& error) {
    EXPECT_FALSE(text) << about;
    EXPECT_EQ(error.message(), "Missing \"id\"") << about;
    EXPECT_EQ(error.code(), -32602) << about;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Tool, RequiredString,
    testing::Values(Required{"a text", {{"id", "abc"}}, "abc"}, Required{"a single space", {{"id", " "}}, " "},
                    Required{"a NUL", {{"id", "\0"sv}}, "\0"sv}, Required{"an empty text", {{"id", ""}}, {}},
                    Required{"a number", {{"id", 5}}, {}}, Required{"null", {{"id", nullptr}}, {}},
                    Required{"a Bool", {{"id", true}}, {}}, Required{"an array", {{"id", JSON::Array{"abc"}}}, {}},
                    Required{"an object", {{"id", JSON::Object{{"id", "abc"}}}}, {}},
                    Required{"another key", {{"ID", "abc"}}, {}}, Required{"no member", {}, {}}),
    RowName());

TEST(ToolResult, holdsOneTextAndSaysWhetherItIsAnError) {
  EXPECT_EQ(toolResult("", false).encoded(), R"({"content":[{"text":"","type":"text"}],"isError":false})");
  EXPECT_EQ(toolResult("a \"b\"\n", true).encoded(),
            R"({"content":[{"text":"a \"b\"\n","type":"text"}],"isError":true})");
}

TEST(Tool, returnsTheTextThatItWrites) {
  const Tool returning("a", "", schema({}, {}), [](const JSON::Object&) { return std::string("a \"b\""); });
  const Tool writing("a", "", schema({}, {}), [](const JSON::Object&, ResultText& text) {
    text.reserve(100);
    text.append("a ");
    text.append("\"b\"\xFF");
  });
  EXPECT_EQ(returning.run({}), "a \"b\"");
  EXPECT_EQ(returning.writer(), nullptr);
  EXPECT_EQ(writing.run({}), "a \"b\"\xFF");
  EXPECT_NE(writing.writer(), nullptr);
}

TEST(ResultText, appendsMarkupAndStringsAsTheJSONTextThatTheyAre) {
  static constexpr ResultText::Markup start(R"({"a\":")");
  static constexpr ResultText::Markup end(R"("})");
  const std::string strings[] = {"",     "plain",        "caf\u00E9",           "\"", "\\", "\n\x01",
                                 "\xFF", "\xF0\x9F\x98", std::string(3000, '"')};
  for (const std::string& string : strings) {
    std::string plain, escaped;
    for (const auto& [form, out] :
         {std::pair(ResultText::Form::plain, &plain), std::pair(ResultText::Form::escaped, &escaped)}) {
      ResultText text(*out, form);
      text.append(start);
      text.appendString(string);
      text.append(end);
    }
    EXPECT_EQ(plain, R"({"a\":)" + JSON(string).encoded() + "}");
    EXPECT_EQ('"' + escaped + '"', JSON(plain).encoded());
  }
}

TEST(ResultText, appendsToWhatIsThereInItsForm) {
  for (const auto& [form, expected] : {std::pair(ResultText::Form::plain, "before \"\n\xFF\""),
                                       std::pair(ResultText::Form::escaped, "before \\\"\\n\uFFFD\\\"")}) {
    std::string out = "before ";
    ResultText text(out, form);
    text.append("\"\n\xFF");
    text.append("");
    text.append("\"");
    EXPECT_EQ(out, expected);
  }
}

}  // namespace
}  // namespace kelvane
