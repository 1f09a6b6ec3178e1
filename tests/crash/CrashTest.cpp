#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <thread>

#include "quorvel/files/TemporaryName.h"
#include "quorvel/library/FolderLibrary.h"
#include "tests/support/Files.h"
#include "tests/support/Random.h"
#include "tests/support/TemporaryFolder.h"

/// Processes that are killed at random instants while they rewrite a script. KELVANE_CRASHES sets how many die in each
/// test; the default keeps a run short.
namespace quorvel {
namespace {

using kelvane::tests::bytesOf;
using Clock = std::chrono::steady_clock;

// The n-th text: its number, then bytes that depend on it, so that a mixture of two is none.
std::string textNumber(std::uint64_t number, std::size_t size) {
  std::string text = std::to_string(number) + '\n';
  while (text.size() < size) text.append(std::to_string(number * 0x9E3779B97F4A7C15 + text.size())).append(" ");
  text.resize(size);
  return text;
}

// What a killed process leaves to those who look: how far it had come.
struct Progress {
  std::atomic<std::uint64_t> begun = 0;         // the number of the text that is being written
  std::atomic<std::uint64_t> acknowledged = 0;  // the number of the last one that was
};

class SharedProgress {
 public:
  SharedProgress()
      : memory_(::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
    if (memory_ == MAP_FAILED) throw std::bad_alloc();
    new (memory_) Progress();
  }
  SharedProgress(const SharedProgress&) = delete;
  SharedProgress& operator=(const SharedProgress&) = delete;
  ~SharedProgress() { ::munmap(memory_, sizeof(Progress)); }

  Progress* operator->() const { return static_cast<Progress*>(memory_); }

 private:
  void* memory_;
};

// A way to replace a script's text: the library's, or one that is to be found out.
using Write = std::function<void(FolderLibrary& library, std::string_view text, const ScriptItem& script)>;

struct Tally {
  int deaths = 0;
  int violations = 0;
  int oldText = 0;    // died with the text before the one that it was writing in place
  int newText = 0;    // the same with the new text
  int leftovers = 0;  // died with a temporary file on the disk
};

class House {
 public:
  House(std::size_t size, Write write) : size_(size), write_(std::move(write)) {
    library_.create("Talk", std::nullopt);
    library_.createFolder("Elsewhere", std::nullopt);
    library_.create("Other", "Elsewhere");
    writeFor(library_, *history_, 1);
    last_ = 1;
    const auto began = Clock::now();
    for (; last_ < 6; ++last_) writeFor(library_, *history_, last_ + 1);
    aWrite_ = (Clock::now() - began) / 5;
  }

  // Lets a process rewrite the script, kills it some time later, and looks at what is left.
  void killOne(std::mt19937_64& generator, Tally& tally) {
    SharedProgress progress;
    const std::uint64_t first = last_ + 1;
    const pid_t child = ::fork();
    if (child == 0) rewriteForEver(progress, first);
    const auto aHundredth = std::max<std::int64_t>(1, std::chrono::nanoseconds(aWrite_).count() / 100);
    while (progress->begun == 0) std::this_thread::yield();
    const auto wait = static_cast<std::int64_t>(kelvane::tests::below(250, generator));
    const auto until = Clock::now() + std::chrono::nanoseconds(aHundredth * wait);
    while (Clock::now() < until) std::this_thread::yield();
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!WIFSIGNALED(status)) return fail(tally, "the writer ended by itself");
    ++tally.deaths;
    look(progress->begun, std::max(progress->acknowledged.load(), last_), first, tally);
  }

 private:
  std::filesystem::path root() const { return folder_.path(); }

  // As a tool does it: under the lock, what is replaced is kept first.
  void writeFor(FolderLibrary& library, History& history, std::uint64_t number) const {
    const auto lock = library.lock();
    history.snapshot(library.read(script_), root() / script_.identifier, "Before");
    write_(library, textNumber(number, size_), script_);
  }

  [[noreturn]] void rewriteForEver(const SharedProgress& progress, std::uint64_t number) const {
    const auto history = std::make_shared<History>(root());
    FolderLibrary library(root(), history);
    for (;; ++number) {
      progress->begun = number;
      writeFor(library, *history, number);
      progress->acknowledged = number;
    }
  }

  static void fail(Tally& tally, const std::string& what) {
    if (++tally.violations <= 3) std::cout << "violation: " << what << '\n';
  }

  void look(std::uint64_t begun, std::uint64_t acknowledged, std::uint64_t first, Tally& tally) {
    const std::string text = bytesOf(root() / script_.identifier);
    const bool isOld = text == textNumber(acknowledged, size_);
    const bool isNew = begun > acknowledged && text == textNumber(begun, size_);
    if (!isOld && !isNew)
      fail(tally, "the script is none of the texts, with " + std::to_string(text.size()) + " bytes");
    tally.oldText += begun > acknowledged && isOld;
    tally.newText += isNew;

    const std::uint64_t inPlace = isNew ? begun : acknowledged;
    for (std::uint64_t number = first - 1; number < inPlace; ++number) {
      if (!history_->hasVersionWith(textNumber(number, size_), script_.identifier)) {
        fail(tally, "text " + std::to_string(number) + " is lost");
      }
    }
    const auto items = library_.contents(root());
    if (items.size() != 2 || items[1].identifier != script_.identifier) fail(tally, "something else is listed");

    tally.leftovers += leftovers() > 0;
    {
      const auto lock = library_.lock();
      library_.write("words", other_);
    }
    if (leftovers() > 0) fail(tally, "a temporary file was not cleared away by a writer in another folder");
    last_ = std::max(begun, acknowledged) + 1;
    writeFor(library_, *history_, last_);
    if (bytesOf(root() / script_.identifier) != textNumber(last_, size_)) fail(tally, "the next write went wrong");
    if (isNew && !history_->hasVersionWith(textNumber(begun, size_), script_.identifier))
      fail(tally, "the last text is lost");
  }

  long leftovers() const {
    return std::count_if(std::filesystem::directory_iterator(root()), {}, [](const auto& entry) {
      return entry.path().filename().native().starts_with(TemporaryName::prefix);
    });
  }

  const kelvane::tests::TemporaryFolder folder_;
  const std::size_t size_;
  const Write write_;
  const ScriptItem script_{"Talk.md", "Talk", ScriptItem::Kind::script, std::nullopt};
  const ScriptItem other_{"Elsewhere/Other.md", "Other", ScriptItem::Kind::script, std::nullopt};
  const std::shared_ptr<History> history_ = std::make_shared<History>(folder_.path());
  FolderLibrary library_{folder_.path(), history_};
  std::uint64_t last_ = 0;  // the number of the text in place
  Clock::duration aWrite_{};
};

int deathsAskedFor(int byDefault) {
  const char* asked = std::getenv("KELVANE_CRASHES");
  return asked ? std::max(1, std::atoi(asked)) : byDefault;
}

Tally killMany(int deaths, const Write& write) {
  auto generator = kelvane::tests::seededGenerator();
  Tally tally;
  for (int count = 0; count < deaths;) {
    House house(count / 20 % 2 == 0 ? 4 << 10 : 64 << 10, write);
    for (int end = std::min(count + 20, deaths); count < end; ++count) house.killOne(generator, tally);
  }
  std::cout << tally.deaths << " deaths: " << tally.oldText << " with the old text in place, " << tally.newText
            << " with the new one, " << tally.leftovers << " with a temporary file left, " << tally.violations
            << " violations\n";
  return tally;
}

TEST(Crash, atAnyInstantOfARewriteLosesNothingAndLeavesNothingToRepair) {
  // About one in fifteen dies once the new text is in place; of this many, one surely does.
  const int deaths = deathsAskedFor(150);
  const Tally tally = killMany(deaths, [](FolderLibrary& library, std::string_view text, const ScriptItem& script) {
    library.write(text, script);
  });
  EXPECT_EQ(tally.violations, 0);
  EXPECT_EQ(tally.deaths, deaths);
  // Otherwise the instants were not those that matter.
  EXPECT_GT(tally.oldText, deaths / 50);
  EXPECT_GT(tally.newText, 0);
  EXPECT_GT(tally.leftovers, 0);
}

// The same harness finds out a writer that truncates the script and fills it in place.
TEST(Crash, ofAWriterThatTruncatesInPlaceIsFoundOut) {
  const Tally tally = killMany(60, [](FolderLibrary& library, std::string_view text, const ScriptItem& script) {
    const Descriptor file(::open((library.root() / script.identifier).c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
    while (!text.empty()) {
      const std::string_view piece = text.substr(0, 4096);
      if (::write(file.get(), piece.data(), piece.size()) != static_cast<ssize_t>(piece.size())) std::abort();
      std::this_thread::sleep_for(std::chrono::microseconds(100));  // as a busy disk would have it
      text.remove_prefix(piece.size());
    }
  });
  EXPECT_EQ(tally.deaths, 60);
  EXPECT_GT(tally.violations, 0);
}

}  // namespace
}  // namespace quorvel
