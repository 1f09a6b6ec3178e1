#include "protocol/Server.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <fstream>
#include <new>
#include <stdexcept>
#include <thread>

#include "protocol/RPCError.h"
#include "tests/protocol/CountedMemory.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/RowName.h"

namespace kelvane {
namespace {

using tests::RowName;

using namespace std::string_view_literals;

/// An exception whose message is null.
class Unsaid : public std::exception {
 public:
  const char* what() const noexcept override { return nullptr; }
};

/// Three tiny tools, two of which have the same name.
std::vector<Tool> tinyTools() {
  return {Tool("echo", "Says the arguments.", schema({{"text", "What to say"}}, {"text"}),
               [](const JSON::Object& arguments) { return JSON(arguments).encoded(); }),
          Tool("fail", "Fails.", schema({}, {}),
               [](const JSON::Object& arguments) -> std::string {
                 const JSON* how = arguments.find("how");
                 const std::string_view kind = how && how->string() ? *how->string() : "";
                 if (kind == "method") throw RPCError::methodNotFound("x");
                 if (kind == "parse") throw RPCError::parse();
                 if (kind == "request") throw RPCError::invalidRequest();
                 if (kind == "platform") throw std::runtime_error("The disk is full.");
                 if (kind == "memory") throw std::bad_alloc();
                 if (kind == "odd") throw 7;
                 if (kind == "empty") throw std::runtime_error("");
                 if (kind == "null") throw Unsaid();
                 if (kind == "blank") throw RPCError::invalidParams("");
                 throw RPCError::invalidParams(std::string("It \"failed\".\0whole", 18));
               }),
          Tool("fail", "Never run.", schema({}, {}), [](const JSON::Object&) { return std::string("second"); })};
}

const Server& tinyServer() {
  static const Server server("kelvane", tinyTools());
  return server;
}

struct Exchange {
  const char* about;
  std::string_view line;
  std::optional<std::string_view> reply;

  friend void PrintTo(const Exchange& row, std::ostream* out) { *out << row.about; }
};

class Handle : public testing::TestWithParam<Exchange> {};

TEST_P(Handle, answersExactlyThis) {
  const auto& [about, line, reply] = GetParam();
  EXPECT_EQ(tinyServer().handle(line), reply) << about;
}

constexpr std::string_view parseError =
    R"({"error":{"code":-32700,"message":"Could not parse JSON"},"id":null,"jsonrpc":"2.0"})";
constexpr std::string_view noRequest =
    R"({"error":{"code":-32600,"message":"Not a JSON-RPC request"},"id":null,"jsonrpc":"2.0"})";
constexpr std::string_view noName = R"({"error":{"code":-32602,"message":"Missing \"name\""},"id":1,"jsonrpc":"2.0"})";

INSTANTIATE_TEST_SUITE_P(
    WhatIsNoRequest, Handle,
    testing::Values(
        Exchange{"a lone brace", "{", parseError}, Exchange{"nothing", "", parseError},
        Exchange{"two messages on a line", "{}{}", parseError}, Exchange{"a batch", "[]", noRequest},
        Exchange{"a batch of a request", R"([{"id":1,"method":"ping"}])", noRequest},
        Exchange{"a number", "42", noRequest}, Exchange{"null", "null", noRequest},
        Exchange{"an object without anything", "{}", noRequest},
        Exchange{"an id alone", R"({"id":7})",
                 R"({"error":{"code":-32600,"message":"Not a JSON-RPC request"},"id":7,"jsonrpc":"2.0"})"},
        Exchange{"a method that is no text", R"({"id":"a","method":5})",
                 R"({"error":{"code":-32600,"message":"Not a JSON-RPC request"},"id":"a","jsonrpc":"2.0"})"},
        Exchange{"a method that is null, an id that is an object", R"({"method":null,"id":{"b":[1]}})",
                 R"({"error":{"code":-32600,"message":"Not a JSON-RPC request"},"id":{"b":[1]},"jsonrpc":"2.0"})"}),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    Methods, Handle,
    testing::Values(
        Exchange{"ping", R"({"id":"x","method":"ping"})", R"({"id":"x","jsonrpc":"2.0","result":{}})"},
        Exchange{"ping without an id is answered all the same", R"({"method":"ping"})",
                 R"({"id":null,"jsonrpc":"2.0","result":{}})"},
        Exchange{"ping with params of another kind", R"({"id":1,"method":"ping","params":[1]})",
                 R"({"id":1,"jsonrpc":"2.0","result":{}})"},
        Exchange{"any jsonrpc member", R"({"jsonrpc":7,"id":1,"method":"ping"})",
                 R"({"id":1,"jsonrpc":"2.0","result":{}})"},
        Exchange{"members in any order, unknown ones among them", R"({"x":{},"method":"ping","id":1})",
                 R"({"id":1,"jsonrpc":"2.0","result":{}})"},
        Exchange{"of two methods the last", R"({"id":1,"method":"nope","method":"ping"})",
                 R"({"id":1,"jsonrpc":"2.0","result":{}})"},
        Exchange{
            "a notification of an unknown method", R"({"jsonrpc":"2.0","method":"notifications/initialized"})", {}},
        Exchange{"an empty method without an id", R"({"method":""})", {}},
        Exchange{
            "an id that is null is an id", R"({"method":"notifications/initialized","id":null})",
            R"({"error":{"code":-32601,"message":"No such method: notifications/initialized"},"id":null,"jsonrpc":"2.0"})"},
        Exchange{"a method in capitals", R"({"id":1,"method":"Ping"})",
                 R"({"error":{"code":-32601,"message":"No such method: Ping"},"id":1,"jsonrpc":"2.0"})"},
        Exchange{"a method with a space", R"({"id":1,"method":" ping"})",
                 R"({"error":{"code":-32601,"message":"No such method:  ping"},"id":1,"jsonrpc":"2.0"})"},
        Exchange{"an empty method", R"({"id":1,"method":""})",
                 R"({"error":{"code":-32601,"message":"No such method: "},"id":1,"jsonrpc":"2.0"})"},
        Exchange{"a method with a NUL", R"({"id":1,"method":"ping\u0000"})",
                 R"({"error":{"code":-32601,"message":"No such method: ping\u0000"},"id":1,"jsonrpc":"2.0"})"}),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    Ids, Handle,
    testing::Values(
        Exchange{"zero", R"({"id":0,"method":"ping"})", R"({"id":0,"jsonrpc":"2.0","result":{}})"},
        Exchange{"a fraction", R"({"id":2.5,"method":"ping"})", R"({"id":2.5,"jsonrpc":"2.0","result":{}})"},
        Exchange{"integral, written with a fraction", R"({"id":3.0,"method":"ping"})",
                 R"({"id":3,"jsonrpc":"2.0","result":{}})"},
        Exchange{"negative", R"({"id":-7,"method":"ping"})", R"({"id":-7,"jsonrpc":"2.0","result":{}})"},
        Exchange{"too large for the integer form", R"({"id":9000000000000000,"method":"ping"})",
                 R"({"id":9e+15,"jsonrpc":"2.0","result":{}})"},
        Exchange{"the largest of the integer form", R"({"id":8999999999999999,"method":"ping"})",
                 R"({"id":8999999999999999,"jsonrpc":"2.0","result":{}})"},
        Exchange{"a Bool", R"({"id":false,"method":"ping"})", R"({"id":false,"jsonrpc":"2.0","result":{}})"},
        Exchange{"an array", R"({"id":["a",{}],"method":"ping"})", R"({"id":["a",{}],"jsonrpc":"2.0","result":{}})"},
        Exchange{"a text with everything", R"({"id":"é\"\/\n","method":"ping"})",
                 R"({"id":"é\"/\n","jsonrpc":"2.0","result":{}})"}),
    RowName());

#define INITIALIZED(id, version)                                                                         \
  R"({"id":)" id R"(,"jsonrpc":"2.0","result":{"capabilities":{"tools":{}},"protocolVersion":")" version \
  R"(","serverInfo":{"name":"kelvane","version":"1.0.0"}}})"

INSTANTIATE_TEST_SUITE_P(
    Initialize, Handle,
    testing::Values(
        Exchange{"with a version",
                 R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":"2025-06-18"}})",
                 INITIALIZED("1", "2025-06-18")},
        Exchange{"an older version", R"({"id":1,"method":"initialize","params":{"protocolVersion":"2024-11-05"}})",
                 INITIALIZED("1", "2024-11-05")},
        Exchange{"a made-up word", R"({"id":1,"method":"initialize","params":{"protocolVersion":"soon"}})",
                 INITIALIZED("1", "soon")},
        Exchange{"an empty version", R"({"id":1,"method":"initialize","params":{"protocolVersion":""}})",
                 INITIALIZED("1", "")},
        Exchange{"a version that is no text", R"({"id":1,"method":"initialize","params":{"protocolVersion":7}})",
                 INITIALIZED("1", "2025-06-18")},
        Exchange{"no params", R"({"id":1,"method":"initialize"})", INITIALIZED("1", "2025-06-18")},
        Exchange{"params that are an array", R"({"id":1,"method":"initialize","params":["2024-11-05"]})",
                 INITIALIZED("1", "2025-06-18")},
        Exchange{"no id", R"({"method":"initialize"})", INITIALIZED("null", "2025-06-18")}),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    ToolCalls, Handle,
    testing::Values(
        Exchange{"no params", R"({"id":1,"method":"tools/call"})", noName},
        Exchange{"params that are no object", R"({"id":1,"method":"tools/call","params":"echo"})", noName},
        Exchange{"an empty name", R"({"id":1,"method":"tools/call","params":{"name":""}})", noName},
        Exchange{"a name that is no text", R"({"id":1,"method":"tools/call","params":{"name":3}})", noName},
        Exchange{"an unknown tool", R"({"id":1,"method":"tools/call","params":{"name":"nope"}})",
                 R"({"error":{"code":-32602,"message":"No such tool: nope"},"id":1,"jsonrpc":"2.0"})"},
        Exchange{"a tool's name in capitals", R"({"id":1,"method":"tools/call","params":{"name":"Echo"}})",
                 R"({"error":{"code":-32602,"message":"No such tool: Echo"},"id":1,"jsonrpc":"2.0"})"},
        Exchange{"an unknown tool without an id", R"({"method":"tools/call","params":{"name":"nope"}})",
                 R"({"error":{"code":-32602,"message":"No such tool: nope"},"id":null,"jsonrpc":"2.0"})"},
        Exchange{
            "arguments", R"({"id":1,"method":"tools/call","params":{"name":"echo","arguments":{"b":1,"a":"x"}}})",
            R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"{\"a\":\"x\",\"b\":1}","type":"text"}],"isError":false}})"},
        Exchange{"no arguments", R"({"id":1,"method":"tools/call","params":{"name":"echo"}})",
                 R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"{}","type":"text"}],"isError":false}})"},
        Exchange{"arguments that are an array",
                 R"({"id":1,"method":"tools/call","params":{"name":"echo","arguments":[1,2]}})",
                 R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"{}","type":"text"}],"isError":false}})"},
        Exchange{
            "a failure, its text whole; of two tools with one name the first",
            R"({"id":1,"method":"tools/call","params":{"name":"fail"}})",
            R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"It \"failed\".\u0000whole","type":"text"}],"isError":true}})"},
        Exchange{
            "an error of the protocol inside a tool",
            R"({"id":1,"method":"tools/call","params":{"name":"fail","arguments":{"how":"method"}}})",
            R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"No such method: x","type":"text"}],"isError":true}})"},
        Exchange{
            "a parse error inside a tool",
            R"({"id":1,"method":"tools/call","params":{"name":"fail","arguments":{"how":"parse"}}})",
            R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"Could not parse JSON","type":"text"}],"isError":true}})"},
        Exchange{
            "an invalid request inside a tool",
            R"({"id":1,"method":"tools/call","params":{"name":"fail","arguments":{"how":"request"}}})",
            R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"Not a JSON-RPC request","type":"text"}],"isError":true}})"},
        Exchange{
            "an error of the platform inside a tool",
            R"({"id":1,"method":"tools/call","params":{"name":"fail","arguments":{"how":"platform"}}})",
            R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"The disk is full.","type":"text"}],"isError":true}})"},
        Exchange{
            "no memory left inside a tool",
            R"({"id":1,"method":"tools/call","params":{"name":"fail","arguments":{"how":"memory"}}})",
            R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"There is not enough memory for this. Close some programs and try again, or ask for less at a time.","type":"text"}],"isError":true}})"},
        Exchange{
            "an error that says nothing",
            R"({"id":1,"method":"tools/call","params":{"name":"fail","arguments":{"how":"empty"}}})",
            R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"The tool failed without saying why.","type":"text"}],"isError":true}})"},
        Exchange{
            "an error without a text",
            R"({"id":1,"method":"tools/call","params":{"name":"fail","arguments":{"how":"null"}}})",
            R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"The tool failed without saying why.","type":"text"}],"isError":true}})"},
        Exchange{
            "an error of the protocol that says nothing",
            R"({"id":1,"method":"tools/call","params":{"name":"fail","arguments":{"how":"blank"}}})",
            R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"The tool failed without saying why.","type":"text"}],"isError":true}})"},
        Exchange{
            "something thrown that is no error",
            R"({"id":1,"method":"tools/call","params":{"name":"fail","arguments":{"how":"odd"}}})",
            R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"The tool failed without saying why.","type":"text"}],"isError":true}})"}),
    RowName());

TEST(Server, listsItsToolsInTheirOrderWhateverTheParams) {
  const std::string_view expected =
      R"({"id":1,"jsonrpc":"2.0","result":{"tools":[)"
      R"({"description":"Says the arguments.","inputSchema":{"properties":{"text":{"description":"What to say","type":"string"}},"required":["text"],"type":"object"},"name":"echo"},)"
      R"({"description":"Fails.","inputSchema":{"properties":{},"required":[],"type":"object"},"name":"fail"},)"
      R"({"description":"Never run.","inputSchema":{"properties":{},"required":[],"type":"object"},"name":"fail"}]}})";
  EXPECT_EQ(tinyServer().handle(R"({"id":1,"method":"tools/list"})"), expected);
  EXPECT_EQ(tinyServer().handle(R"({"id":1,"method":"tools/list","params":{"cursor":"next"}})"), expected);
  EXPECT_EQ(Server("empty", {}).handle(R"({"id":1,"method":"tools/list"})"),
            R"({"id":1,"jsonrpc":"2.0","result":{"tools":[]}})");
}

TEST(Server, hasItsNameItsToolsAndItsVersion) {
  EXPECT_EQ(Server::version, "2025-06-18");
  EXPECT_EQ(tinyServer().name(), "kelvane");
  EXPECT_EQ(tinyServer().tools().size(), 3U);
  EXPECT_EQ(Server("a \"name\"", {}).handle(R"({"id":1,"method":"initialize"})"),
            R"({"id":1,"jsonrpc":"2.0","result":{"capabilities":{"tools":{}},"protocolVersion":"2025-06-18",)"
            R"("serverInfo":{"name":"a \"name\"","version":"1.0.0"}}})");
}

/// Limits this process to so many bytes beyond those that it has already.
void limitMemory(rlim_t more) {
  rlim_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  const rlim_t most = pages * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE)) + more;
  const rlimit limit{most, most};
  ::setrlimit(RLIMIT_AS, &limit);
}

// There is room for the tool's text, even twice, but not for its JSON, in which each line break takes two bytes. The
// text is larger than any memory that other tests may have freed for reuse.
TEST(Server, answersWithASentenceIfThereIsNoMemoryForTheReply) {
  constexpr std::size_t size = 64'000'000;
  const auto taken = [] { return ::mallinfo2().uordblks + ::mallinfo2().hblkhd; };
  const auto before = taken();
  const std::string large(size, ' ');
  if (taken() < before + large.size()) {
    GTEST_SKIP() << "The memory that is taken cannot be told here, as under a sanitizer.";
  }
  EXPECT_EQ(tests::inChild([&] {
              const Server server("s", {Tool("large", "", schema({}, {}), [](const JSON::Object&) {
                                    std::string text(size, '\n');
                                    limitMemory(size + size / 2);
                                    return text;
                                  })});
              return server.handle(R"({"id":1,"method":"tools/call","params":{"name":"large"}})").value_or("(none)");
            }),
            R"({"error":{"code":-32602,"message":"There is not enough memory for this. Close some programs and try )"
            R"(again, or ask for less at a time."},"id":1,"jsonrpc":"2.0"})");
}

TEST(Server, answersAPingInMemoryThatItHasAlready) {
  const std::string line = R"({"jsonrpc":"2.0","id":12345,"method":"ping","params":{}})";
  std::string reply;
  ASSERT_TRUE(tinyServer().handle(line, reply));
  std::size_t decoding = 0, whole = 0;
  {
    const tests::CountedMemory memory;
    static_cast<void>(JSON::decoded(line));
    decoding = memory.asked();
  }
  {
    const tests::CountedMemory memory;
    tinyServer().handle(line, reply);
    whole = memory.asked();
  }
  EXPECT_EQ(reply, R"({"id":12345,"jsonrpc":"2.0","result":{}})");
  EXPECT_GT(decoding, 0U) << "the count counts";
  EXPECT_EQ(whole, decoding);
}

TEST(Server, replacesWhatIsInTheCallersReply) {
  std::string reply = "something older";
  EXPECT_TRUE(tinyServer().handle(R"({"id":1,"method":"ping"})", reply));
  EXPECT_EQ(reply, R"({"id":1,"jsonrpc":"2.0","result":{}})");
  EXPECT_TRUE(tinyServer().handle("{", reply));
  EXPECT_EQ(reply, parseError);
  EXPECT_FALSE(tinyServer().handle(R"({"method":"notifications/initialized"})", reply));
  EXPECT_EQ(reply, "");
}

// Such a text is escaped piece by piece. Wherever a piece ends, it cuts no character and no ill-formed part of one.
TEST(Server, repliesWithLongTextsAsWithShortOnes) {
  std::string text;
  const Server server("s", {Tool("long", "", schema({}, {}), [&](const JSON::Object&) { return text; })});
  for (const std::string unit : {"x", "\"", "\u00E9", "\u3042", "\U0001F600", "\x80", "\xF0\x9F\x98", "\xE3\x81x"}) {
    for (std::size_t before = 0; before < 4; ++before) {
      text.assign(before, 'a');
      while (text.size() < (std::size_t{4} << 20) + 100) text += unit;
      const auto reply = server.handle(R"({"id":1,"method":"tools/call","params":{"name":"long"}})");
      EXPECT_TRUE(reply == R"({"id":1,"jsonrpc":"2.0","result":)" + toolResult(text, false).encoded() + "}")
          << ::testing::PrintToString(unit) << ", " << before;
    }
  }
}

TEST(Server, dropsWhatAToolWroteBeforeItFailed) {
  const auto written = [](const JSON::Object& arguments, ResultText& text) {
    text.reserve(20);
    text.append("some \"text\"");
    const JSON* how = arguments.find("how");
    const std::string_view kind = how && how->string() ? *how->string() : "";
    if (kind == "invalid") throw RPCError::invalidParams("It \"failed\".");
    if (kind == "platform") throw std::runtime_error("The disk is full.");
    if (kind == "odd") throw 7;
    text.append(", \xFF\n");
  };
  const Server server("s", {Tool("write", "", schema({}, {}), written)});
  const struct {
    std::string_view how;
    std::string_view text;
    bool isError;
  } rows[] = {
      {"well", "some \"text\", \uFFFD\n", false},
      {"invalid", "It \"failed\".", true},
      {"platform", "The disk is full.", true},
      {"odd", "The tool failed without saying why.", true},
  };
  for (const auto& row : rows) {
    const JSON params = JSON::Object{{"name", "write"}, {"arguments", JSON::Object{{"how", row.how}}}};
    EXPECT_EQ(server.handle(R"({"id":1,"method":"tools/call","params":)" + params.encoded() + "}"),
              R"({"id":1,"jsonrpc":"2.0","result":)" + toolResult(row.text, row.isError).encoded() + "}")
        << row.how;
  }
}

TEST(Server, answersNullIfASchemaHoldsWhatIsNoNumberOfJSON) {
  const Server server("s", {Tool("odd", "", JSON(std::nan("")), [](const JSON::Object&) { return std::string(); })});
  EXPECT_EQ(server.handle(R"({"id":1,"method":"tools/list"})"), "null");
}

TEST(Server, runsAToolOncePerCall) {
  int runs = 0;
  const Server server("s", {Tool("count", "", schema({}, {}), [&runs](const JSON::Object&) {
                        ++runs;
                        return std::string();
                      })});
  server.handle(R"({"id":1,"method":"tools/list"})");
  EXPECT_EQ(runs, 0);
  server.handle(R"({"id":1,"method":"tools/call","params":{"name":"count"}})");
  EXPECT_EQ(runs, 1);
}

TEST(Server, findsAToolByACanonicallyEquivalentName) {
  const Server server("s",
                      {Tool("cafe", "", schema({}, {}), [](const JSON::Object&) { return std::string("plain"); }),
                       Tool("caf\u00e9", "", schema({}, {}), [](const JSON::Object&) { return std::string("é"); })});
  EXPECT_EQ(server.handle("{\"id\":1,\"method\":\"tools/call\",\"params\":{\"name\":\"cafe\u0301\"}}"),
            R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"é","type":"text"}],"isError":false}})");
}

TEST(Server, answersEightThreadsAtOnce) {
  std::atomic<int> right = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&right, i] {
      const std::string text = "thread " + std::to_string(i) + " says what does not fit into sixteen bytes";
      const std::string line = R"({"id":)" + std::to_string(i) +
                               R"(,"method":"tools/call","params":{"name":"echo","arguments":{"text":")" + text +
                               R"("}}})";
      const std::string reply = R"({"id":)" + std::to_string(i) +
                                R"(,"jsonrpc":"2.0","result":{"content":[{"text":"{\"text\":\")" + text +
                                R"(\"}","type":"text"}],"isError":false}})";
      for (int round = 0; round < 500; ++round) {
        if (tinyServer().handle(line) == reply && tinyServer().handle(R"({"method":"tools/list"})")) ++right;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(right, 8 * 500);
}

}  // namespace
}  // namespace kelvane
