#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <map>
#include <string>
#include <thread>

#include "tests/end-to-end/Client.h"
#include "tests/end-to-end/Folder.h"

namespace kelvane::tests {
namespace {

/// A descriptor of the test's own.
class Opened {
 public:
  Opened(const std::string& path, int flags) : descriptor_(::open(path.c_str(), flags | O_CLOEXEC)) {}
  Opened(const Opened&) = delete;
  Opened& operator=(const Opened&) = delete;
  ~Opened() { ::close(descriptor_); }
  operator int() const noexcept { return descriptor_; }

 private:
  int descriptor_;
};

class Descriptors : public testing::Test {
 protected:
  Descriptors() { library.put("Talk.md", "text"); }

  Start serving() const { return {.arguments = {"serve", "--allow-writes", "--library", library.text()}}; }

  Folder library;
};

TEST_F(Descriptors, aClosedInputIsOneThatHasEnded) {
  Start start = serving();
  start.input = Start::closed;
  EXPECT_EQ(run(start), (Outcome{0, "", ""}));
}

TEST_F(Descriptors, aClosedOutputIsOneThatNobodyReads) {
  Start start = serving();
  start.output = Start::closed;
  EXPECT_EQ(run(start, ping(1) + '\n'), (Outcome{1, "", ""}));
  EXPECT_EQ(run(start, "\n"), (Outcome{0, "", ""})) << "nothing to say";
}

TEST_F(Descriptors, aClosedErrorOutputIsNotNeeded) {
  Start start = serving();
  start.errors = Start::closed;
  EXPECT_EQ(run(start, ping(1) + '\n'), (Outcome{0, pong(1) + '\n', ""}));
  start.arguments.back() += "/missing";
  EXPECT_EQ(run(start), (Outcome{1, "", ""}));
}

TEST_F(Descriptors, noneAtAllIsStillAnEnd) {
  Start start = serving();
  start.input = start.output = start.errors = Start::closed;
  EXPECT_EQ(run(start), (Outcome{0, "", ""}));
  start.arguments.back() += "/missing";
  EXPECT_EQ(run(start), (Outcome{1, "", ""}));
}

// What each descriptor of a child leads to, all at one moment: it is stopped meanwhile, as else those that were listed
// could be others by the time that they are read. None when it has ended.
std::map<int, std::string> openFiles(pid_t child) {
  std::map<int, std::string> files;
  siginfo_t change{};
  if (::kill(child, SIGSTOP) != 0) return files;
  while (::waitid(P_PID, static_cast<id_t>(child), &change, WSTOPPED | WEXITED | WNOWAIT) != 0) {
    if (errno != EINTR) return files;
  }
  if (change.si_code != CLD_STOPPED) return files;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(child) + "/fd")) {
    files[std::stoi(entry.path().filename())] = std::filesystem::read_symlink(entry);
  }
  ::kill(child, SIGCONT);
  return files;
}

// A file of the library that got the number of a closed one would have replies or complaints written into it. The
// server is looked at while it waits for the library's lock, with files of the library open.
TEST_F(Descriptors, closedOnesAreNeverAFileOfTheLibrary) {
  library.put(".kelvane/lock", "");
  const std::string lock = (library / ".kelvane/lock").native();
  int id = 0;
  for (const bool output : {false, true}) {
    for (const bool errors : {false, true}) {
      SCOPED_TRACE(std::string("closed:") + (output ? " output" : "") + (errors ? " errors" : ""));
      const std::string text = "text " + std::to_string(++id);
      Start start = serving();
      if (output) start.output = Start::closed;
      if (errors) start.errors = Start::closed;
      Program program(start);
      std::map<int, std::string> files;
      {
        const Opened held(lock, O_RDWR);
        ASSERT_EQ(::flock(held, LOCK_EX), 0);
        program.write(callRequest(id, "update_script", {{"id", "Talk.md"}, {"text", text}, {"note", "n"}}) + '\n');
        const auto isLock = [&](const auto& file) { return file.second == lock; };
        while (std::none_of(files.begin(), files.end(), isLock)) {
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
          files = openFiles(program.id());
          ASSERT_FALSE(files.empty()) << "the server has ended";
        }
      }
      for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        ASSERT_TRUE(files.contains(number)) << number;
        EXPECT_THAT(files[number], testing::Not(testing::StartsWith(library.text()))) << number;
      }
      EXPECT_EQ(program.finish().status, output ? 1 : 0);
      EXPECT_EQ(library.bytes("Talk.md"), text);
    }
  }
}

TEST_F(Descriptors, aCallWithoutOutputFails) {
  Start start{.arguments = {"call", "list_scripts", "--library", library.text()}};
  start.output = Start::closed;
  EXPECT_EQ(run(start), (Outcome{1, "", ""}));
}

TEST_F(Descriptors, anInputThatCannotBeReadIsSaid) {
  const Opened folder(library.text(), O_RDONLY | O_DIRECTORY);
  Start start = serving();
  start.input = folder;
  const Outcome outcome = run(start);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors,
            "The input cannot be read, because it is a folder now. Look at what is there now and try again.\n");
}

TEST_F(Descriptors, anOutputThatIsFullIsSaid) {
  const Opened full("/dev/full", O_WRONLY);
  ASSERT_GE(full, 0);
  Start start = serving();
  start.output = full;
  const Outcome outcome = run(start, ping(1) + '\n');
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "The output cannot be written, because the disk is full. Free some space and try again.\n");
}

TEST_F(Descriptors, anInputThatDoesNotBlockIsWaitedFor) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  ASSERT_EQ(::fcntl(ends[0], F_SETFL, O_NONBLOCK), 0);
  Start start = serving();
  start.input = ends[0];
  Program program(start);
  ::close(ends[0]);
  for (int id = 1; id <= 3; ++id) {
    const std::string line = ping(id) + '\n';
    ASSERT_EQ(::write(ends[1], line.data(), line.size()), static_cast<ssize_t>(line.size()));
    EXPECT_EQ(program.line(), pong(id));
  }
  ::close(ends[1]);
  EXPECT_EQ(program.finish().status, 0);
}

TEST_F(Descriptors, filesDoAsInputAndOutput) {
  const Folder folder;
  folder.put("input", ping(1) + '\n' + ping(2));
  folder.put("output", "");
  {
    const Opened input((folder / "input").native(), O_RDONLY), output((folder / "output").native(), O_WRONLY);
    Start start = serving();
    start.input = input;
    start.output = output;
    EXPECT_EQ(run(start), (Outcome{0, "", ""}));
  }
  EXPECT_EQ(folder.bytes("output"), pong(1) + '\n' + pong(2) + '\n');
}

}  // namespace
}  // namespace kelvane::tests
