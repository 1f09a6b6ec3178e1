// Writes that wait in memory, and what is left of them when the system fails.
#include "quorvel/history/BufferedFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "tests/quorvel/history/HistoryCalls.h"
#include "tests/support/Files.h"
#include "tests/support/Random.h"
#include "tests/support/TemporaryFolder.h"

namespace quorvel::sqlite {
namespace {

class BufferedFiles : public ::testing::Test {
 protected:
  BufferedFile opened() {
    return BufferedFile(calls,
                        Descriptor(SystemCalls::ofTheSystem().open(AT_FDCWD, path.c_str(), O_RDWR | O_CREAT, 0600)));
  }

  std::string onDisk() const { return kelvane::tests::bytesOf(path); }

  static void write(BufferedFile& file, std::string_view bytes, off_t at) {
    file.write(bytes.data(), bytes.size(), at);
  }

  static std::string read(BufferedFile& file, std::size_t count, off_t at) {
    std::string bytes(count, '?');
    const std::size_t found = file.read(bytes.data(), count, at);
    EXPECT_EQ(bytes.substr(found), std::string(count - found, '\0')) << "the rest is zeros";
    return bytes.substr(0, found);
  }

  static std::string whole(BufferedFile& file) { return read(file, static_cast<std::size_t>(file.size()), 0); }

  static int errorOf(const std::function<void()>& attempt) {
    try {
      attempt();
    } catch (const std::system_error& error) {
      return error.code().value();
    }
    return 0;
  }

  const kelvane::tests::TemporaryFolder folder;
  const std::filesystem::path path = folder.path() / "file";
  HistoryCalls calls;
};

TEST_F(BufferedFiles, keepWritesInMemoryUntilTheFlush) {
  BufferedFile file = opened();
  write(file, "one", 0);
  write(file, "two", 3);
  write(file, "N", 1);
  EXPECT_EQ(whole(file), "oNetwo");
  EXPECT_EQ(onDisk(), "");
  int writes = 0;
  calls.before = [&](std::string_view call) { return writes += call == "writeAt", 0; };
  file.flush();
  EXPECT_EQ(onDisk(), "oNetwo");
  EXPECT_EQ(writes, 1);
}

TEST_F(BufferedFiles, loseWhatWaitsAtTheirEnd) {
  {
    BufferedFile file = opened();
    write(file, "kept", 0);
    file.flush();
    write(file, "lost", 4);
  }
  EXPECT_EQ(onDisk(), "kept");
}

TEST_F(BufferedFiles, dropWaitingBytesBehindANewEndAndSendNone) {
  BufferedFile file = opened();
  write(file, "0123456789", 0);
  file.truncate(4);
  EXPECT_EQ(onDisk(), "0123");
  EXPECT_EQ(file.size(), 4);
  write(file, "beyond", 10);
  file.truncate(4);
  file.flush();
  EXPECT_EQ(onDisk(), "0123");
}

TEST_F(BufferedFiles, readTheBeginningOnceWhileNobodyElseChangesIt) {
  kelvane::tests::writeFile(path, std::string(100'000, 'x'));
  BufferedFile file = opened();
  int reads = 0;
  calls.before = [&](std::string_view call) { return reads += call == "readAt", 0; };
  file.remember(100'000);
  for (int page = 0; page < 16; ++page) EXPECT_EQ(read(file, 4096, page * 4096), std::string(4096, 'x'));
  EXPECT_EQ(reads, 1);
  EXPECT_EQ(read(file, 4096, 65'536), std::string(4096, 'x')) << "behind it";
  EXPECT_EQ(read(file, 100, 99'990), std::string(10, 'x')) << "over the end";
  EXPECT_EQ(read(file, 100, 100'000), "");
  kelvane::tests::writeFile(path, "changed");
  EXPECT_EQ(read(file, 4, 0), "xxxx");
  file.forget();
  EXPECT_EQ(read(file, 100, 0), "changed");
  EXPECT_EQ(file.size(), 7);
}

TEST_F(BufferedFiles, holdTheBytesOfAPlainFileWhateverIsDone) {
  auto random = kelvane::tests::seededGenerator();
  const auto below = [&](std::size_t bound) { return kelvane::tests::below(bound, random); };
  for (const std::size_t mostWritten : {std::size_t{3}, std::size_t{1} << 30}) {
    std::filesystem::remove(path);
    calls.mostWritten = mostWritten;
    BufferedFile file = opened();
    file.remember(0);
    std::string model;
    for (int step = 0; step < 3'000; ++step) {
      const std::size_t at = below(model.size() + 20);
      const std::size_t count = 1 + below(50);
      switch (below(8)) {
        case 0:
          file.flush();
          ASSERT_EQ(onDisk(), model);
          break;
        case 1:
          model.resize(at);
          file.truncate(static_cast<off_t>(at));
          break;
        case 2:
          file.sendWaiting();
          break;
        case 3:
        case 4:
          ASSERT_EQ(read(file, count, static_cast<off_t>(at)), at < model.size() ? model.substr(at, count) : "");
          break;
        default: {
          const std::string bytes(count, static_cast<char>('a' + below(26)));
          model.resize(std::max(model.size(), at + count));
          model.replace(at, count, bytes);
          write(file, bytes, static_cast<off_t>(at));
        }
      }
      ASSERT_EQ(file.size(), static_cast<off_t>(model.size())) << step;
    }
  }
}

TEST_F(BufferedFiles, reportTheSystemsReasonAndKeepWhatWaitsWhicheverCallFails) {
  const std::vector<std::function<void(BufferedFile&)>> steps = {
      [](BufferedFile& file) { write(file, "the first bytes, ", 0); },
      [](BufferedFile& file) { file.flush(); },
      [](BufferedFile& file) { write(file, "and the next", 17); },
      [](BufferedFile& file) { write(file, "T", 0); },  // sends the run before
      [](BufferedFile& file) { EXPECT_EQ(read(file, 17, 0), "The first bytes, "); },
      [](BufferedFile& file) { file.flush(); },
  };
  for (const int error : {ENOSPC, EIO, EDQUOT}) {
    for (int deadly = 1;; ++deadly) {
      SCOPED_TRACE(std::to_string(error) + " at call " + std::to_string(deadly));
      std::filesystem::remove(path);
      calls.mostWritten = 5;
      BufferedFile file = opened();
      int made = 0;
      calls.before = [&](std::string_view) { return ++made == deadly ? error : 0; };
      int failed = 0;
      for (const auto& step : steps) {
        const int said = errorOf([&] { step(file); });
        if (said == 0) continue;
        ++failed;
        EXPECT_EQ(said, error);
        EXPECT_EQ(errorOf([&] { step(file); }), 0) << "done again, it succeeds";
      }
      EXPECT_EQ(failed, made < deadly ? 0 : 1);
      EXPECT_EQ(onDisk(), "The first bytes, and the next");
      if (made < deadly) break;
    }
  }
}

TEST_F(BufferedFiles, reportADiskThatWritesNothingAsFull) {
  BufferedFile file = opened();
  write(file, "bytes", 0);
  calls.mostWritten = 0;
  EXPECT_EQ(errorOf([&] { file.flush(); }), ENOSPC);
}

}  // namespace
}  // namespace quorvel::sqlite
