#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <thread>

#include "protocol/JSON.h"
#include "tests/end-to-end/ClientHome.h"

namespace kelvane::tests {
namespace {

namespace fs = std::filesystem;

/// Waits until a process sleeps while it has the file open. False if it ends before.
bool sleepsOver(const fs::path& file, pid_t process) {
  const fs::path about = "/proc/" + std::to_string(process);
  while (true) {
    std::string status;
    std::getline(std::ifstream(about / "stat"), status);
    const std::size_t at = status.rfind(')') + 2;  // behind the program's name
    const char state = at < status.size() ? status[at] : 'Z';
    if (state == 'Z') return false;
    std::error_code error;
    bool isOpen = false;
    for (fs::directory_iterator entry(about / "fd", error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
      std::error_code isClosed;
      isOpen = isOpen || fs::read_symlink(entry->path(), isClosed) == file;
    }
    if (isOpen && state == 'S') return true;
    ::sched_yield();
  }
}

// A program that saves in place is half-way through for a moment, with the file open.
TEST(ConnectMeanwhile, aFileThatIsBeingSavedIsWaitedFor) {
#if defined(KELVANE_PORTABLE)
  GTEST_SKIP() << "no disk is asked who has a file open";
#endif
  const ClientHome home;
  home.put(claudeFile, "{\"old\": 1}\n");
  const int saving = ::open((home / claudeFile).c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  ASSERT_GE(saving, 0);
  Program connecting(home.start({"connect", "claude"}));
  EXPECT_TRUE(sleepsOver(fs::canonical(home / claudeFile), connecting.id()));
  const std::string text = "{\"new\": 2}\n";
  ASSERT_EQ(::write(saving, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  ::close(saving);
  EXPECT_EQ(connecting.finish().status, 0);
  EXPECT_THAT(home.bytes(claudeFile), testing::HasSubstr("\"new\": 2"));
  EXPECT_EQ(home.bytes(copyOfClaudeFile), text);
}

/// Another program that rewrites the file all the time, as programs do that write well, each time with a higher number;
/// but for as long as it finds an older number there than its last, it waits.
class Rewriter {
 public:
  explicit Rewriter(const ClientHome& home)
      : home_(home), thread_([this] {
          while (!isEnough_) write();
        }) {}
  ~Rewriter() { stop(); }

  /// The last number that it wrote.
  int stop() {
    isEnough_ = true;
    if (thread_.joinable()) thread_.join();
    return written_;
  }

 private:
  void write() {
    const auto document = JSON::decoded(home_.bytes(claudeFile));
    if (!document || *(*document)["n"] != JSON(written_)) return;
    home_.put("own", "{\"n\": " + std::to_string(++written_) + "}");
    fs::rename(home_ / "own", home_ / claudeFile);
  }

  const ClientHome& home_;
  std::atomic<bool> isEnough_ = false;
  int written_ = 0;
  std::thread thread_;
};

TEST(ConnectMeanwhile, aProgramThatWritesAllTheTimeLosesNoText) {
  const ClientHome home;
  const std::string keepsWriting =
      refused(home.quoted(claudeFile) +
                  " was not changed, because another program keeps writing it. Close that program and try again.",
              claudeLines());
  bool wasRefused = false;
  for (int attempt = 0; attempt < 200 && !wasRefused; ++attempt) {
    home.put(claudeFile, "{\"n\": 0}");
    Rewriter other(home);
    const Outcome outcome = home.kelvane({"connect", "claude"});
    const JSON last(other.stop());
    const std::string text = home.bytes(claudeFile);
    if (outcome.status != 0 && outcome.errors != keepsWriting) {
      // The other program wrote between all of our exchanges: its text is in the file that is named.
      const std::string saying =
          "Another program wrote " + home.quoted(claudeFile) + " at the same moment. What it wrote is now in \"";
      ASSERT_EQ(outcome.errors.rfind(saying, 0), 0U) << outcome;
      const std::string named =
          outcome.errors.substr(saying.size(), outcome.errors.find('"', saying.size()) - saying.size());
      const auto document = JSON::decoded(home.bytes(fs::path(named).filename().native()));
      ASSERT_TRUE(document && (*document)["n"] != nullptr) << outcome;
      EXPECT_EQ(*(*document)["n"], last) << outcome;
      continue;
    }
    wasRefused = outcome.status != 0;
    const auto document = JSON::decoded(text);
    ASSERT_TRUE(document && (*document)["n"] != nullptr) << text;
    EXPECT_EQ(*(*document)["n"], last) << outcome;
  }
  EXPECT_TRUE(wasRefused) << "The other program never came in between.";
}

}  // namespace
}  // namespace kelvane::tests
