#include <gtest/gtest.h>

#include <bit>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "protocol/JSON.h"
#include "tests/protocol/CountedMemory.h"

namespace kelvane {
namespace {

using tests::CountedMemory;

std::string repeated(std::string_view piece, std::size_t times) {
  std::string all;
  for (; times > 0; --times) all += piece;
  return all;
}

/// Keys of every kind, each with a second spelling if it has one, and with a different key.
const struct Spelling {
  const char* what;
  std::string key, other, different;
} spellings[] = {
    {"ASCII", "key", "key", "kez"},
    {"an accent of its own", "caf\u00E9", "cafe\u0301", "cafe"},
    {"an accent on what went before", "e\u0301", "\u00E9", "e\u0300"},
    {"a long string", repeated("caf\u00E9 ", 500), repeated("cafe\u0301 ", 500), repeated("cafe ", 500)},
    {"Hangul", "\uD55C", "\u1112\u1161\u11AB", "\u1112\u1161"},
    {"an ASCII letter's twin", "K", "\u212A", "k"},
    {"a long run of marks", "x" + repeated("\u0305\u0332", 2000), "x" + repeated("\u0332\u0305", 2000),
     "x" + repeated("\u0332\u0305", 2001)},
    {"a run of marks that the letter takes up late", "e" + repeated("\u0323", 1000) + "\u0301",
     "\u00E9" + repeated("\u0323", 1000), "\u00E9" + repeated("\u0323", 999)},
    {"not UTF-8", "\u00E9\xFF", "\u00E9\xFF", "e\u0301\xFF"},
};

JSON::Object everyKey() {
  JSON::Object object;
  for (const Spelling& row : spellings) object.set(row.key, row.what);
  return object;
}

TEST(JSONMemory, findingAKeyAllocatesNothing) {
  const JSON::Object object = everyKey();
  const JSON value = object;
  for (const Spelling& row : spellings) {
    const JSON *found, *same, *member, *missing;
    JSON::Object changed = object;
    bool isErased;
    std::size_t asked;
    {
      const CountedMemory memory(0);
      found = object.find(row.key);
      same = object.find(row.other);
      member = value[row.other];
      missing = object.find(row.different);
      isErased = changed.erase(row.different);
      asked = memory.asked();
    }
    EXPECT_TRUE(found != nullptr && *found == row.what) << row.what;
    EXPECT_EQ(same, found) << row.what;
    EXPECT_TRUE(member != nullptr && *member == row.what) << row.what;
    EXPECT_EQ(missing, nullptr) << row.what;
    EXPECT_FALSE(isErased) << row.what;
    EXPECT_EQ(asked, 0u) << row.what;
  }
}

/// Does something with more and more memory until it succeeds. Expects that each failure is std::bad_alloc and leaks
/// nothing. Returns the number of failures.
template <class Action>
int timesOutOfMemory(const char* what, const Action& action) {
  for (std::size_t pieces = 0;; ++pieces) {
    bool isOut = false;
    std::ptrdiff_t held;
    {
      const CountedMemory memory(pieces);
      try {
        action();
      } catch (const std::bad_alloc&) {
        isOut = true;
      }
      held = memory.held();
    }
    EXPECT_EQ(held, 0) << what << ", with memory for " << pieces;
    if (!isOut) return static_cast<int>(pieces);
  }
}

constexpr const char* longString = "a string that is not short";

TEST(JSONMemory, runningOutOfMemoryThrowsAndLeaksNothing) {
  const std::vector<std::pair<std::string, JSON>> members{{"a key that is not short", 1}, {"b\u00E9", longString}};
  const std::string document =
      R"({"a key that is not short":["\u00e9 in a string that is not short",[[{}]]],"\u00e9":1})";
  const JSON::Object object = everyKey();
  const struct {
    const char* what;
    std::function<void()> action;
    int least;
  } rows[] = {
      {"a string", [] { const JSON string = longString; }, 1},
      {"an array of values",
       [] {
         const JSON::Array array{longString, longString};
       },
       3},
      {"an object of members",
       [] {
         const JSON::Object made{{"a", longString}, {"b", longString}, {"c", longString}, {"d", longString}};
       },
       5},
      {"an object of members with long keys",
       [] {
         const JSON::Object made{{"a key that is not short", 1}, {"another that is not short", 1}};
       },
       3},
      {"an object of a list", [&] { const JSON::Object made(members); }, 3},
      {"a document", [&] { const auto decoded = JSON::decoded(document); }, 2},
      {"a document that is refused", [&] { const auto decoded = JSON::decoded(document + "x"); }, 2},
      {"setting a member of a shared object",
       [&] {
         JSON::Object changed = object;
         changed.set("a\u0301 key that is not short", 1);
       },
       2},
      {"erasing a member of a shared object",
       [&] {
         JSON::Object changed = object;
         changed.erase("cafe\u0301");
       },
       1},
      {"writing", [&] { const std::string json = JSON(object).encoded(); }, 1},
  };
  for (const auto& row : rows) EXPECT_GE(timesOutOfMemory(row.what, row.action), row.least) << row.what;
}

TEST(JSONMemory, aChangeThatRunsOutOfMemoryLeavesTheObjectAsItWas) {
  const JSON::Object before = everyKey();
  for (std::size_t pieces = 0; pieces < 2; ++pieces) {
    JSON::Object changed = before;
    bool isOut = false;
    {
      const CountedMemory memory(pieces);
      try {
        changed.set("a\u0301 key that is not short", 1);
      } catch (const std::bad_alloc&) {
        isOut = true;
      }
    }
    EXPECT_TRUE(isOut) << pieces;
    EXPECT_EQ(JSON(changed).encoded(), JSON(before).encoded());
  }
}

TEST(JSONMemory, aRefusedDocumentLeaksNothing) {
  const std::string string = '"' + std::string(1000, 'x') + '"';
  const struct {
    const char* what;
    std::string document;
  } rows[] = {
      {"refused behind its only value", string + "x"},
      {"refused within an array", "[" + string + ",[" + string + ",[1,2]],}"},
      {"refused within an object", "{" + string + ":" + string + ",\"b\":[1,2,3],}"},
      {"refused for an escape", "[" + string + R"(,"\ud800 and more of it than is kept inline"])"},
      {"refused behind many chunks", "[" + string + repeated("," + string, 5000) + "}"},
      {"refused in the midst of it", "[[1,2,3]," + string + ",nul]"},
  };
  for (const auto& row : rows) {
    bool isRefused;
    std::size_t asked;
    std::ptrdiff_t held;
    {
      const CountedMemory memory;
      isRefused = !JSON::decoded(row.document);
      asked = memory.asked();
      held = memory.held();
    }
    EXPECT_TRUE(isRefused) << row.what;
    EXPECT_GT(asked, 0u) << row.what << ": there was something to leave behind";
    EXPECT_EQ(held, 0) << row.what;
  }
}

TEST(JSONMemory, appendingCopiesSeldom) {
  for (const std::size_t count : {100u, 1000u, 10'000u}) {
    std::size_t asked;
    {
      const CountedMemory memory;
      JSON::Array array;
      for (std::size_t i = 0; i < count; ++i) array.append(static_cast<double>(i));
      asked = memory.asked();
    }
    EXPECT_LE(asked, std::bit_width(count) + 1) << "an array that doubles in size, for " << count << " values";
    {
      const CountedMemory memory;
      JSON::Object object;
      char key[] = "AA";
      for (std::size_t i = 0; i < 26 * 26; ++i) {
        key[0] = static_cast<char>('A' + i / 26);
        key[1] = static_cast<char>('A' + i % 26);
        object.set(key, i);
      }
      asked = memory.asked();
    }
    EXPECT_LE(asked, 12u) << "an object of 676 members";
  }
}

TEST(JSONMemory, theFirstChangeCopiesSharedStorageOnce) {
  JSON::Array array;
  for (int i = 0; i < 1000; ++i) array.append(i);
  const JSON::Array kept = array;
  std::size_t asked;
  {
    const CountedMemory memory;
    for (int i = 0; i < 900; ++i) array.append(i);
    asked = memory.asked();
  }
  EXPECT_EQ(asked, 1u);
  EXPECT_EQ(kept.size(), 1000u);
}

TEST(JSONMemory, escapingReservesRoomOnceIfEscapesAreFewAndTwiceIfTheyAreMany) {
  const struct {
    const char* what;
    char byte;
    std::size_t most;
  } rows[] = {{"no escapes", 'x', 1}, {"each byte is escaped by two", '\n', 2}, {"by six", '\x01', 2}};
  for (const auto& row : rows) {
    const std::string string(5'000'000, row.byte);
    std::string escaped;
    std::size_t asked = 0;
    {
      const CountedMemory memory;
      JSON::appendEscaped(string, escaped);
      asked = memory.asked();
    }
    EXPECT_LE(asked, row.most) << row.what;
    EXPECT_LE(escaped.capacity(), 2 * escaped.size()) << row.what;
  }
}

}  // namespace
}  // namespace kelvane
