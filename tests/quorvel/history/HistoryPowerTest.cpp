// The power fails at any call: whatever was not flushed may be lost, in any part. What is left is a whole history.
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <random>
#include <set>

#include "quorvel/files/FileIdentity.h"
#include "tests/quorvel/history/HistoryCalls.h"
#include "tests/quorvel/history/HistoryHouse.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Random.h"

namespace quorvel {
namespace {

using kelvane::tests::inChild;
using ::testing::Contains;
using ::testing::IsEmpty;

/// A disk that forgets, when the power fails, some or all of what was written and not flushed.
class ForgetfulDisk : public HistoryCalls {
 public:
  int open(int folder, const char* name, int flags, unsigned int mode) const noexcept override {
    const bool isNew = (flags & O_CREAT) != 0 && !identityOf(folder, name);
    const int file = HistoryCalls::open(folder, name, flags, mode);
    if (isNew && file >= 0) names_.push_back({Descriptor(::dup(folder)), name, Descriptor()});
    return file;
  }

  long writeAt(int file, const void* bytes, std::size_t count, off_t at) const noexcept override {
    struct stat status {};
    ::fstat(file, &status);
    std::string old(count, '\0');
    (void)::pread(file, old.data(), count, at);
    const long done = HistoryCalls::writeAt(file, bytes, count, at);
    if (done >= 0) writes_.push_back({Descriptor(::dup(file)), at, old, status.st_size});
    return done;
  }

  int flushBytes(int file) const noexcept override {
    const int answer = HistoryCalls::flushBytes(file);
    const auto flushed = identityOf(file);
    if (answer == 0)
      std::erase_if(writes_, [&](const Write& write) { return identityOf(write.file.get()) == flushed; });
    return answer;
  }

  /// A folder, whichever: those above the history's own have no names to lose here.
  int flush(int folder) const noexcept override {
    const int answer = HistoryCalls::flush(folder);
    const auto flushed = identityOf(folder);
    if (answer == 0) std::erase_if(names_, [&](const Name& name) { return identityOf(name.folder.get()) == flushed; });
    return answer;
  }

  int unlink(int folder, const char* name) const noexcept override {
    Descriptor file(::openat(folder, name, O_RDONLY | O_CLOEXEC));
    const int answer = HistoryCalls::unlink(folder, name);
    if (answer == 0) names_.push_back({Descriptor(::dup(folder)), name, std::move(file)});
    return answer;
  }

  /// Forgets each thing that was not flushed if `isForgotten` says so, the latest first.
  void failPower(const std::function<bool()>& isForgotten) {
    for (auto write = writes_.rbegin(); write != writes_.rend(); ++write) {
      if (!isForgotten()) continue;
      (void)::pwrite(write->file.get(), write->old.data(), write->old.size(), write->at);
      if (write == writes_.rbegin()) (void)::ftruncate(write->file.get(), write->size);
    }
    for (auto name = names_.rbegin(); name != names_.rend(); ++name) {
      if (!isForgotten()) continue;
      if (name->removed) {
        bringBack(*name);
      } else {
        ::unlinkat(name->folder.get(), name->name.c_str(), 0);
      }
    }
  }

 private:
  struct Write {
    Descriptor file;
    off_t at;
    std::string old;
    off_t size;
  };
  struct Name {
    Descriptor folder;
    std::string name;
    Descriptor removed;  // what had the name, if it was deleted; else the name is new
  };

  static void bringBack(const Name& name) {
    struct stat status {};
    ::fstat(name.removed.get(), &status);
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    (void)::pread(name.removed.get(), bytes.data(), bytes.size(), 0);
    const Descriptor file(::openat(name.folder.get(), name.name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    (void)::pwrite(file.get(), bytes.data(), bytes.size(), 0);
  }

  mutable std::vector<Write> writes_;
  mutable std::vector<Name> names_;
};

class HistoryWithoutPower : public HistoryHouse {
 protected:
  HistoryWithoutPower() : HistoryHouse(kelvane::tests::folderInMemory()) {}

  /// A process keeps a text, and the power fails at its n-th call, or after the last one. Whether it was acknowledged.
  bool keepUntilPowerFails(const std::string& text, int deadly, const std::function<bool()>& isForgotten) const {
    const std::filesystem::path said = folder.path().string() + ".said";
    std::filesystem::remove(said);
    const std::string end = inChild([&]() -> std::string {
      ForgetfulDisk disk;
      int made = 0;
      disk.before = [&](std::string_view) -> int {
        if (++made < deadly) return 0;
        disk.failPower(isForgotten);
        kelvane::tests::dieAtOnce();
      };
      History(root, std::chrono::system_clock::now, patience, disk).snapshot(text, pathOf("Talk.md"), "");
      disk.failPower(isForgotten);
      write(said, "kept");
      kelvane::tests::dieAtOnce();
    });
    EXPECT_EQ(end, "killed by signal 9");
    return std::filesystem::remove(said);
  }

  /// What SQLite itself finds in a copy, after it played the journal back: "ok" if that is a whole database.
  std::string checkedBySQLite() const {
    const kelvane::tests::TemporaryFolder copies;
    if (!std::filesystem::exists(database)) return "ok";
    std::filesystem::copy(database, copies.path() / "history.sqlite");
    if (std::filesystem::exists(journal)) std::filesystem::copy(journal, copies.path() / "history.sqlite-journal");
    sqlite3* copy = nullptr;
    sqlite3_open((copies.path() / "history.sqlite").c_str(), &copy);
    std::string answer;
    const int code = sqlite3_exec(
        copy, "PRAGMA integrity_check",
        [](void* into, int, char** values, char**) { return *static_cast<std::string*>(into) += values[0], 0; },
        &answer, nullptr);
    if (code != SQLITE_OK) answer = sqlite3_errmsg(copy);
    sqlite3_close(copy);
    return answer;
  }
};

TEST_F(HistoryWithoutPower, isValidAndHasEveryAcknowledgedVersion) {
  const std::string large(3'000'000, 'x');  // does not fit into SQLite's memory, so that pages change before the end
  const struct {
    const char* what;
    const char* first;
    std::string second;
  } cases[] = {{"the first version", "", "one"}, {"another version", "one", "two"}, {"a large version", "one", large}};
  auto random = kelvane::tests::seededGenerator();
  const std::pair<const char*, std::function<bool()>> disks[] = {
      {"forgets all", [] { return true; }},
      {"forgets nothing", [] { return false; }},
      {"forgets some", [&] { return random() % 2 == 0; }},
      {"forgets other parts", [&] { return random() % 2 == 0; }},
  };
  int moments = 0;
  int journals = 0;
  for (const auto& [what, first, second] : cases) {
    for (const auto& [disk, isForgotten] : disks) {
      for (int deadly = 1;; ++deadly) {
        SCOPED_TRACE(std::string(what) + ", a disk that " + disk + ", call " + std::to_string(deadly));
        std::filesystem::remove_all(root / ".kelvane");
        if (*first) save(first, "Talk.md");
        random.discard(1);  // each child forgets something else
        const bool isAcknowledged = keepUntilPowerFails(second, deadly, isForgotten);
        ++moments;
        journals += std::filesystem::exists(journal);
        EXPECT_EQ(checkedBySQLite(), "ok");
        const std::string after = *first ? first + (" " + second) : second;
        const std::string found = story("Talk.md");
        EXPECT_TRUE(found == after || (!isAcknowledged && found == first)) << found.substr(0, 100);
        EXPECT_THAT(history.problems(), IsEmpty());
        save("later", "Talk.md");
        EXPECT_EQ(story("Talk.md"), found.empty() ? "later" : found + " later");
        if (isAcknowledged) break;
      }
    }
  }
  std::cout << moments << " moments, " << journals << " journals left\n";
  EXPECT_GT(journals, 20);
}

// Each call that fails once, and each from which on all fail, while the disk writes little at a time.
TEST_F(HistoryWithoutPower, isAsItWasAfterADiskErrorAndCanBeWrittenAgain) {
  HistoryCalls calls;
  calls.mostWritten = 1'000;
  History staged(root, std::chrono::system_clock::now, patience, calls);
  for (const int error : {EIO, ENOSPC}) {
    for (const bool isForGood : {false, true}) {
      for (int failing = 1;; ++failing) {
        SCOPED_TRACE(std::to_string(error) + (isForGood ? " from call " : " at call ") + std::to_string(failing));
        std::filesystem::remove_all(root / ".kelvane");
        save("one", "Talk.md");
        int made = 0;
        calls.before = [&](std::string_view) {
          ++made;
          return made == failing || (isForGood && made > failing) ? error : 0;
        };
        const std::string sentence = sentenceOf([&] { staged.snapshot("two", pathOf("Talk.md"), ""); });
        calls.before = [](std::string_view) { return 0; };
        if (made < failing) break;
        const std::string found = story("Talk.md");
        const bool isUncertain = sentence.find("it is not certain") != std::string::npos;
        EXPECT_TRUE(sentence == "(no failure)" ? found == "one two" : found == "one" || isUncertain)
            << sentence << found;
        EXPECT_EQ(sentence.find("damaged"), std::string::npos) << sentence;
        EXPECT_THAT(history.problems(), IsEmpty());
        save("three", "Talk.md");
        EXPECT_EQ(story("Talk.md"), found + " three");
      }
    }
  }
}

TEST_F(HistoryWithoutPower, isNotReportedAsDamagedWhenReadingFails) {
  save(std::string(100'000, 'x'), "Talk.md");
  HistoryCalls calls;
  const History staged(root, std::chrono::system_clock::now, patience, calls);
  int failing = 1;
  for (;; ++failing) {
    int made = 0;
    calls.before = [&](std::string_view call) { return call == "readAt" && ++made == failing ? EIO : 0; };
    const std::string sentence = sentenceOf([&] { staged.text("Talk.md", {0, 1}); });
    if (made < failing) break;
    EXPECT_EQ(
        sentence,
        "The version history of this library (.kelvane/history.sqlite) could not be read, because the disk reports "
        "an error. Check the disk.");
  }
  EXPECT_GT(failing, 2);
}

}  // namespace
}  // namespace quorvel
