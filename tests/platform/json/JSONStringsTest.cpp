#include "platform/json/JSONStrings.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/Unicode.h"

namespace kelvane {
namespace {

using jsonscanner::closingQuote;

/// What `unescaped` makes of a string without its quotes; std::nullopt if it refuses it. The string ends so many bytes
/// before the document does.
std::optional<std::string> unescaped(const std::string& string, std::size_t bytesAfter = 0) {
  const std::string json = '"' + string + '"' + std::string(bytesAfter, ' ');
  // Exactly as much memory as there must be, so that the address sanitizer sees each byte beyond it.
  const std::vector<char> document(json.begin(), json.end());
  std::vector<char> room(string.size() + jsonscanner::unescapedSlack);
  const char* const begin = document.data() + 1;
  const auto found = jsonscanner::unescaped(
      begin, begin + string.size(), document.data() + document.size(), room.data(),
      [](void*, const char*) { return false; }, nullptr);
  if (found.end == nullptr) return std::nullopt;
  const std::string result(room.data(), found.end);
  EXPECT_EQ(found.isASCII, unicode::isASCII(result)) << testing::PrintToString(string);
  return result;
}

/// All strings of that many of the letters.
std::vector<std::string> stringsOf(const std::string& letters, std::size_t size) {
  std::vector<std::string> all = {""};
  for (; size > 0; --size) {
    std::vector<std::string> longer;
    for (const std::string& string : all) {
      for (const char letter : letters) longer.push_back(string + letter);
    }
    all = std::move(longer);
  }
  return all;
}

TEST(JSONStrings, findsTheQuoteThatNoBackslashEscapes) {
  for (std::size_t before = 0; before <= 34; ++before) {
    for (const std::string& end : stringsOf("a\\\"", 6)) {
      const std::string string = std::string(before, 'x') + end;
      const char* expected = nullptr;
      for (std::size_t i = 0; i < string.size() && expected == nullptr; ++i) {
        if (string[i] == '\\') {
          ++i;
        } else if (string[i] == '"') {
          expected = string.data() + i;
        }
      }
      ASSERT_EQ(closingQuote(string.data(), string.data() + string.size()), expected) << string;
    }
  }
}

TEST(JSONStrings, acceptsExactlyWhatIsUTF8) {
  // Every lead with every second byte, then with third and fourth bytes from both sides of each limit.
  const std::string limits = "\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0 ";
  std::vector<std::string> sequences;
  for (int lead = 0x80; lead <= 0xFF; ++lead) {
    sequences.push_back({static_cast<char>(lead)});
    for (int second = 0x7F; second <= 0xC0; ++second) {
      const std::string two = {static_cast<char>(lead), static_cast<char>(second)};
      sequences.push_back(two);
      for (const char third : limits) {
        sequences.push_back(two + third);
        if (lead < 0xE0) continue;
        for (const char fourth : limits) sequences.push_back(two + third + fourth);
      }
    }
  }
  for (const std::size_t before : {0U, 1U, 12U, 13U, 14U, 15U, 16U, 29U}) {
    for (const std::string& sequence : sequences) {
      for (const char* after : {"", "z", "\\n", "\u00e9"}) {
        const std::string string = std::string(before, 'x') + sequence + after;
        ASSERT_EQ(unescaped(string).has_value(), unicode::isValidUTF8(string)) << testing::PrintToString(string);
      }
    }
  }
}

TEST(JSONStrings, replacesEscapesWhereverTheyAre) {
  const struct {
    const char* written;
    const char* said;  // nullptr: refused
  } rows[] = {
      {R"(\n)", "\n"},
      {R"(\\\\\")", R"(\\")"},
      {R"(\/\b\f\r\t)", "/\b\f\r\t"},
      {R"(\u0041)", "A"},
      {R"(\u00e9\u65E5)", "\u00e9\u65e5"},
      {R"(\ud83d\ude00\\)", "\U0001F600\\"},
      {"\u00e9\\n\u65e5\\\\\U0001F600", "\u00e9\n\u65e5\\\U0001F600"},
      {R"(\ud83d\\)", nullptr},
      {R"(\ud83dx)", nullptr},
      {R"(\ude00)", nullptr},
      {R"(\x)", nullptr},
      {R"(\u00g0)", nullptr},
      {R"(\u00)", nullptr},
      {"\x1f", nullptr},
      {"a\n", nullptr},
  };
  for (const auto& row : rows) {
    for (std::size_t before = 0; before <= 34; ++before) {
      for (const std::size_t between : {0U, 1U, 7U, 16U}) {
        for (const std::size_t after : {0U, 5U, 40U}) {
          const auto twice = [&](const char* part) {
            return std::string(before, 'x').append(part).append(between, 'y').append(part);
          };
          const auto said = unescaped(twice(row.written), after);
          ASSERT_EQ(said.has_value(), row.said != nullptr) << row.written << " behind " << before;
          if (!said) continue;
          ASSERT_EQ(*said, twice(row.said)) << row.written << " behind " << before;
        }
      }
    }
  }
}

}  // namespace
}  // namespace kelvane
