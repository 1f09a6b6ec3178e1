#include "program/ServerTrial.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace kelvane::tests {
namespace {

using Words = std::vector<std::string>;

constexpr std::chrono::seconds patience(60);

constexpr const char* greets = R"(echo '{"jsonrpc":"2.0","id":1,"result":{"serverInfo":{"name":"kelvane"}}}')"
                               "\n";
constexpr const char* listsTwoTools = R"(echo '{"jsonrpc":"2.0","id":2,"result":{"tools":[{},{}]}}')"
                                      "\n";
constexpr const char* readsToTheEnd = "while read -r line; do :; done\n";

// By appending, which GCC 12 does not misread.
std::string joined(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts) text.append(part);
  return text;
}

std::string answeringAnd(std::string_view more) {
  return joined({readsToTheEnd, greets, listsTwoTools, more});
}

class ServerTrial : public testing::Test {
 protected:
  ServerTrial() { std::signal(SIGPIPE, SIG_IGN); }

  // A program of these lines of shell.
  std::filesystem::path programOf(const std::string& lines) const {
    const std::filesystem::path program = folder.path() / "program";
    std::ofstream(program) << "#!/bin/sh\n" << lines;
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    return program;
  }

  // How many tools were counted, or what was thrown.
  static std::string outcome(const std::filesystem::path& program, const Words& arguments = {},
                             std::chrono::milliseconds wait = patience) {
    try {
      return std::to_string(tryServer(program, arguments, wait)) + " tools";
    } catch (const std::exception& error) {
      return error.what();
    }
  }

  TemporaryFolder folder;
};

TEST_F(ServerTrial, countsTheToolsOfAServerThatAnswersAndEnds) {
  EXPECT_EQ(outcome(programOf(answeringAnd(""))), "2 tools");
}

TEST_F(ServerTrial, saysWhatIsWrongWithAnyOther) {
  const struct {
    const char* description;
    std::string program;
    std::string sentence;
  } cases[] = {
      {"it answers and fails", answeringAnd("exit 3\n"), "It ended with status 3 instead of 0. Run the command again."},
      {"it answers and is ended", answeringAnd("kill -KILL $$\n"), "It was ended by signal 9. Run the command again."},
      {"it answers and complains", answeringAnd("echo 'The disk is full.' >&2\necho more >&2\n"),
       "It said: The disk is full."},
      {"it complains and fails", "echo 'The server is off.' >&2\nexit 1\n", "It said: The server is off."},
      {"it says nothing", "", "It did not answer as a server does. Install this program again."},
      {"it says something else", "echo hello\n", "It did not answer as a server does. Install this program again."},
      {"it does not introduce itself", listsTwoTools,
       "It did not answer as a server does. Install this program again."},
      {"it lists no tools", greets, "It did not answer as a server does. Install this program again."},
  };
  for (const auto& row : cases) EXPECT_EQ(outcome(programOf(row.program)), row.sentence) << row.description;
}

TEST_F(ServerTrial, endsAProgramThatDoesNotAnswerInTime) {
  const std::filesystem::path program = programOf("while :; do :; done\n");
  EXPECT_EQ(outcome(program, {}, std::chrono::milliseconds(1)), "It did not answer in time. Run the command again.");
}

TEST_F(ServerTrial, saysThatNothingCouldBeStarted) {
  EXPECT_EQ(outcome(folder.path() / "missing"),
            "It could not be started, because it is not there any more. Look at what is there now and try again.");
}

// What else the program does could change what a person set up, or start the next process.
TEST_F(ServerTrial, startsNothingButAServer) {
  const struct {
    Words arguments;
    bool serves;
  } cases[] = {
      {{}, true},
      {{"serve"}, true},
      {{"serve", "--library", "/s", "--allow-writes"}, true},
      {{"doctor"}, false},
      {{"doctor", "serve"}, false},
      {{"settings", "disable"}, false},
      {{"settings"}, false},
      {{"connect", "claude"}, false},
      {{"disconnect", "claude"}, false},
      {{"restore", "Talk", "1"}, false},
      {{"call", "list_scripts"}, false},
      {{"--help"}, false},
      {{"--"}, true},
      {{"--", "serve"}, true},
      {{"--", "--", "serve", "--allow-writes"}, true},
      {{"--", "doctor"}, false},
      {{"--", "--help"}, false},
      {{""}, false},
      {{"Serve"}, false},
      {{"serve "}, false},
  };
  const std::filesystem::path program = programOf(joined({": > \"$0.started\"\n", answeringAnd("")}));
  const std::filesystem::path started = program.native() + ".started";
  for (const auto& row : cases) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    std::filesystem::remove(started);
    EXPECT_EQ(startsServer(row.arguments), row.serves);
    EXPECT_EQ(outcome(program, row.arguments),
              row.serves ? "2 tools" : "It was not started, because its arguments do not start a server. Remove them.");
    EXPECT_EQ(std::filesystem::exists(started), row.serves);
  }
}

}  // namespace
}  // namespace kelvane::tests
