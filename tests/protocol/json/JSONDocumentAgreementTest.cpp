#include <gtest/gtest.h>

#include "platform/json/JSONDocument.h"
#include "protocol/JSON.h"
#include "tests/support/Random.h"

// One grammar reads for both, so what is compared is what each makes of it: which values it holds, which members an
// object has, which keys are one, and what a change changes.
namespace kelvane {
namespace {

using tests::below;
using tests::oneOf;

constexpr std::string_view keys[] = {"a", "b", "", "\u00E9", "e\u0301", "mcpServers", "k\"\\\n"};

/// JSON with equal keys in different spellings, odd layouts, and values that no JSON value can hold.
std::string randomJSON(std::mt19937_64& random) {
  static constexpr std::string_view spaces[] = {"", "", "", " ", "\n  ", "\r\n", "\t", "\n"};
  static constexpr std::string_view spelled[] = {R"("\u0061")", R"("\u00e9")", R"("e\u0301")", R"("\/")",
                                                 R"("\udead")"};
  static constexpr std::string_view values[] = {"null",
                                                "true",
                                                "1.50",
                                                "12345678901234567890",
                                                "1E-999",
                                                "-1e999",
                                                R"("x\ty\ud83d\ude00")",
                                                R"("\ud83d")",
                                                "[]",
                                                R"([{"a":[1]} , "b"])"};
  const auto space = [&] { return std::string(oneOf(spaces, random)); };
  const auto value = [&] { return std::string(oneOf(values, random)); };
  const auto object = [&](auto makeValue) {
    std::string json = "{" + space();
    for (std::size_t i = 0, count = below(4, random); i < count; ++i) {
      const std::string key(below(4, random) == 0 ? oneOf(spelled, random) : quotedJSON(oneOf(keys, random)));
      json += (i > 0 ? "," : "") + space() + key + space() + ":" + space() + makeValue() + space();
    }
    return json + "}";
  };
  const auto valueOrObject = [&] { return below(2, random) == 0 ? value() : object(value); };
  return (below(8, random) == 0 ? "\xEF\xBB\xBF" : "") + space() +
         (below(8, random) == 0 ? value() : object(valueOrObject)) + space();
}

TEST(JSONDocument, hasTheMembersThatTheDecoderReads) {
  std::mt19937_64 random = tests::seededGenerator();
  int beyondValues = 0;
  for (int i = 0; i < 6000; ++i) {
    const std::string json = randomJSON(random);
    SCOPED_TRACE(json);
    const auto document = JSONDocument::read(json);
    ASSERT_TRUE(document.has_value());
    const std::string decodable = document->decodable();
    ASSERT_EQ(decodable == json, JSON::decoded(json).has_value());
    if (decodable != json) ++beyondValues;
    const auto decoded = JSON::decoded(decodable);
    ASSERT_TRUE(decoded.has_value()) << decodable;
    const auto stoodIn = JSONDocument::read(decodable);
    ASSERT_TRUE(stoodIn.has_value()) << decodable;
    ASSERT_EQ(stoodIn->root().begin, document->root().begin);
    ASSERT_EQ(stoodIn->root().end, document->root().end);
    ASSERT_EQ(static_cast<int>(stoodIn->root().kind), static_cast<int>(decoded->kind()));
    ASSERT_EQ(JSON::decoded(stoodIn->written(stoodIn->root())), decoded);
    if (decoded->object() == nullptr) continue;
    std::vector<std::pair<std::string, JSON>> members;
    for (const JSONDocument::Member& member : stoodIn->members(stoodIn->root())) {
      members.emplace_back(member.key, JSON::decoded(stoodIn->written(member.value)).value());
    }
    ASSERT_EQ(JSON(JSON::Object(members)), *decoded);
  }
  EXPECT_GT(beyondValues, 100);
  EXPECT_LT(beyondValues, 5000);
}

TEST(JSONDocument, changesWhatTheDecoderReadsAndNothingElse) {
  std::mt19937_64 random = tests::seededGenerator();
  for (int i = 0; i < 6000; ++i) {
    const std::string json = randomJSON(random);
    SCOPED_TRACE(json);
    auto edited = JSONDocument::read(json).value();
    const JSON before = JSON::decoded(edited.decodable()).value();
    const std::string_view outer = oneOf(keys, random);
    const std::string_view inner = oneOf(keys, random);
    const auto objectAt = [](const JSON* value) {
      return value && value->object() ? *value->object() : JSON::Object();
    };
    JSON::Object root = objectAt(&before);
    JSON::Object nested = objectAt(root.find(outer));
    if (below(2, random) == 0) {
      nested.set(inner, "new");
      root.set(outer, nested);
      edited.set({outer, inner}, R"("new")");
      ASSERT_EQ(JSON::decoded(edited.decodable()), JSON(root)) << edited.json();
      const std::string once = edited.json();
      edited.set({outer, inner}, R"("new")");
      ASSERT_EQ(edited.json(), once);
    } else {
      const bool wasThere = nested.erase(inner);
      if (wasThere) root.set(outer, nested);
      ASSERT_EQ(edited.erase({outer, inner}), wasThere);
      ASSERT_EQ(JSON::decoded(edited.decodable()), wasThere ? JSON(root) : before) << edited.json();
      ASSERT_TRUE(wasThere || edited.json() == json);
    }
    ASSERT_EQ(edited.root().end, JSONDocument::read(edited.json())->root().end);
  }
}

}  // namespace
}  // namespace kelvane
