#include <gtest/gtest.h>
#include <malloc.h>

#include <limits>
#include <new>
#include <thread>
#include <vector>

#include "protocol/JSON.h"
#include "tests/support/RowName.h"

namespace kelvane {
namespace {

using tests::RowName;

// A Bool is made only from a bool, and a number from any other arithmetic type. A pointer never becomes a Bool.
static_assert(std::is_constructible_v<JSON, bool> && std::is_constructible_v<JSON, char>);
static_assert(!std::is_constructible_v<JSON, int*> && !std::is_constructible_v<JSON, const void*>);

TEST(JSONValue, accessorsAreEmptyForAnotherKind) {
  const JSON values[] = {nullptr, true, 3, "3", JSON::Array{3}, JSON::Object{{"3", 3}}};
  const JSON::Kind kinds[] = {JSON::Kind::null,   JSON::Kind::boolean, JSON::Kind::number,
                              JSON::Kind::string, JSON::Kind::array,   JSON::Kind::object};
  for (std::size_t i = 0; i < std::size(values); ++i) {
    const JSON& value = values[i];
    EXPECT_EQ(value.kind(), kinds[i]);
    EXPECT_EQ(value.number().has_value(), i == 2);
    EXPECT_EQ(value.string().has_value(), i == 3);
    EXPECT_EQ(value.items() != nullptr, i == 4);
    EXPECT_EQ(value.object() != nullptr, i == 5);
    EXPECT_EQ(value["3"] != nullptr, i == 5);
  }
}

TEST(JSONValue, aMemberIsFoundByItsKey) {
  const auto value = JSON::decoded(R"({"a":1})");
  ASSERT_TRUE(value && (*value)["a"]);
  EXPECT_EQ((*value)["a"]->number(), 1.0);
  EXPECT_EQ((*value)["b"], nullptr);
  EXPECT_EQ((*value)["A"], nullptr);
  const JSON accented = JSON::Object{{"e\u0301", 1}};
  EXPECT_NE(accented["\u00e9"], nullptr);
  EXPECT_EQ(accented["e"], nullptr);
}

struct Pair {
  const char* about;
  JSON left;
  JSON right;
  bool equal;

  friend void PrintTo(const Pair& row, std::ostream* out) { *out << row.about; }
};

class Equality : public testing::TestWithParam<Pair> {};

TEST_P(Equality, holdsBothWays) {
  EXPECT_EQ(GetParam().left == GetParam().right, GetParam().equal) << GetParam().about;
  EXPECT_EQ(GetParam().right == GetParam().left, GetParam().equal) << GetParam().about;
}

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

INSTANTIATE_TEST_SUITE_P(
    JSON, Equality,
    testing::Values(
        Pair{"nulls", nullptr, nullptr, true}, Pair{"Bools", true, true, true}, Pair{"other Bools", true, false, false},
        Pair{"a number is no Bool", 1, true, false}, Pair{"a string is no number", "1", 1, false},
        Pair{"null is not false", nullptr, false, false},
        Pair{"an empty array is no empty object", JSON::Array(), JSON::Object(), false},
        Pair{"zeros of both signs", 0.0, -0.0, true}, Pair{"a NaN and itself", notANumber, notANumber, false},
        Pair{"strings", "abc", "abc", true}, Pair{"strings of other case", "abc", "abC", false},
        Pair{"canonically equal strings", "\u00e9", "e\u0301", true},
        Pair{"an ASCII letter and its canonical twin", "K", "\u212a", true},
        Pair{"canonically equal long strings", "a long string with \u00e9", "a long string with e\u0301", true},
        Pair{"compatible strings only", "\ufb01", "fi", false},
        Pair{"strings that are not UTF-8", "\xFF", "\xFF", true},
        Pair{"other strings that are not UTF-8", "\xFF", "\xFE", false},
        Pair{"a string that is not UTF-8 and its replacement", "\xFF", "\uFFFD", false},
        Pair{"not UTF-8, so compared as bytes", "\xFF\u00e9",
             "\xFF"
             "e\u0301",
             false},
        Pair{"arrays", JSON::Array{1, "a"}, JSON::Array{1, "a"}, true},
        Pair{"arrays in another order", JSON::Array{1, 2}, JSON::Array{2, 1}, false},
        Pair{"arrays of other lengths", JSON::Array{1}, JSON::Array{1, 1}, false},
        Pair{"an empty array and another", JSON::Array(), JSON::Array{1}, false},
        Pair{"objects in any order", JSON::Object{{"a", 1}, {"b", 2}}, JSON::Object{{"b", 2}, {"a", 1}}, true},
        Pair{"objects with other values", JSON::Object{{"a", 1}}, JSON::Object{{"a", 2}}, false},
        Pair{"objects with other keys", JSON::Object{{"a", 1}}, JSON::Object{{"b", 1}}, false},
        Pair{"objects with canonically equal keys", JSON::Object{{"\u00e9", 1}}, JSON::Object{{"e\u0301", 1}}, true},
        Pair{"objects of other sizes", JSON::Object{{"a", 1}}, JSON::Object{{"a", 1}, {"b", 1}}, false},
        Pair{"a difference behind nested values", JSON::Array{JSON::Array{1}, JSON::Object{{"a", 1}}, 2},
             JSON::Array{JSON::Array{1}, JSON::Object{{"a", 1}}, 3}, false}),
    RowName());

TEST(JSONValue, arraysThatShareStorageAreEqualWithoutALookAtTheirValues) {
  const JSON array = JSON::Array{notANumber};
  const JSON copy = array;
  EXPECT_EQ(array, copy);
  EXPECT_NE(array, JSON(JSON::Array{notANumber}));
  const JSON object = JSON::Object{{"a", notANumber}};
  const JSON sameObject = object;
  EXPECT_NE(object, sameObject);
  const JSON around = JSON::Array{object};
  const JSON sameAround = around;
  EXPECT_EQ(around, sameAround);
}

TEST(JSONValue, aCopyKeepsItsContentWhenTheOriginalChanges) {
  JSON::Array items{1, 2};
  const JSON kept = items;
  items.append(3);
  EXPECT_EQ(kept.encoded(), "[1,2]");
  EXPECT_EQ(JSON(items).encoded(), "[1,2,3]");

  JSON::Object members{{"a", 1}, {"b", 2}};
  const JSON::Object before = members;
  members.set("a", 5);
  members.set("c", 6);
  EXPECT_TRUE(members.erase("b"));
  EXPECT_FALSE(members.erase("b"));
  EXPECT_EQ(JSON(before).encoded(), R"({"a":1,"b":2})");
  EXPECT_EQ(JSON(members).encoded(), R"({"a":5,"c":6})");
}

TEST(JSONValue, partsOutliveTheDocumentTheyWereTakenFrom) {
  std::optional<JSON> document = JSON::decoded(R"({"list":[{"name":"a name of more than fourteen bytes"}]})");
  JSON list = *(*document)["list"];
  const JSON name = *(*list.items())[0]["name"];
  document.reset();
  EXPECT_EQ(list.encoded(), R"([{"name":"a name of more than fourteen bytes"}])");
  list = nullptr;
  EXPECT_EQ(name.string(), "a name of more than fourteen bytes");
}

TEST(JSONValue, changingAPartOfADocumentLeavesTheDocumentAlone) {
  const auto document = JSON::decoded(R"({"servers":{"one":{"command":"a rather long command"}},"z":[1]})");
  JSON::Object root = *document->object();
  JSON::Object servers = *root.find("servers")->object();
  servers.erase("one");
  servers.set("two", JSON::Array{*document});
  root.set("servers", servers);
  EXPECT_EQ(JSON(root).encoded(),
            R"({"servers":{"two":[{"servers":{"one":{"command":"a rather long command"}},"z":[1]}]},"z":[1]})");
  EXPECT_EQ(document->encoded(), R"({"servers":{"one":{"command":"a rather long command"}},"z":[1]})");
}

TEST(JSONValue, aValueCanBePutIntoItself) {
  JSON value = JSON::Array{"a string that is not short"};
  value = (*value.items())[0];
  EXPECT_EQ(value, "a string that is not short");
  JSON::Array items{1};
  items.append(items);
  EXPECT_EQ(JSON(items).encoded(), "[1,[1]]");
  value = *&value;
  EXPECT_EQ(value, "a string that is not short");
}

TEST(JSONValue, aValueThatWasMovedFromIsNull) {
  JSON value = "a string that is not short";
  const JSON other = std::move(value);
  EXPECT_EQ(value.kind(), JSON::Kind::null);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(other, "a string that is not short");
  JSON::Array items{1};
  const JSON array = std::move(items);
  EXPECT_TRUE(items.empty());  // NOLINT(bugprone-use-after-move)
}

TEST(JSONValue, objectsFromListsKeepTheLastOfEqualKeys) {
  EXPECT_EQ(JSON(JSON::Object{{"a", 1}, {"a", 2}}).encoded(), R"({"a":2})");
  EXPECT_EQ(JSON(JSON::Object({{"b", 0}, {"e\u0301", 1}, {"a", 2}, {"\u00e9", 3}, {"a", 4}})).encoded(),
            "{\"a\":4,\"b\":0,\"e\u0301\":3}");
  std::vector<std::pair<std::string, JSON>> members;
  for (int i = 999; i >= 0; --i) members.emplace_back(std::to_string(i % 100), i);
  const JSON::Object object(std::move(members));
  EXPECT_EQ(object.size(), 100);
  EXPECT_EQ(*object.find("7"), 7);
}

TEST(JSONValue, smallValuesAndCopiesTakeNoMemory) {
  // The system does not count a few small pieces of memory that it keeps ready, so there are many of each.
  constexpr std::size_t many = 100;
  const auto taken = [] { return ::mallinfo2().uordblks; };
  const auto isTakenByCopies = [&](const JSON& value) {
    std::vector<JSON> copies(many);
    std::vector<JSON> assigned(many);
    const auto before = taken();
    for (JSON& copy : copies) ::new (&copy) JSON(value);
    for (std::size_t i = 0; i < many; ++i) assigned[i] = copies[i];
    return taken() != before;
  };
  const auto isTakenByMaking = [&](const auto& content) {
    std::vector<JSON> values(many);
    const auto before = taken();
    for (JSON& value : values) value = content;
    return taken() != before;
  };
  if (!isTakenByMaking(std::string(15, 'x'))) {
    GTEST_SKIP() << "The memory that is taken cannot be told here, as under a sanitizer.";
  }
  EXPECT_FALSE(isTakenByMaking(nullptr));
  EXPECT_FALSE(isTakenByMaking(true));
  EXPECT_FALSE(isTakenByMaking(-1.5));
  EXPECT_FALSE(isTakenByMaking(std::string(14, 'x')));
  for (const JSON& value : {JSON(std::string(15, 'x')), JSON(JSON::Array{1, "a"}), JSON(JSON::Object{{"a", 1}}),
                            *JSON::decoded(R"({"a":["a string that is not short"]})")}) {
    EXPECT_FALSE(isTakenByCopies(value)) << value.encoded();
  }
}

TEST(JSONValue, threadsMayShareStorage) {
  // For the thread sanitizer: eight threads at once read, copy, change and destroy copies of one document and of one
  // value made by hand.
  const auto document = JSON::decoded(R"({"list":["a string that is not short",{"a":1}],"b":[[[]]]})");
  JSON::Object made{{"list", JSON::Array{"another string that is not short"}}};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([copy = *document, object = made, i] {
      for (int round = 0; round < 500; ++round) {
        JSON::Object mine = object;
        mine.set("document", copy);
        mine.set("round", round + i);
        JSON::Array list = *copy["list"]->items();
        list.append(mine);
        EXPECT_EQ(list.size(), 3);
        EXPECT_EQ(JSON(list), JSON(list));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(JSON(made).encoded(), R"({"list":["another string that is not short"]})");
}

}  // namespace
}  // namespace kelvane
