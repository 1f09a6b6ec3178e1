// How often a call of a tool asks the system for something, told by strace where it is there.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/end-to-end/Client.h"
#include "tests/end-to-end/Folder.h"

namespace kelvane::tests {
namespace {

const std::filesystem::path tracer = "/usr/bin/strace";

/// The system calls from one reply to the next, without those that only get memory.
std::vector<std::string> callsBetweenReplies(const std::filesystem::path& trace, int reply) {
  std::vector<std::string> calls;
  std::ifstream lines(trace);
  int replies = 0;
  for (std::string line; replies <= reply && std::getline(lines, line);) {
    const std::string call = line.substr(std::min(line.find_first_not_of("0123456789 "), line.size()));
    const bool getsMemory = call.starts_with("brk(") || call.starts_with("mmap(") || call.starts_with("munmap(");
    if (replies == reply && !getsMemory) calls.push_back(call);
    if (call.starts_with("write(1,")) ++replies;
  }
  return calls;
}

JSON::Object replacing(const std::string& text) {
  return {{"id", "Talk.md"}, {"text", text}, {"note", "n"}};
}

TEST(SystemCalls, areFewWhereASmallScriptIsReplacedThatHasAHistory) {
#ifdef KELVANE_PORTABLE
  GTEST_SKIP() << "Without the system's quicker ways it takes more.";
#endif
  if (isSanitized()) GTEST_SKIP() << "A sanitizer makes calls of its own.";
  const Folder library, traces;
  library.put("Talk.md", "hello\n");
  const std::string trace = traces / "trace";
  Start start{.arguments = {"serve", "--allow-writes", "--library", library.text()}};
  for (int number = 1; number <= 3; ++number) {
    Client before(start);
    ASSERT_FALSE(before.call("update_script", replacing("text " + std::to_string(number))).isError);
  }
  start.arguments.insert(start.arguments.begin(), {"-f", "-o", trace, start.program});
  start.program = tracer;
  if (!std::filesystem::exists(tracer) ||
      run({.arguments = {"-o", "/dev/null", "/bin/true"}, .program = tracer}).status != 0)
    GTEST_SKIP() << "strace is not here or may not look at other programs.";
  {
    Client traced(start);
    ASSERT_TRUE(traced.program().write(ping(1) + '\n'));
    ASSERT_EQ(traced.program().line(), pong(1));
    ASSERT_TRUE(traced.program().write(callRequest(2, "update_script", replacing("new text")) + '\n'));
    ASSERT_TRUE(traced.program().line());
    EXPECT_EQ(traced.program().finish().status, 0);
  }
  ASSERT_EQ(library.bytes("Talk.md"), "new text");
  const std::vector<std::string> calls = callsBetweenReplies(trace, 1);
  const auto flushes = std::count_if(calls.begin(), calls.end(), [](const std::string& call) {
    return call.starts_with("fsync(") || call.starts_with("fdatasync(");
  });
  const bool isOneReply = !calls.empty() && calls.back().starts_with("write(1,");
  ASSERT_TRUE(isOneReply);
  std::string all;
  for (const std::string& call : calls) all.append(call).push_back('\n');
  EXPECT_LE(calls.size(), 100U) << all;
  EXPECT_EQ(flushes, 7) << all;  // FolderLibraryWriting.cpp says what each is for
}

}  // namespace
}  // namespace kelvane::tests
