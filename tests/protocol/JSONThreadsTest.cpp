#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <thread>
#include <vector>

#include "protocol/JSON.h"

namespace kelvane {
namespace {

/// Gives each of some threads a copy of the value, keeps none, and lets each do something with its copy. So one thread
/// reads what another destroys or changes later. If the count of references does not order the two, the thread
/// sanitizer reports it.
void eachOfSomeThreads(const std::function<JSON()>& made, const std::function<void(JSON&)>& action) {
  for (int round = 0; round < 200; ++round) {
    std::optional<JSON> value = made();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([mine = *value, &action]() mutable {
        action(mine);
        mine = nullptr;
      });
    }
    value.reset();
    for (std::thread& thread : threads) thread.join();
  }
}

const struct {
  const char* what;
  std::function<JSON()> made;
} values[] = {
    {"a string", [] { return JSON("a string that is not short"); }},
    {"an array",
     [] {
       return JSON(JSON::Array{1, "a string that is not short"});
     }},
    {"an object",
     [] {
       return JSON(JSON::Object{{"a", JSON::Array{1, 2}}});
     }},
    {"a document", [] { return *JSON::decoded(R"({"a":["a string that is not short",[[1]]]})"); }},
};

TEST(JSONThreads, theLastThreadToDropAValueDestroysIt) {
  for (const auto& row : values) {
    const std::string expected = row.made().encoded();
    eachOfSomeThreads(row.made, [&](JSON& mine) { EXPECT_EQ(mine.encoded(), expected) << row.what; });
  }
}

TEST(JSONThreads, theLastThreadWithAValueMayChangeItInPlace) {
  const auto array = [] { return JSON(JSON::Array{1, 2, "a string that is not short"}); };
  eachOfSomeThreads(array, [](JSON& mine) {
    EXPECT_EQ((*mine.items())[0], 1);
    JSON::Array items = *mine.items();
    mine = nullptr;
    items.append(3);
    EXPECT_EQ(items.size(), 4u);
  });
  const auto object = [] { return JSON(JSON::Object{{"a", 1}, {"b", "a string that is not short"}}); };
  eachOfSomeThreads(object, [](JSON& mine) {
    EXPECT_EQ(*mine["a"], 1);
    JSON::Object members = *mine.object();
    mine = nullptr;
    members.set("a", 2);
    members.erase("b");
    EXPECT_EQ(JSON(members).encoded(), R"({"a":2})");
  });
}

}  // namespace
}  // namespace kelvane
