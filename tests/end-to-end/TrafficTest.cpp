#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/end-to-end/Client.h"
#include "tests/end-to-end/Folder.h"

namespace kelvane::tests {
namespace {

const std::string noJSON = R"({"error":{"code":-32700,"message":"Could not parse JSON"},"id":null,"jsonrpc":"2.0"})";
const std::string noRequest =
    R"({"error":{"code":-32600,"message":"Not a JSON-RPC request"},"id":null,"jsonrpc":"2.0"})";

Outcome serve(const std::string& library, std::string_view input) {
  return run({"serve", "--library", library}, input);
}

TEST(Traffic, aBadLineIsAnsweredAndTheNextServed) {
  const struct {
    const char* what;
    std::string line;
    std::string reply;  // empty: none
  } cases[] = {
      {"half of an object", "{\"id\":1,\"method\":", noJSON},
      {"a torn text", "{\"id\":1,\"method\":\"pi", noJSON},
      {"a word", "hello", noJSON},
      {"two values", "{} {}", noJSON},
      {"single quotes", "{'id':1}", noJSON},
      {"a closing bracket", "]", noJSON},
      {"a NUL alone", std::string(1, '\0'), noJSON},
      {"a NUL behind a request", ping(1) + '\0', noJSON},
      {"a NUL in a text", std::string("{\"id\":1,\"method\":\"pi\0ng\"}", 25), noJSON},
      {"rubbish", "\x80\xFF\x01\x02\xC3(\xF0\x9F", noJSON},
      {"a byte-order mark of the other kind", "\xFF\xFE{\0", noJSON},
      {"a lone CR in a text", "{\"id\":1,\"method\":\"pi\rng\"}", noJSON},
      {"a lone CR alone", "x\ry", noJSON},
      {"ten megabytes of brackets", std::string(10'000'000, '['), noJSON},
      {"a megabyte of opened objects",
       [] {
         std::string text;
         for (int i = 0; i < 200'000; ++i) text += "{\"a\":";
         return text;
       }(),
       noJSON},
      {"a number too large", "1e999", noJSON},
      {"a lone surrogate", R"({"id":"\ud800","method":"ping"})", noJSON},
      {"a batch", "[" + ping(1) + "]", noRequest},
      {"a number", "42", noRequest},
      {"null", "null", noRequest},
      {"no method", R"({"id":null})", noRequest},
      {"a method that is no text", R"({"id":"a","method":5})",
       R"({"error":{"code":-32600,"message":"Not a JSON-RPC request"},"id":"a","jsonrpc":"2.0"})"},
      {"no such method", R"({"id":[{}],"method":"Ping"})",
       R"({"error":{"code":-32601,"message":"No such method: Ping"},"id":[{}],"jsonrpc":"2.0"})"},
      {"no such tool", R"({"id":2.5,"method":"tools/call","params":{"name":"nope"}})",
       R"({"error":{"code":-32602,"message":"No such tool: nope"},"id":2.5,"jsonrpc":"2.0"})"},
      {"no tool", R"({"id":1,"method":"tools/call","params":[]})",
       R"({"error":{"code":-32602,"message":"Missing \"name\""},"id":1,"jsonrpc":"2.0"})"},
      {"a notification", R"({"jsonrpc":"2.0","method":"notifications/initialized"})", ""},
      {"nothing", "", ""},
      {"blanks and tabs", " \t \t", ""},
      {"bytes that are not UTF-8 in a request that is one", "{\"id\":\"\x80\xE2\x82\",\"method\":\"ping\"}",
       "{\"id\":\"\xEF\xBF\xBD\xEF\xBF\xBD\",\"jsonrpc\":\"2.0\",\"result\":{}}"},
      {"a byte-order mark", "\xEF\xBB\xBF" + ping(5), pong(5)},
      {"blanks around", " \t" + ping(6) + "  ", pong(6)},
      {"CR LF", ping(7) + '\r', pong(7)},
      {"a request without its members", R"({"method":"ping"})", R"({"id":null,"jsonrpc":"2.0","result":{}})"},
  };
  const Folder library;
  std::string input, output;
  for (const auto& [what, line, reply] : cases) {
    SCOPED_TRACE(what);
    const std::string expected = (reply.empty() ? "" : reply + '\n') + pong(99) + '\n';
    EXPECT_EQ(serve(library.text(), line + '\n' + ping(99) + '\n'), (Outcome{0, expected, ""}));
    input += line + '\n' + ping(99) + '\n';
    output += expected;
  }
  EXPECT_EQ(serve(library.text(), input), (Outcome{0, output, ""})) << "all of them in one conversation";
}

TEST(Traffic, blankLinesGiveNothing) {
  const Folder library;
  EXPECT_EQ(serve(library.text(), "\n\r\n \n\t\n \t\r\n\n"), (Outcome{0, "", ""}));
}

TEST(Traffic, theLastLineNeedsNoLineFeed) {
  const Folder library;
  EXPECT_EQ(serve(library.text(), ping(1) + "\r\n" + ping(2)), (Outcome{0, pong(1) + '\n' + pong(2) + '\n', ""}));
}

TEST(Traffic, noInputIsNoFailure) {
  const Folder library;
  EXPECT_EQ(serve(library.text(), ""), (Outcome{0, "", ""}));
}

TEST(Traffic, eachReplyIsThereBeforeTheNextLineIsWritten) {
  const Folder library;
  Program program({"serve", "--library", library.text()});
  for (int id = 1; id <= 3; ++id) {
    program.write(ping(id) + '\n');
    EXPECT_EQ(program.line(), pong(id));
  }
  EXPECT_EQ(program.finish().status, 0);
}

TEST(Traffic, theServerSaysWhoItIs) {
  const Folder library;
  Client client(library.text());
  EXPECT_EQ(
      client.request("initialize", {{"protocolVersion", "2025-06-18"}}).encoded(),
      R"({"capabilities":{"tools":{}},"protocolVersion":"2025-06-18","serverInfo":{"name":"kelvane","version":"1.0.0"}})");
  client.finish();
}

TEST(Traffic, theToolsAreThoseThatThePersonAllows) {
  const std::vector<std::string> reading = {"list_scripts", "list_folders",  "list_versions",
                                            "read_script",  "list_chapters", "read_chapter"};
  std::vector<std::string> all = reading;
  for (const char* name :
       {"create_script", "create_folder", "rename", "save_version", "update_script", "append_to_script", "add_chapter",
        "rename_chapter", "update_chapter", "move_chapter", "remove_chapter"}) {
    all.emplace_back(name);
  }
  const Folder library;
  Client reader(library.text()), writer(library.text(), true);
  EXPECT_EQ(reader.tools(), reading);
  EXPECT_EQ(writer.tools(), all);
  reader.finish();
  writer.finish();
}

TEST(Traffic, aToolThatWritesDoesNotExistForAReader) {
  const Folder library;
  library.put("Talk.md", "as it was");
  const std::string line = callRequest(1, "update_script", {{"id", "Talk.md"}, {"text", "new"}, {"note", "n"}});
  EXPECT_EQ(serve(library.text(), line).output,
            "{\"error\":{\"code\":-32602,\"message\":\"No such tool: update_script\"},\"id\":1,\"jsonrpc\":\"2.0\"}\n");
  EXPECT_EQ(library.bytes("Talk.md"), "as it was");
}

// A socket that keeps writes apart shows how many there were.
TEST(Traffic, aReplyLeavesInOneWrite) {
  const Folder library;
  std::string text;
  while (text.size() < 100'000) text += "Word after word. ";
  library.put("Long.md", text);
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
  Program program(Start{.arguments = {"serve", "--library", library.text()}, .output = ends[1]});
  ::close(ends[1]);
  std::string buffer(1 << 20, '\0');
  for (const std::string& line : {ping(1), callRequest(2, "read_script", {{"id", "Long.md"}}), std::string("bad"),
                                  callRequest(3, "list_scripts", {}), ping(4)}) {
    program.write(line + '\n');
    const ssize_t size = ::read(ends[0], buffer.data(), buffer.size());
    ASSERT_GT(size, 0);
    const std::string_view write(buffer.data(), static_cast<std::size_t>(size));
    EXPECT_EQ(write.find('\n'), write.size() - 1) << "a write that is not one line: " << write.substr(0, 100);
    EXPECT_TRUE(JSON::decoded(write)) << write.substr(0, 100);
  }
  EXPECT_EQ(program.finish(), (Outcome{0, "", ""}));
  ::close(ends[0]);
}

TEST(Traffic, anOutputThatDoesNotBlockLosesNothing) {
  const Folder library;
  const std::string text(1'000'000, 'x');
  library.put("Long.md", text);
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  ASSERT_EQ(::fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
  Program program(Start{.arguments = {"serve", "--library", library.text()}, .output = ends[1]});
  ::close(ends[1]);
  program.write(callRequest(1, "read_script", {{"id", "Long.md"}}) + '\n' + ping(2) + '\n');
  program.closeInput();
  std::string output, buffer(1000, '\0');
  for (ssize_t count; (count = ::read(ends[0], buffer.data(), buffer.size())) > 0;) {
    output.append(buffer, 0, static_cast<std::size_t>(count));
  }
  ::close(ends[0]);
  EXPECT_EQ(program.finish(), (Outcome{0, "", ""}));
  EXPECT_EQ(output, "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":{\"content\":[{\"text\":\"" + text +
                        "\",\"type\":\"text\"}],\"isError\":false}}\n" + pong(2) + '\n');
}

TEST(Traffic, theReaderThatIsGoneEndsItInSilence) {
  const Folder library;
  Program program({"serve", "--library", library.text()});
  program.write(ping(1) + '\n');
  EXPECT_EQ(program.line(), pong(1));
  program.closeOutput();
  program.write(ping(2) + '\n');
  const Outcome outcome = program.finish();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "");
}

TEST(Traffic, theReaderThatIsGoneDoesNotMatterWhileThereIsNothingToSay) {
  const Folder library;
  Program program({"serve", "--library", library.text()});
  program.closeOutput();
  program.write("{\"method\":\"notifications/initialized\"}\n\n");
  EXPECT_EQ(program.finish().status, 0);
}

TEST(Traffic, aLimitOnTheSizeOfFilesIsASentenceAndTheNextRequestIsServed) {
  const Folder library;
  library.put("Talk.md", "old");
  Client client(Start{.arguments = {"serve", "--allow-writes", "--library", library.text()}, .largestFile = 65536});
  const std::string text(200'000, 'x');
  EXPECT_EQ(client.call("update_script", {{"id", "Talk.md"}, {"text", text}, {"note", "n"}}),
            failure("\"Talk.md\" could not be written, because it would be larger than the system allows. Make it "
                    "smaller, or raise the limit (ulimit -f)."));
  EXPECT_EQ(client.call("read_script", {{"id", "Talk.md"}}), success("old"));
  client.finish();
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(library.path()), {}), 2) << "the script and .kelvane";
}

TEST(Traffic, aBadCallWaitsForNoLockAndLeavesNothingOnTheDisk) {
  const Folder library;
  library.put("Talk.md", "old");
  const auto before = library.census();
  Client client(library.text(), true);
  EXPECT_EQ(client.call("update_script", {{"id", "None.md"}, {"text", "x"}, {"note", "n"}}),
            failure("Nothing at \"None.md\""));
  EXPECT_EQ(client.call("rename", {{"name", "x"}}), failure("Missing \"id\""));
  EXPECT_EQ(client.call("create_script", {{"name", "x"}, {"folder", "../y"}}),
            failure("\"../y\" is not inside the library"));
  client.finish();
  EXPECT_EQ(library.census(), before);
}

}  // namespace
}  // namespace kelvane::tests
