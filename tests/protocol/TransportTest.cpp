#include "protocol/Transport.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/FreeMemory.h"
#include "tests/support/Memory.h"
#include "tests/support/Random.h"
#include "tests/support/RowName.h"

namespace kelvane {
namespace {

using tests::RowName;

const Server& echo() {
  static const Server server("s", {Tool("echo", "", schema({}, {}), [](const JSON::Object& arguments) {
                               const JSON* text = arguments.find("text");
                               return std::string(text && text->string() ? *text->string() : "");
                             })});
  return server;
}

std::string readAll(int descriptor) {
  std::string all;
  char bytes[65536];
  ssize_t count;
  while ((count = read(descriptor, bytes, sizeof bytes)) > 0) all.append(bytes, static_cast<std::size_t>(count));
  return all;
}

/// The server's output for an input that arrives in writes of the sizes that `nextSize` returns.
template <class NextSize>
std::string answer(std::string_view input, NextSize nextSize) {
  int in[2];
  int out[2];
  if (pipe(in) != 0 || pipe(out) != 0) throw std::system_error(errno, std::generic_category());
  std::thread client([&] {
    while (!input.empty()) {
      const ssize_t written = write(in[1], input.data(), std::min(input.size(), nextSize()));
      ASSERT_GT(written, 0);
      input.remove_prefix(static_cast<std::size_t>(written));
    }
    close(in[1]);
  });
  std::thread server([&] {
    Transport::run(echo(), in[0], out[1]);
    close(out[1]);
  });
  std::string output = readAll(out[0]);
  client.join();
  server.join();
  close(in[0]);
  close(out[0]);
  return output;
}

std::string answer(std::string_view input) {
  return answer(input, [] { return SIZE_MAX; });
}

constexpr std::string_view ping = R"({"id":1,"method":"ping"})";
constexpr std::string_view pong = "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":{}}\n";

struct Lines {
  const char* about;
  std::string input;
  std::string output;

  friend void PrintTo(const Lines& row, std::ostream* out) { *out << row.about; }
};

class TransportLines : public testing::TestWithParam<Lines> {};

TEST_P(TransportLines, areAnsweredLikeThis) {
  EXPECT_EQ(answer(GetParam().input), GetParam().output) << GetParam().about;
}

const std::string p(ping);
const std::string q(pong);
const std::string bad =
    "{\"error\":{\"code\":-32700,\"message\":\"Could not parse JSON\"},\"id\":null,\"jsonrpc\":\"2.0\"}\n";

INSTANTIATE_TEST_SUITE_P(
    Transport, TransportLines,
    testing::Values(
        Lines{"no input", "", ""}, Lines{"a line", p + "\n", q}, Lines{"two lines", p + "\n" + p + "\n", q + q},
        Lines{"a last line without a line feed", p, q}, Lines{"CR LF", p + "\r\n" + p + "\r\n", q + q},
        Lines{"an empty line", "\n", ""}, Lines{"an empty line ended by CR LF", "\r\n", ""},
        Lines{"spaces and tabs", " \t \t\n", ""}, Lines{"space separators", "\u00a0\u3000\n", ""},
        Lines{"a carriage return alone on a line is not skipped", "\r\r\n", bad},
        Lines{"spaces around a request", " " + p + " \n", q}, Lines{"tabs around a request", "\t" + p + "\t\n", q},
        Lines{"a line is handed on as it is: JSON knows no other white space", "\u00a0" + p + "\n", bad},
        Lines{"a bad line between good ones", p + "\n{\n" + p + "\n", q + bad + q},
        Lines{"a notification gets nothing",
              R"({"jsonrpc":"2.0","method":"notifications/initialized"})"
              "\n" +
                  p + "\n",
              q},
        Lines{"a byte-order mark before the first message", "\xEF\xBB\xBF" + p + "\n", q},
        Lines{"bytes that are not UTF-8 are served replaced", "{\"id\":\"a\xFF\xE2\x82z\",\"method\":\"ping\"}\n",
              "{\"id\":\"a\uFFFD\uFFFDz\",\"jsonrpc\":\"2.0\",\"result\":{}}\n"},
        Lines{"NUL bytes", std::string("\0\0\n", 3) + p + "\n", bad + q},
        Lines{"line breaks inside a reply are escaped",
              R"({"id":1,"method":"tools/call","params":{"name":"echo","arguments":{"text":"a\nb\r\nc"}}})"
              "\n",
              R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"a\nb\r\nc","type":"text"}],"isError":false}})"
              "\n"}),
    RowName());

TEST(Transport, anyChunkingOfAHundredRequestsGivesTheSameOutput) {
  std::string input;
  for (int i = 0; i < 100; ++i) {
    const std::string text = i % 7 == 0 ? std::string(static_cast<std::size_t>(i) * 100, 'x') : "é\xFF€";
    input += R"({"id":)" + std::to_string(i) +
             R"(,"method":"tools/call","params":{"name":"echo","arguments":{"text":")" + text +
             (i % 3 == 0 ? "\"}}}\r\n" : "\"}}}\n");
    if (i % 10 == 0) input += " \t\r\n{\n";
  }
  const std::string expected = answer(input);
  EXPECT_EQ(std::count(expected.begin(), expected.end(), '\n'), 110);
  EXPECT_EQ(answer(input, [] { return std::size_t{1}; }), expected);
  auto generator = tests::seededGenerator();
  for (const std::size_t bound : {2U, 5U, 50U, 5000U}) {
    EXPECT_EQ(answer(input, [&] { return 1 + tests::below(bound, generator); }), expected) << bound;
  }
}

TEST(Transport, aReplyLeavesInOneWriteBeforeTheNextLineIsRead) {
  // A socket of packets returns one write per read.
  int in[2];
  int out[2];
  ASSERT_EQ(pipe(in), 0);
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, out), 0);
  std::thread server([&] {
    Transport::run(echo(), in[0], out[1]);
    close(out[1]);
  });
  char packet[4096];
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(write(in[1], (p + "\n").data(), p.size() + 1), static_cast<ssize_t>(p.size() + 1));
    const ssize_t count = read(out[0], packet, sizeof packet);
    ASSERT_GT(count, 0);
    EXPECT_EQ(std::string_view(packet, static_cast<std::size_t>(count)), pong);
  }
  close(in[1]);
  EXPECT_EQ(read(out[0], packet, sizeof packet), 0);
  server.join();
  close(in[0]);
  close(out[0]);
}

TEST(Transport, givesTheMemoryOfALargeReplyBack) {
  if (!tests::memoryCanBeTold() || !returnFreeMemory()) GTEST_SKIP() << "Memory is not given back or not told here.";
  // Many small pieces: an allocator keeps those for later. One of them stays to the end.
  constexpr std::size_t pieces = 400'000, pieceSize = 100;
  std::vector<std::size_t> resident;
  std::string kept;
  const Server server("s", {Tool("look", "", schema({}, {}),
                                 [&](const JSON::Object&) {
                                   resident.push_back(tests::residentMemory());
                                   return std::string();
                                 }),
                            Tool("large", "", schema({}, {}), [&](const JSON::Object&) {
                              std::vector<std::string> many;
                              for (std::size_t i = 0; i < pieces; ++i) many.emplace_back(pieceSize, 'x');
                              kept = std::move(many.back());
                              resident.push_back(tests::residentMemory());
                              return std::string(2'000'000, 'x');
                            })});
  int in[2];
  ASSERT_EQ(pipe(in), 0);
  const std::string look = R"({"id":1,"method":"tools/call","params":{"name":"look"}})"
                           "\n";
  const std::string large = R"({"id":1,"method":"tools/call","params":{"name":"large"}})"
                            "\n";
  const std::string input = look + large + look;
  ASSERT_EQ(write(in[1], input.data(), input.size()), static_cast<ssize_t>(input.size()));
  close(in[1]);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  Transport::run(server, in[0], nowhere);
  close(nowhere);
  close(in[0]);
  ASSERT_EQ(resident.size(), 3U);
  EXPECT_GT(resident[1], resident[0] + pieces * pieceSize) << "the memory was seen";
  EXPECT_LT(resident[2], resident[0] + (std::size_t{4} << 20));
}

TEST(Transport, throwsWhenTheReaderIsGone) {
  std::signal(SIGPIPE, SIG_IGN);
  int in[2];
  int out[2];
  ASSERT_EQ(pipe(in), 0);
  ASSERT_EQ(pipe(out), 0);
  close(out[0]);
  ASSERT_GT(write(in[1], (p + "\n").data(), p.size() + 1), 0);
  try {
    Transport::run(echo(), in[0], out[1]);
    ADD_FAILURE() << "run returned";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::broken_pipe);
  }
  close(in[0]);
  close(in[1]);
  close(out[1]);
}

TEST(Transport, throwsWhenTheInputCannotBeRead) {
  EXPECT_THROW(Transport::run(echo(), -1, STDOUT_FILENO), std::system_error);
}

}  // namespace
}  // namespace kelvane
