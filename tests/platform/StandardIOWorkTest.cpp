#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>
#include <system_error>
#include <utility>

#include "platform/StandardIO.h"
#include "tests/platform/CountedCalls.h"

// The work that reading and writing takes, counted in calls and bytes instead of time.

namespace kelvane {
namespace {

using tests::CountedCalls;

/// A pipe whose two ends do not block.
class Pipe {
 public:
  Pipe() {
    if (::pipe(ends_) != 0) throw std::system_error(errno, std::generic_category());
    for (const int end : ends_) {
      if (::fcntl(end, F_SETFL, ::fcntl(end, F_GETFL) | O_NONBLOCK) != 0) {
        throw std::system_error(errno, std::generic_category());
      }
    }
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    ::close(ends_[0]);
    ::close(ends_[1]);
  }

  int reader() const { return ends_[0]; }
  int writer() const { return ends_[1]; }

 private:
  int ends_[2];
};

/// After so many reads and writes without waiting, a loop is judged to spin: the test fails, and the loop may end.
constexpr std::size_t patience = 100;

/// Makes something happen when code waits for it without a time limit, and only then.
class Occasion {
 public:
  Occasion(short events, std::function<void()> happens) : events_(events), happens_(std::move(happens)) {
    calls.onEachWait = [this](const pollfd& waiting, int limit) {
      EXPECT_EQ(waiting.events, events_);
      EXPECT_LT(limit, 0) << "waits without a time limit";
      happen();
    };
    calls.beforeEachTry = [this] {
      if (hasHappened_ || calls.reads + calls.writes < patience) return;
      ADD_FAILURE() << "tries again and again instead of waiting";
      happen();
    };
  }

  CountedCalls calls;

 private:
  void happen() {
    if (!std::exchange(hasHappened_, true)) happens_();
  }

  short events_;
  std::function<void()> happens_;
  bool hasHappened_ = false;
};

TEST(LineReader, waitsForInputWithoutSpinning) {
  Pipe pipe;
  LineReader lines(pipe.reader());
  for (int round = 0; round < 3; ++round) {
    const Occasion input(POLLIN, [&] { EXPECT_EQ(::write(pipe.writer(), "a line\n", 7), 7); });
    EXPECT_EQ(lines.next(), "a line");
    EXPECT_EQ(input.calls.waits, 1u);
    EXPECT_EQ(input.calls.reads, 2u) << "one in vain, and one when there was something";
  }
}

TEST(WriteAll, waitsForRoomWithoutSpinning) {
  Pipe pipe;
  const std::string part(4096, 'x');
  std::size_t held = 0;
  for (ssize_t count; (count = ::write(pipe.writer(), part.data(), part.size())) > 0;) {
    held += static_cast<std::size_t>(count);
  }
  ASSERT_EQ(errno, EAGAIN);
  const Occasion room(POLLOUT, [&] {
    std::string drained(held, '\0');
    EXPECT_EQ(::read(pipe.reader(), drained.data(), held), static_cast<ssize_t>(held));
  });
  writeAll(pipe.writer(), "a reply\n");
  EXPECT_EQ(room.calls.waits, 1u);
  EXPECT_EQ(room.calls.writes, 2u) << "one in vain, and one when there was room";
}

/// The bytes that are searched for the end of a line of that size, which arrives in small pieces.
std::size_t searchedForALineOf(std::size_t size) {
  const std::string path = testing::TempDir() + "a-line-of-" + std::to_string(::getpid());
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (file < 0) throw std::system_error(errno, std::generic_category(), path);
  ::unlink(path.c_str());
  writeAll(file, std::string(size, 'x') + "\nnext\n");
  ::lseek(file, 0, SEEK_SET);
  LineReader lines(file);
  std::size_t found, searched;
  {
    CountedCalls calls;
    calls.mostPerRead = 1000;
    const auto line = lines.next();
    found = line ? line->size() : 0;
    searched = calls.searched;
  }
  EXPECT_EQ(found, size);
  EXPECT_EQ(lines.next(), "next");
  ::close(file);
  return searched;
}

TEST(LineReader, searchesEachByteOfALineOnceHoweverItArrives) {
  for (const std::size_t size : {10'000u, 100'000u, 1'000'000u, 4'000'000u}) {
    const std::size_t searched = searchedForALineOf(size);
    EXPECT_GE(searched, size) << "the search was seen";
    EXPECT_LE(searched, size + 2000) << size;
  }
}

}  // namespace
}  // namespace kelvane
