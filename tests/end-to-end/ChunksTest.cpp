#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/end-to-end/Client.h"
#include "tests/end-to-end/Folder.h"
#include "tests/support/Random.h"

namespace kelvane::tests {
namespace {

/// One hundred requests of all kinds, and the replies to them.
struct Conversation {
  std::string input;
  std::string output;
};

Conversation conversation() {
  Conversation result;
  const auto add = [&](const std::string& line, const std::string& reply) {
    result.input += line;
    if (!reply.empty()) result.output += reply + '\n';
  };
  const auto answer = [](int id, const char* text) {
    return "{\"id\":" + std::to_string(id) +
           ",\"jsonrpc\":\"2.0\",\"result\":{\"content\":[{\"text\":" + JSON(text).encoded() +
           ",\"type\":\"text\"}],\"isError\":false}}";
  };
  for (int id = 1; id <= 100; id += 5) {
    add(ping(id) + '\n', pong(id));
    add(callRequest(id + 1, "read_script", {{"id", "Übung 😀.md"}}) + "\r\n", answer(id + 1, "Grüße\r\n"));
    add("{\"id\":" + std::to_string(id + 2) + ",\"method\":\"nothing\"\n",
        R"({"error":{"code":-32700,"message":"Could not parse JSON"},"id":null,"jsonrpc":"2.0"})");
    add("\n \t\n" + callRequest(id + 3, "list_folders", {}) + '\n', answer(id + 3, "[]"));
    add("{\"id\":\"\xE2\x82\",\"method\":\"ping\"}\n", "{\"id\":\"\xEF\xBF\xBD\",\"jsonrpc\":\"2.0\",\"result\":{}}");
  }
  return result;
}

class Chunks : public testing::Test {
 protected:
  Chunks() { library.put("Übung 😀.md", "Grüße\r\n"); }

  /// What the server answers when the input comes in pieces of these sizes, each of which it reads alone.
  template <class Size>
  Outcome served(std::string_view input, Size nextSize) {
    Program program(Start{.arguments = {"serve", "--library", library.text()}, .inputInPackets = true});
    while (!input.empty()) {
      const std::size_t size = std::min(input.size(), nextSize());
      program.write(input.substr(0, size));
      input.remove_prefix(size);
    }
    return program.finish();
  }

  Folder library;
  Conversation all = conversation();
};

TEST_F(Chunks, oneHundredRequestsInOneWriteAreAnswered) {
  EXPECT_EQ(run({"serve", "--library", library.text()}, all.input), (Outcome{0, all.output, ""}));
}

TEST_F(Chunks, anyChunkingOfOneHundredRequestsGivesTheSameReplies) {
  for (const std::size_t size : {1U, 2U, 3U, 7U, 64U, 100U, 1000U, 4096U}) {
    SCOPED_TRACE("pieces of " + std::to_string(size));
    EXPECT_EQ(served(all.input, [&] { return size; }), (Outcome{0, all.output, ""}));
  }
}

TEST_F(Chunks, chunksOfRandomSizesGiveTheSameReplies) {
  std::mt19937_64 random = seededGenerator();
  for (const std::size_t most : {3U, 30U, 300U, 3000U}) {
    SCOPED_TRACE("pieces of up to " + std::to_string(most));
    EXPECT_EQ(served(all.input, [&] { return 1 + below(most, random); }), (Outcome{0, all.output, ""}));
  }
}

}  // namespace
}  // namespace kelvane::tests
