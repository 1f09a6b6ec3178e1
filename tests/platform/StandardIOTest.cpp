#include "platform/StandardIO.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/Random.h"

namespace kelvane {
namespace {

using namespace kelvane::tests;
using namespace std::string_literals;

/// A pipe; both ends close with it.
class Pipe {
 public:
  Pipe() {
    if (::pipe(ends_) != 0) throw std::system_error(errno, std::generic_category());
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    closeReader();
    closeWriter();
  }

  int reader() const { return ends_[0]; }
  int writer() const { return ends_[1]; }
  void closeReader() { close(ends_[0]); }
  void closeWriter() { close(ends_[1]); }

 private:
  static void close(int& end) {
    if (end >= 0) ::close(std::exchange(end, -1));
  }

  int ends_[2];
};

void doNotBlock(int descriptor) {
  ASSERT_EQ(::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK), 0);
}

std::vector<std::string> allLines(LineReader& reader) {
  std::vector<std::string> lines;
  while (const auto line = reader.next()) lines.emplace_back(*line);
  return lines;
}

/// The lines that a reader returns for an input that arrives in these chunks.
std::vector<std::string> linesOf(const std::vector<std::string>& chunks, bool blocking = true) {
  Pipe pipe;
  if (!blocking) doNotBlock(pipe.reader());
  std::thread writer([&] {
    for (const std::string& chunk : chunks) {
      if (::write(pipe.writer(), chunk.data(), chunk.size()) != static_cast<ssize_t>(chunk.size())) break;
    }
    pipe.closeWriter();
  });
  LineReader reader(pipe.reader());
  const std::vector<std::string> lines = allLines(reader);
  writer.join();
  EXPECT_EQ(reader.next(), std::nullopt) << "the end stays the end";
  return lines;
}

std::vector<std::string> inChunksOf(std::size_t size, const std::string& text) {
  std::vector<std::string> chunks;
  for (std::size_t at = 0; at < text.size(); at += size) chunks.push_back(text.substr(at, size));
  return chunks;
}

const struct {
  const char* what;
  std::string input;
  std::vector<std::string> lines;
} inputs[] = {
    {"nothing", "", {}},
    {"an empty line", "\n", {""}},
    {"two of them", "\n\r\n", {"", ""}},
    {"a line", "a line\n", {"a line"}},
    {"a last line without its end", "one\ntwo", {"one", "two"}},
    {"CR LF", "one\r\ntwo\r\n", {"one", "two"}},
    {"a CR alone ends no line", "o\rne\rtwo\n", {"o\rne\rtwo"}},
    {"of two CRs one belongs to the line", "one\r\r\n", {"one\r"}},
    {"a CR at the end belongs to the line", "one\r", {"one\r"}},
    {"spaces and tabs stay", "  one\t\n \n", {"  one\t", " "}},
    {"other line breaks end no line", "a\u2028b\u0085c\vd\n", {"a\u2028b\u0085c\vd"}},
    {"a NUL is a character", "a\0b\n\0"s, {"a\0b"s, "\0"s}},
    {"a byte-order mark stays", "\uFEFFa\n", {"\uFEFFa"}},
    {"UTF-8 stays", "é日😀\n", {"é日😀"}},
    {"ill-formed bytes are replaced, part by part", "a\xFF\xE3\x81z\n\xC3\n", {"a\uFFFD\uFFFDz", "\uFFFD"}},
    {"also in the last line", "\xF0\x9F\x98", {"\uFFFD"}},
    {"a line break cuts a sequence", "\xE3\x81\n\x82\n", {"\uFFFD", "\uFFFD"}},
    {"lines after a replaced one",
     "\xFF\nb\n\xFF"
     "c\nd",
     {"\uFFFD", "b", "\uFFFDc", "d"}},
};

TEST(LineReader, linesEndInLFOrCRLFWhateverTheChunks) {
  for (const auto& row : inputs) {
    for (const std::size_t size : {1u, 2u, 3u, 5u, 1000u}) {
      EXPECT_EQ(linesOf(inChunksOf(size, row.input)), row.lines) << row.what << ", " << size << " bytes at a time";
      EXPECT_EQ(linesOf(inChunksOf(size, row.input), false), row.lines) << row.what << ", without blocking";
    }
  }
}

TEST(LineReader, returnsEveryLineUnchangedInWhateverChunksItArrives) {
  std::mt19937_64 generator = seededGenerator();
  const std::string pieces[] = {"{\"id\":1}", "é", "\r", "日本", " ", "\xFF", "\xE3\x81", "x"};
  const std::string replaced[] = {"{\"id\":1}", "é", "\r", "日本", " ", "\uFFFD", "\uFFFD", "x"};
  for (int round = 0; round < 60; ++round) {
    std::string input;
    std::vector<std::string> expected;
    for (std::size_t left = below(40, generator); left > 0; --left) {
      // Each line ends in a letter, so that its CR is its line break's.
      expected.emplace_back();
      for (std::size_t count = below(round % 10 == 0 ? 20'000 : 10, generator); count > 0; --count) {
        const std::size_t piece = below(std::size(pieces), generator);
        input += pieces[piece];
        expected.back() += replaced[piece];
      }
      input += below(2, generator) == 0 ? "x\n" : "x\r\n";
      expected.back() += "x";
    }
    std::vector<std::string> chunks;
    for (std::size_t at = 0; at < input.size();) {
      const std::size_t size = 1 + below(below(4, generator) == 0 ? 100'000 : 200, generator);
      chunks.push_back(input.substr(at, size));
      at += size;
    }
    ASSERT_EQ(linesOf(chunks), expected);
  }
}

TEST(LineReader, returnsALineBeforeItReadsMore) {
  Pipe pipe;
  LineReader reader(pipe.reader());
  ASSERT_EQ(::write(pipe.writer(), "one\ntwo\nth", 10), 10);
  EXPECT_EQ(reader.next(), "one");
  EXPECT_EQ(reader.next(), "two");
  ASSERT_EQ(::write(pipe.writer(), "ree\n", 4), 4);
  EXPECT_EQ(reader.next(), "three");
}

TEST(LineReader, aLineThatIsUTF8IsNotCopied) {
  Pipe pipe;
  LineReader reader(pipe.reader());
  ASSERT_EQ(::write(pipe.writer(), "one\ntwo\n", 8), 8);
  const char* first = reader.next()->data();
  EXPECT_EQ(reader.next()->data(), first + 4) << "both lie where they were read";
}

void writeHugeLineAndShortOnes(int writer, std::size_t size) {
  const std::string part(1 << 20, 'x');
  for (std::size_t written = 0; written < size; written += part.size()) writeAll(writer, part);
  writeAll(writer, "\n\xFF\nshort\n" + std::string(100'000, 'y') + "\n");
}

TEST(LineReader, readsTheLinesAfterAHugeOne) {
  const std::size_t size = 20 << 20;
  Pipe pipe;
  std::thread writer([&] {
    writeHugeLineAndShortOnes(pipe.writer(), size);
    pipe.closeWriter();
  });
  LineReader reader(pipe.reader());
  EXPECT_TRUE(reader.next() == std::string(size, 'x'));
  EXPECT_EQ(reader.next(), "\uFFFD");
  EXPECT_EQ(reader.next(), "short");
  EXPECT_EQ(reader.next(), std::string(100'000, 'y'));
  EXPECT_EQ(reader.next(), std::nullopt);
  writer.join();
}

TEST(LineReader, freesTheMemoryOfAHugeLine) {
  const std::size_t size = 20 << 20;
  const auto taken = [] { return ::mallinfo2().hblkhd; };
  for (const char first : {'x', '\xFF'}) {
    Pipe pipe;
    const std::size_t before = taken();  // before the other thread takes some for itself
    std::thread writer([&] {
      writeAll(pipe.writer(), {&first, 1});
      writeHugeLineAndShortOnes(pipe.writer(), size);
      pipe.closeWriter();
    });
    LineReader reader(pipe.reader());
    EXPECT_GT(reader.next()->size(), size);
    const std::size_t most = taken() - before;
    while (reader.next()) {
    }
    writer.join();
    if (most < size) GTEST_SKIP() << "The memory taken cannot be told with this allocator.";
    EXPECT_LT(most, 5 * size) << "linear in the line, replaced or not";
    EXPECT_LT(taken() - before, std::size_t{4} << 20);
  }
}

TEST(LineReader, freesTheMemoryOfAHugeLineAtOnceIfAsked) {
  const std::size_t size = 20 << 20;
  const auto taken = [] { return ::mallinfo2().hblkhd; };
  for (const char first : {'x', '\xFF'}) {
    Pipe pipe;
    const std::size_t before = taken();
    std::thread writer([&] {
      writeAll(pipe.writer(), {&first, 1});
      writeAll(pipe.writer(), std::string(size, 'x').append("\none\ntwo\n"));
    });
    LineReader reader(pipe.reader());
    EXPECT_GT(reader.next()->size(), size);
    writer.join();
    const std::size_t most = taken() - before;
    reader.release();
    if (most < size) GTEST_SKIP() << "The memory taken cannot be told with this allocator.";
    EXPECT_LT(taken() - before, std::size_t{1} << 20);
    EXPECT_EQ(reader.next(), "one") << "what was read already stays";
    reader.release();
    EXPECT_EQ(reader.next(), "two");
    reader.release();
    pipe.closeWriter();
    EXPECT_EQ(reader.next(), std::nullopt);
    reader.release();
    EXPECT_EQ(reader.next(), std::nullopt);
  }
}

TEST(LineReader, needsNoMoreMemoryThanWhatArrived) {
  Pipe pipe;
  writeAll(pipe.writer(), "a line\n");
  const auto touched = [] {
    ::rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
  };
  // The buffer's pages are untouched where nothing was read.
  std::vector<LineReader> readers;
  for (int i = 0; i < 100; ++i) readers.emplace_back(pipe.reader());
  const auto before = touched();
  for (LineReader& reader : readers) {
    writeAll(pipe.writer(), "a line\n");
    EXPECT_EQ(reader.next(), "a line");
  }
  EXPECT_LT(touched() - before, 100 * 8) << "a buffer has 16 pages";
}

/// The errno of the std::system_error that an attempt throws; 0 if it throws nothing.
template <typename Attempt>
int errorOf(const Attempt& attempt) {
  try {
    attempt();
  } catch (const std::system_error& error) {
    return error.code().value();
  }
  return 0;
}

TEST(LineReader, aDescriptorThatCannotBeReadThrows) {
  Pipe pipe;
  const int writer = pipe.writer();
  const struct {
    const char* what;
    int descriptor;
    int error;
  } rows[] = {
      {"no descriptor", -1, EBADF},
      {"one that is open for writing only", writer, EBADF},
      {"a folder", ::open("/", O_RDONLY | O_CLOEXEC), EISDIR},
  };
  for (const auto& row : rows) {
    LineReader reader(row.descriptor);
    EXPECT_EQ(errorOf([&] { reader.next(); }), row.error) << row.what;
  }
  ::close(rows[2].descriptor);
}

/// Signals a thread again and again while it reads or writes, with a handler that does nothing and interrupts calls.
class Interruptions {
 public:
  Interruptions() : target_(::pthread_self()) {
    struct sigaction action {};
    action.sa_handler = [](int) { ++delivered; };
    ::sigaction(SIGUSR1, &action, &before_);
    thread_ = std::thread([this] {
      while (!done_) {
        ::pthread_kill(target_, SIGUSR1);
        ::usleep(200);
      }
    });
  }
  ~Interruptions() {
    done_ = true;
    thread_.join();
    ::sigaction(SIGUSR1, &before_, nullptr);
  }

  static inline std::atomic<int> delivered = 0;

 private:
  pthread_t target_;
  struct sigaction before_ {};
  std::atomic<bool> done_ = false;
  std::thread thread_;
};

TEST(LineReader, repeatsInterruptedReads) {
  for (const bool blocking : {true, false}) {
    Pipe pipe;
    if (!blocking) doNotBlock(pipe.reader());
    Interruptions::delivered = 0;
    std::thread writer([&] {
      ::sigset_t all;
      ::sigfillset(&all);
      ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
      // Writes nothing until the reader has been interrupted often while it waited for input.
      while (Interruptions::delivered < 20) ::usleep(100);
      for (const char byte : "a line\n"s) {
        ::usleep(500);
        writeAll(pipe.writer(), {&byte, 1});
      }
      pipe.closeWriter();
    });
    {
      const Interruptions interruptions;
      LineReader reader(pipe.reader());
      EXPECT_EQ(allLines(reader), std::vector<std::string>{"a line"});
    }
    writer.join();
  }
}

/// Reads to the end, `step` bytes at a time.
std::string drained(int descriptor, std::size_t step) {
  std::string result;
  std::string buffer(step, '\0');
  for (;;) {
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count <= 0) return result;
    result.append(buffer, 0, static_cast<std::size_t>(count));
  }
}

TEST(WriteAll, writesEveryByteIfTheSystemAcceptsAFewAtATime) {
  std::string text;
  for (int count = 0; text.size() < 3'000'000; ++count) text += std::to_string(count) + ' ';
  for (const bool blocking : {true, false}) {
    Pipe pipe;
#ifdef F_SETPIPE_SZ
    ASSERT_GE(::fcntl(pipe.writer(), F_SETPIPE_SZ, 4096), 4096);
#endif
    if (!blocking) doNotBlock(pipe.writer());
    std::string arrived;
    std::thread reader([&] {
      ::sigset_t all;
      ::sigfillset(&all);
      ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
      arrived = drained(pipe.reader(), 1000);
    });
    {
      const Interruptions interruptions;
      writeAll(pipe.writer(), text);
    }
    pipe.closeWriter();
    reader.join();
    EXPECT_TRUE(arrived == text) << (blocking ? "blocking" : "not blocking") << ", " << arrived.size() << " bytes";
  }
}

TEST(WriteAll, writesOnceIfTheSystemAcceptsAllBytes) {
  // A pipe in packet mode returns one write per read.
  int ends[2];
  if (::pipe2(ends, O_DIRECT) != 0) GTEST_SKIP() << "This system has no pipes that keep writes apart.";
  writeAll(ends[1], "one reply\n");
  writeAll(ends[1], "");
  writeAll(ends[1], "another\n");
  ::close(ends[1]);
  std::vector<std::string> writes;
  char buffer[4096];
  for (ssize_t count; (count = ::read(ends[0], buffer, sizeof buffer)) > 0;) {
    writes.emplace_back(buffer, static_cast<std::size_t>(count));
  }
  ::close(ends[0]);
  EXPECT_EQ(writes, (std::vector<std::string>{"one reply\n", "another\n"}));
}

TEST(WriteAll, throwsIfTheBytesCannotBeWritten) {
  const auto ignored = ::signal(SIGPIPE, SIG_IGN);
  Pipe gone, open;
  gone.closeReader();
  const int device = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  const struct {
    const char* what;
    int descriptor;
    int error;
  } rows[] = {
      {"no descriptor", -1, EBADF},
      {"one that is open for reading only", open.reader(), EBADF},
      {"a pipe whose reader is gone", gone.writer(), EPIPE},
      {"a full disk", device, ENOSPC},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(errorOf([&] { writeAll(row.descriptor, "text"); }), row.error) << row.what;
    EXPECT_NO_THROW(writeAll(row.descriptor, "")) << row.what << ": writing no bytes never fails";
  }
  ::close(device);
  ::signal(SIGPIPE, ignored);
}

TEST(WriteAll, throwsIfTheReaderGoesAwayHalfWay) {
  const auto ignored = ::signal(SIGPIPE, SIG_IGN);
  for (const bool blocking : {true, false}) {
    Pipe pipe;
    if (!blocking) doNotBlock(pipe.writer());
    std::thread reader([&] {
      char buffer[1000];
      EXPECT_GT(::read(pipe.reader(), buffer, sizeof buffer), 0);
      pipe.closeReader();
    });
    EXPECT_EQ(errorOf([&] { writeAll(pipe.writer(), std::string(10'000'000, 'x')); }), EPIPE) << blocking;
    reader.join();
  }
  ::signal(SIGPIPE, ignored);
}

}  // namespace
}  // namespace kelvane
