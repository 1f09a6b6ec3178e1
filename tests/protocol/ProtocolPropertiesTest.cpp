#include "tests/protocol/ProtocolProperties.h"

#include <gtest/gtest.h>

#include "tests/support/Random.h"

namespace kelvane {
namespace {

/// A message with random edits, often not well-formed.
std::string randomLine(std::mt19937_64& generator) {
  static const std::string_view whole[] = {
      R"({"id":1,"method":"ping"})",
      R"({"id":"a","method":"tools/list","params":[]})",
      R"({"method":"notifications/initialized"})",
      R"({"id":2.5,"method":"initialize","params":{"protocolVersion":"\u00e9"}})",
      R"({"id":null,"method":"tools/call","params":{"name":"echo","arguments":{"text":"x"}}})",
      R"({"id":[{}],"method":"tools/call","params":{"name":"say","arguments":{"b":1e300,"a":[null]}}})",
      R"({"method":"tools/call","params":{"name":"bytes"}})",
      R"({"id":3,"method":"tools/call","params":{"name":"fail","arguments":{"\n":"\ud83d\ude00"}}})",
      R"({"id":3,"method":"tools/call","params":{"name":"break"}})",
  };
  static const std::string_view pieces[] = {
      "{",         "}",    "[",        "]",    ",",  ":",  "\"id\":", "\"method\":", "\"\"",        "null",      "1e9",
      "\"\\ud8\"", "-0.0", "\xC3\xA9", "\xFF", "\\", "\n", " ",       "9",           "\"e\u0301\"", "\"\u00e9\""};
  std::string line(tests::oneOf(whole, generator));
  for (std::size_t edits = tests::below(4, generator); edits > 0; --edits) {
    const std::size_t offset = tests::below(line.size() + 1, generator);
    line.replace(offset, tests::below(3, generator), tests::oneOf(pieces, generator));
  }
  return line;
}

TEST(ProtocolProperties, holdForLinesOfEveryShape) {
  auto generator = tests::seededGenerator();
  for (int round = 0; round < 30000; ++round) {
    const std::string line = randomLine(generator);
    ASSERT_EQ(brokenByJSON(line), "") << line;
    ASSERT_EQ(brokenByServer(line), "") << line;
  }
}

}  // namespace
}  // namespace kelvane
