#include <gtest/gtest.h>

#include "platform/Unicode.h"
#include "platform/json/JSONText.h"
#include "protocol/JSON.h"
#include "tests/support/Random.h"

namespace kelvane {
namespace {

/// JSON with equal keys, odd layouts and, here and there, a mistake.
class Texts {
 public:
  explicit Texts(std::mt19937_64 random) : random_(random) {}

  std::string next() {
    text_.clear();
    put(oneIn(8) ? "\xEF\xBB\xBF" : "");
    putValue(0);
    putBlanks();
    if (oneIn(4)) spoil();
    return text_;
  }

  std::string_view key() {
    static const std::string_view keys[] = {"a", "b", "", "\u00E9", "e\u0301", "mcpServers", "k\"\\\n"};
    return tests::oneOf(keys, random_);
  }

  bool oneIn(std::size_t count) { return tests::below(count, random_) == 0; }

 private:
  void put(std::string_view bytes) { text_ += bytes; }

  void putBlanks() {
    static const std::string_view blanks[] = {"", "", "", " ", "\n  ", "\r\n", "\t", "\n"};
    put(tests::oneOf(blanks, random_));
  }

  void putKey() {
    static const std::string_view spelled[] = {R"("\u0061")", R"("\u00e9")", R"("e\u0301")", R"("\/")"};
    put(oneIn(4) ? std::string(tests::oneOf(spelled, random_)) : quotedJSON(key()));
  }

  void putValue(int depth) {
    static const std::string_view scalars[] = {"null",
                                               "true",
                                               "false",
                                               "0",
                                               "-0.0",
                                               "1.50",
                                               "12345678901234567890",
                                               "1e999",
                                               "1E-999",
                                               "\"\"",
                                               "\"x\\ty\"",
                                               "\"\\ud83d\\ude00\"",
                                               "\"\\ud83d\""};
    putBlanks();
    const std::size_t count = tests::below(4, random_);
    if (depth > 3 || oneIn(2)) {
      // The impossible ones less often than the others.
      const std::string_view scalar = tests::oneOf(scalars, random_);
      put((scalar == "1e999" || scalar == "\"\\ud83d\"") && !oneIn(4) ? "7" : scalar);
    } else if (oneIn(3)) {
      put("[");
      for (std::size_t i = 0; i < count; ++i) {
        if (i > 0) put(",");
        putValue(depth + 1);
        putBlanks();
      }
      put("]");
    } else {
      put("{");
      putBlanks();
      for (std::size_t i = 0; i < count; ++i) {
        if (i > 0) put(",");
        putBlanks();
        putKey();
        putBlanks();
        put(":");
        putValue(depth + 1);
        putBlanks();
      }
      put("}");
    }
  }

  void spoil() {
    if (text_.empty()) return;
    static const std::string_view bytes[] = {"", ",", "\"", "}", "]", "{", ":", "\\", "\xFF", "0", "e", "."};
    text_.replace(tests::below(text_.size(), random_), tests::below(2, random_), tests::oneOf(bytes, random_));
  }

  std::mt19937_64 random_;
  std::string text_;
};

/// The keys of an object's members with their values, as the decoder reads each.
std::vector<std::pair<std::string, JSON>> decodedMembers(const JSONText& text) {
  std::vector<std::pair<std::string, JSON>> members;
  for (const JSONText::Member& member : text.members(text.root())) {
    const auto value = JSON::decoded(text.written(member.value));
    if (!value) throw std::runtime_error("A member's value is not what the decoder takes.");
    members.emplace_back(member.key, *value);
  }
  return members;
}

TEST(JSONText, judgesAndReadsLikeTheDecoder) {
  Texts texts(tests::seededGenerator());
  int accepted = 0;
  int beyondValues = 0;
  for (int i = 0; i < 6000; ++i) {
    const std::string text = texts.next();
    SCOPED_TRACE(text);
    auto decoded = JSON::decoded(text);
    auto read = JSONText::read(text);
    ASSERT_EQ(JSONText::fault(text).has_value(), !read.has_value());
    ASSERT_TRUE(read.has_value() || !decoded.has_value());
    if (!read) continue;
    // What only the one takes is JSON but for spots that no value can hold, and nothing else of it differs.
    const std::string decodable = read->decodable();
    ASSERT_EQ(decodable == text, decoded.has_value());
    ASSERT_EQ(decodable.size(), text.size());
    if (!decoded) {
      ++beyondValues;
      decoded = JSON::decoded(decodable);
      ASSERT_TRUE(decoded.has_value()) << decodable;
      const auto stoodIn = JSONText::read(decodable);
      ASSERT_TRUE(stoodIn.has_value());
      ASSERT_EQ(stoodIn->root().begin, read->root().begin);
      ASSERT_EQ(stoodIn->root().end, read->root().end);
      read = stoodIn;
    }
    ++accepted;
    ASSERT_EQ(static_cast<int>(read->root().kind), static_cast<int>(decoded->kind()));
    ASSERT_EQ(JSON::decoded(read->written(read->root())), decoded);
    if (decoded->object() == nullptr) continue;
    ASSERT_EQ(JSON(JSON::Object(decodedMembers(*read))), *decoded);
  }
  EXPECT_GT(beyondValues, 100);
  EXPECT_GT(accepted, 1500);
  EXPECT_LT(accepted, 5700);
}

TEST(JSONText, changesWhatTheDecoderReadsAndNothingElse) {
  Texts texts(tests::seededGenerator());
  for (int i = 0; i < 6000; ++i) {
    const std::string text = texts.next();
    auto edited = JSONText::read(text);
    if (!edited) continue;
    SCOPED_TRACE(text);
    const JSON before = *JSON::decoded(edited->decodable());
    const std::string_view outer = texts.key();
    const std::string_view inner = texts.key();
    const auto objectAt = [](const JSON* value) {
      return value && value->object() ? *value->object() : JSON::Object();
    };
    JSON::Object root = objectAt(&before);
    JSON::Object nested = objectAt(root.find(outer));
    if (texts.oneIn(2)) {
      nested.set(inner, "new");
      root.set(outer, nested);
      edited->set({outer, inner}, R"("new")");
      ASSERT_EQ(JSON::decoded(edited->decodable()), JSON(root)) << edited->text();
      const std::string once = edited->text();
      edited->set({outer, inner}, R"("new")");
      ASSERT_EQ(edited->text(), once);
    } else {
      const bool wasThere = nested.erase(inner);
      if (wasThere) root.set(outer, nested);
      ASSERT_EQ(edited->erase({outer, inner}), wasThere);
      ASSERT_EQ(JSON::decoded(edited->decodable()), wasThere ? JSON(root) : before) << edited->text();
      if (!wasThere) {
        ASSERT_EQ(edited->text(), text);
      }
    }
    ASSERT_EQ(edited->root().end, JSONText::read(edited->text())->root().end);
  }
}

}  // namespace
}  // namespace kelvane
