#include <gtest/gtest.h>

#include <initializer_list>
#include <utility>
#include <vector>

#include "protocol/JSON.h"

namespace kelvane {
namespace {

using Array = JSON::Array;
using Object = JSON::Object;

template <class Result, class Value>
Result returnedInBraces(Value&& value) {
  return {std::forward<Value>(value)};
}

// Braces that compilers disagree about. Here all compilers must agree.
TEST(JSONBraces, aroundOneValueOfTheSameTypeCopyIt) {
  Array array{1, "a"};
  const Array constant = array;
  const Array direct{array}, ofConstant{constant}, ofTemporary{Array{1, "a"}}, ofMoved{Array(array)};
  const Array copied = {array}, copiedConstant = {constant}, copiedTemporary = {Array{1, "a"}};
  const Array inBoth({array}), constantInBoth({constant}), temporaryInBoth({Array{1, "a"}}), twice{{array}};
  for (const Array* copy : {&direct, &ofConstant, &ofTemporary, &ofMoved, &copied, &copiedConstant, &copiedTemporary,
                            &inBoth, &constantInBoth, &temporaryInBoth, &twice}) {
    EXPECT_EQ(JSON(*copy).encoded(), R"([1,"a"])");
  }
  EXPECT_EQ(JSON(returnedInBraces<Array>(array)).encoded(), R"([1,"a"])");
  EXPECT_EQ(JSON(returnedInBraces<Array>(constant)).encoded(), R"([1,"a"])");
  EXPECT_EQ(JSON(returnedInBraces<Array>(Array{1, "a"})).encoded(), R"([1,"a"])");
  EXPECT_EQ(JSON(Array{Array()}).encoded(), "[]");

  Object object{{"a", 1}};
  const Object constantObject = object;
  const Object members{object}, constantMembers{constantObject}, moreMembers = {object}, membersInBoth({object});
  for (const Object* copy : {&members, &constantMembers, &moreMembers, &membersInBoth}) {
    EXPECT_EQ(JSON(*copy).encoded(), R"({"a":1})");
  }
  EXPECT_EQ(JSON(returnedInBraces<Object>(object)).encoded(), R"({"a":1})");
  EXPECT_EQ(JSON(Object{Object{{"a", 1}}}).encoded(), R"({"a":1})");

  for (const JSON& value : {JSON(nullptr), JSON(true), JSON("a"), JSON(array), JSON(object)}) {
    const JSON copy{value}, other = {value}, inParentheses({value}), ofTemporary2{JSON(value)};
    for (const JSON* each : {&copy, &other, &inParentheses, &ofTemporary2}) EXPECT_EQ(*each, value);
    EXPECT_EQ(returnedInBraces<JSON>(value), value);
  }
}

TEST(JSONBraces, aroundAnArrayOrObjectForAValueMakeItThatValue) {
  const Array array{1};
  const Object object{{"a", 1}};
  EXPECT_EQ(JSON{array}.encoded(), "[1]");
  EXPECT_EQ(returnedInBraces<JSON>(array).encoded(), "[1]");
  EXPECT_EQ(JSON{object}.encoded(), R"({"a":1})");
  EXPECT_EQ(returnedInBraces<JSON>(object).encoded(), R"({"a":1})");
}

TEST(JSONBraces, aroundAnythingElseMakeAList) {
  const Array array{1};
  const Object object{{"a", 1}};
  const struct {
    const char* what;
    Array array;
    const char* json;
  } rows[] = {
      {"an array that is said to be a value", Array{JSON(array)}, "[[1]]"},
      {"the same in parentheses", Array({JSON(array)}), "[[1]]"},
      {"a value that is an array", Array{JSON(Array{JSON(array)})}, "[[[1]]]"},
      {"two arrays", Array{array, array}, "[[1],[1]]"},
      {"an array and a number", Array{array, 2}, "[[1],2]"},
      {"an object", Array{object}, R"([{"a":1}])"},
      {"a string", Array{"a"}, R"(["a"])"},
      {"null", Array{nullptr}, "[null]"},
      {"a Bool and a number", Array{true, 1}, "[true,1]"},
      {"empty braces", Array{{}, {}}, "[null,null]"},
      {"numbers in braces of their own", Array{{1}, {2}}, "[1,2]"},
      {"nothing", Array{}, "[]"},
      {"a list", Array(std::initializer_list<JSON>{1, array}), "[1,[1]]"},
      {"a list of one array", Array(std::initializer_list<JSON>{array}), "[[1]]"},
      {"a vector", Array(std::vector<JSON>{1, array}), "[1,[1]]"},
      {"a vector of one array", Array(std::vector<JSON>{JSON(array)}), "[[1]]"},
  };
  for (const auto& row : rows) EXPECT_EQ(JSON(row.array).encoded(), row.json) << row.what;
}

// What lives only as long as a value cannot be taken from a temporary.

template <class Value>
concept HandsOutString = requires(Value&& value) {
  std::forward<Value>(value).string();
};
template <class Value>
concept HandsOutItems = requires(Value&& value) {
  std::forward<Value>(value).items();
};
template <class Value>
concept HandsOutMembers = requires(Value&& value) {
  std::forward<Value>(value).object();
};
template <class Value>
concept HandsOutAMember = requires(Value&& value) {
  std::forward<Value>(value)["key"];
};
template <class Value>
concept HandsOutAnItem = requires(Value&& value) {
  std::forward<Value>(value)[std::size_t{}];
};
template <class Value>
concept Finds = requires(Value&& value) {
  std::forward<Value>(value).find("key");
};
template <class Value>
concept HasABegin = requires(Value&& value) {
  std::forward<Value>(value).begin();
};
template <class Value>
concept HasAnEnd = requires(Value&& value) {
  std::forward<Value>(value).end();
};
template <class Value>
concept HasAKey = requires(Value&& value) {
  std::forward<Value>(value).key();
};
template <class Value>
concept HasAValue = requires(Value&& value) {
  std::forward<Value>(value).value();
};

#define ONLY_OF_WHAT_STAYS(Asks, Type)             \
  static_assert(Asks<Type&> && Asks<const Type&>); \
  static_assert(!Asks<Type> && !Asks<const Type>)

ONLY_OF_WHAT_STAYS(HandsOutString, JSON);
ONLY_OF_WHAT_STAYS(HandsOutItems, JSON);
ONLY_OF_WHAT_STAYS(HandsOutMembers, JSON);
ONLY_OF_WHAT_STAYS(HandsOutAMember, JSON);
ONLY_OF_WHAT_STAYS(HandsOutAnItem, JSON::Array);
ONLY_OF_WHAT_STAYS(HasABegin, JSON::Array);
ONLY_OF_WHAT_STAYS(HasAnEnd, JSON::Array);
ONLY_OF_WHAT_STAYS(Finds, JSON::Object);
ONLY_OF_WHAT_STAYS(HasABegin, JSON::Object);
ONLY_OF_WHAT_STAYS(HasAnEnd, JSON::Object);
ONLY_OF_WHAT_STAYS(HasAKey, JSON::Member);
ONLY_OF_WHAT_STAYS(HasAValue, JSON::Member);

TEST(JSONBraces, aTemporaryCanBeIterated) {
  std::string json;
  for (const JSON& item : Array{1, "a"}) json += item.encoded();
  for (const JSON::Member& member : Object{{"k", 2}}) json += member.key();
  EXPECT_EQ(json, "1\"a\"k");
  EXPECT_EQ(Array({1, 2}).size(), 2u);
}

}  // namespace
}  // namespace kelvane
