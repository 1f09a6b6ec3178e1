#include <gtest/gtest.h>

#include "protocol/JSON.h"
#include "tests/support/SmallStack.h"

namespace kelvane {
namespace {

std::string nested(std::string_view open, std::string_view inner, std::string_view close, std::size_t depth) {
  std::string json;
  json.reserve(depth * (open.size() + close.size()) + inner.size());
  for (std::size_t i = 0; i < depth; ++i) json += open;
  json += inner;
  for (std::size_t i = 0; i < depth; ++i) json += close;
  return json;
}

/// Decodes, copies, compares, encodes, changes and destroys on a stack that recursion would run out of.
void livesOnASmallStack(const std::string& json, const std::string& other) {
  tests::onSmallStack([&] {
    const std::optional<JSON> value = JSON::decoded(json);
    ASSERT_TRUE(value);
    const JSON copy = *value;  // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_TRUE(copy == *JSON::decoded(json));
    EXPECT_FALSE(copy == *JSON::decoded(other));
    EXPECT_TRUE(copy.encoded() == json);
  });
}

TEST(JSONDepth, aMillionNestedArraysNeedOnlyASmallStack) {
  livesOnASmallStack(nested("[", "0", "]", 1000000), nested("[", "1", "]", 1000000));
}

TEST(JSONDepth, halfAMillionNestedObjectsNeedOnlyASmallStack) {
  livesOnASmallStack(nested("{\"a\":", "0", "}", 500000), nested("{\"a\":", "1", "}", 500000));
}

TEST(JSONDepth, aMillionArraysThatNeverCloseAreRefused) {
  tests::onSmallStack([] { EXPECT_FALSE(JSON::decoded(std::string(1000000, '['))); });
}

TEST(JSONDepth, valuesNestedByHandAreDestroyedOnASmallStack) {
  tests::onSmallStack([] {
    const std::string_view inner = R"(["a string in a document of its own"])";
    JSON value = JSON::decoded(inner).value();
    for (int i = 0; i < 1000000; ++i) {
      JSON::Array around;
      around.append(std::move(value));
      value = around;
    }
    const JSON copy = value;
    EXPECT_TRUE(copy == value);
    value = nullptr;
    EXPECT_EQ(copy.encoded().size(), 2 * 1000000 + inner.size());
  });
}

TEST(JSONDepth, objectsNestedByHandAreDestroyedOnASmallStack) {
  tests::onSmallStack([] {
    JSON value = 0;
    for (int i = 0; i < 500000; ++i) value = JSON::Object{{"a", value}, {"b", JSON::Array{value}}};
    EXPECT_EQ(value.kind(), JSON::Kind::object);
  });
}

}  // namespace
}  // namespace kelvane
