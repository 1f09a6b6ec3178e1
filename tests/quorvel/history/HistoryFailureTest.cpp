// What cannot be used as a history: one sentence each, and everything as it was.
#include <sched.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <utility>

#include "tests/quorvel/history/HistoryHouse.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FailingSystemCalls.h"

namespace quorvel {
namespace {

using kelvane::tests::becomeNobody;
using kelvane::tests::FailingSystemCalls;
using kelvane::tests::inChild;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string subject = "The version history of this library (.kelvane/history.sqlite) ";

class HistoryFailures : public HistoryHouse {
 protected:
  void expectUse(const std::string& reading, const std::string& writing, const std::string& what) {
    const auto before = everything();
    EXPECT_EQ(sentenceOf([&] { history.versions(pathOf("Talk.md")); }), reading) << what;
    EXPECT_EQ(sentenceOf([&] { history.entries("Talk.md"); }), reading) << what;
    EXPECT_EQ(sentenceOf([&] { history.text("Talk.md", {0, 1}); }), reading) << what;
    EXPECT_EQ(sentenceOf([&] { history.scripts(); }), reading) << what;
    EXPECT_EQ(sentenceOf([&] { history.hasVersionWith("words", "Talk.md"); }), reading) << what;
    EXPECT_EQ(sentenceOf([&] { history.setAside("Talk.md"); }), reading) << what;
    EXPECT_EQ(sentenceOf([&] { history.willRename("Talk.md", "Speech.md").done(); }), reading) << what;
    EXPECT_EQ(sentenceOf([&] { save("words", "Talk.md"); }), writing) << what;
    EXPECT_THAT(history.problems(), ElementsAre(reading)) << what;
    EXPECT_EQ(everything(), before) << what;
  }

  /// The two sentences for what differs only in its outcome.
  void expectUnusable(const std::string& happened, const std::string& advice, const std::string& what) {
    expectUse(subject + happened + ", so it cannot be read. " + advice,
              subject + happened + ", so nothing was changed. " + advice, what);
  }

  void startAfresh() {
    std::filesystem::remove_all(root / ".kelvane");
    std::filesystem::remove_all(root / "elsewhere");
    put("Talk.md");
    save("words", "Talk.md", "label");
  }
};

TEST_F(HistoryFailures, aFileThatIsNotAHistoryIsReportedAndLeftAsItIs) {
  const struct {
    const char* what;
    std::function<void()> done;
    const char* happened;
    const char* advice;
  } cases[] = {
      {"a text under the name", [this] { write(database, std::string(8192, 'x')); }, "is damaged",
       "Move that file away to start a new one, or restore it from a backup."},
      {"a short text under the name", [this] { write(database, "x"); }, "is damaged",
       "Move that file away to start a new one, or restore it from a backup."},
      {"half of it", [this] { std::filesystem::resize_file(database, std::filesystem::file_size(database) / 2); },
       "is damaged", "Move that file away to start a new one, or restore it from a backup."},
      {"its first page alone", [this] { write(database, read(database).substr(0, 4096)); }, "is damaged",
       "Move that file away to start a new one, or restore it from a backup."},
      {"zeros behind the first page",
       [this] { write(database, read(database).substr(0, 4096) + std::string(read(database).size() - 4096, '\0')); },
       "is damaged", "Move that file away to start a new one, or restore it from a backup."},
      {"a table gone", [this] { change("DROP TABLE versions; DROP TABLE scripts; DROP TABLE pendingRenames"); },
       "is damaged", "Move that file away to start a new one, or restore it from a backup."},
      {"from a newer version", [this] { change("PRAGMA user_version = 3"); },
       "was written by a newer version of this program", "Update the program."},
      {"another program's, marked as such", [this] { change("PRAGMA application_id = 1"); },
       "is not a version history but another program's database", "Move that file away to start a new one."},
      {"another program's, not marked",
       [this] {
         std::filesystem::remove(database);
         openedDatabase(database, sqlite::Connection::Access::creating, patience).runAll("CREATE TABLE t (x)");
       },
       "is not a version history but another program's database", "Move that file away to start a new one."},
      {"marked as ours, with nothing in it", [this] { change("PRAGMA user_version = 0"); },
       "is not a version history but another program's database", "Move that file away to start a new one."},
      {"a folder under the name",
       [this] {
         std::filesystem::remove(database);
         std::filesystem::create_directory(database);
       },
       "is not a file but a link or a folder", "Move that link or folder away."},
      {"a link to a history under the name",
       [this] {
         std::filesystem::rename(database, root / "elsewhere");
         std::filesystem::create_symlink(root / "elsewhere", database);
       },
       "is not a file but a link or a folder", "Move that link or folder away."},
      {"a dangling link under the name",
       [this] {
         std::filesystem::remove(database);
         std::filesystem::create_symlink(root / "nowhere", database);
       },
       "is not a file but a link or a folder", "Move that link or folder away."},
      {"a file under the folder's name",
       [this] {
         std::filesystem::remove_all(root / ".kelvane");
         write(root / ".kelvane", "x");
       },
       "belongs in a folder whose name, .kelvane, a file or a link has taken", "Move that file or link away."},
      {"a link to a folder with a history under the folder's name",
       [this] {
         std::filesystem::rename(root / ".kelvane", root / "elsewhere");
         std::filesystem::create_directory_symlink(root / "elsewhere", root / ".kelvane");
       },
       "belongs in a folder whose name, .kelvane, a file or a link has taken", "Move that file or link away."},
      {"a dangling link under the folder's name",
       [this] {
         std::filesystem::remove_all(root / ".kelvane");
         std::filesystem::create_directory_symlink(root / "nowhere", root / ".kelvane");
       },
       "belongs in a folder whose name, .kelvane, a file or a link has taken", "Move that file or link away."},
  };
  for (const auto& [what, done, happened, advice] : cases) {
    startAfresh();
    done();
    expectUnusable(happened, advice, what);
  }
}

TEST_F(HistoryFailures, aHistoryThatIsLockedForTooLongIsReported) {
  startAfresh();
  sqlite::Connection other = openedDatabase(database, sqlite::Connection::Access::writing, patience);
  other.runAll("PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE");
  expectUnusable("has been in use by another program for 1 second", "Try again in a moment.", "locked");
}

TEST_F(HistoryFailures, aWriterExcludesOtherWritersButNotReaders) {
  startAfresh();
  sqlite::Connection other = openedDatabase(database, sqlite::Connection::Access::writing, patience);
  other.runAll("BEGIN IMMEDIATE");
  EXPECT_EQ(story("Talk.md"), "words");
  EXPECT_EQ(
      sentenceOf([&] { save("more", "Talk.md"); }),
      subject + "has been in use by another program for 1 second, so nothing was changed. Try again in a moment.");
  other.runAll("COMMIT");
  save("more", "Talk.md");
  EXPECT_EQ(story("Talk.md"), "words more");
}

TEST_F(HistoryFailures, aWriterThatWaitsTooLongForAReaderChangesNothing) {
  startAfresh();
  sqlite::Connection other = openedDatabase(database, sqlite::Connection::Access::reading, patience);
  other.runAll("BEGIN; SELECT count(*) FROM versions");
  EXPECT_EQ(
      sentenceOf([&] { save("more", "Talk.md"); }),
      subject + "has been in use by another program for 1 second, so nothing was changed. Try again in a moment.");
  other.runAll("COMMIT");
  EXPECT_EQ(story("Talk.md"), "words");
  EXPECT_THAT(history.problems(), IsEmpty());
}

TEST_F(HistoryFailures, aMissingPermissionIsReported) {
  const std::string notWritten =
      subject +
      "could not be written, because the system does not permit it, so nothing was changed. Check who may "
      "read and write in the folder .kelvane.";
  const std::string notRead = subject +
                              "could not be read, because the system does not permit it. Check who may read "
                              "and write in the folder .kelvane.";
  const struct {
    const char* what;
    unsigned root, folder, file;
    std::string reading, writing;
  } cases[] = {
      {"all but the file", 0777, 0777, 0444, "words", notWritten},
      {"all but the folder", 0777, 0555, 0666, "words", notWritten},
      {"nothing", 0555, 0555, 0444, "words", notWritten},
      {"the folder not even read", 0777, 0000, 0666, notRead, notWritten},
      {"the file not even read", 0777, 0777, 0000, notRead, notWritten},
  };
  for (const auto& [what, rootMode, folderMode, fileMode, reading, writing] : cases) {
    startAfresh();
    const auto before = everything();
    std::filesystem::permissions(database, std::filesystem::perms(fileMode));
    std::filesystem::permissions(root / ".kelvane", std::filesystem::perms(folderMode));
    std::filesystem::permissions(root, std::filesystem::perms(rootMode));
    const auto asNobody = [](const std::function<std::string()>& body) {
      return inChild([&] {
        becomeNobody();
        return body();
      });
    };
    const std::string readSentence = asNobody([&] {
      const std::string sentence = sentenceOf([&] { story("Talk.md"); });
      return sentence == "(no failure)" ? story("Talk.md") : sentence;
    });
    const std::string writeSentence = asNobody([&] { return sentenceOf([&] { save("more", "Talk.md"); }); });
    std::filesystem::permissions(root, std::filesystem::perms(0700));
    std::filesystem::permissions(root / ".kelvane", std::filesystem::perms(0700));
    std::filesystem::permissions(database, std::filesystem::perms(0600));
    EXPECT_EQ(readSentence, reading) << what;
    EXPECT_EQ(writeSentence, writing) << what;
    EXPECT_EQ(everything(), before) << what;
  }
}

TEST_F(HistoryFailures, aReadOnlyLibraryGetsNoHistory) {
  std::filesystem::permissions(root, std::filesystem::perms(0555));
  EXPECT_EQ(inChild([this] {
              becomeNobody();
              return sentenceOf([&] { save("words", "Talk.md"); });
            }),
            subject +
                "could not be written, because the system does not permit it, so nothing was changed. Check who "
                "may read and write in the folder .kelvane.");
  std::filesystem::permissions(root, std::filesystem::perms(0700));
  EXPECT_THAT(everything(), IsEmpty());
}

TEST_F(HistoryFailures, aFileSizeLimitLeavesTheHistoryAsItWas) {
  startAfresh();
  EXPECT_EQ(inChild([this] {
              std::signal(SIGXFSZ, SIG_IGN);
              const rlimit limit{256 << 10, 256 << 10};
              ::setrlimit(RLIMIT_FSIZE, &limit);
              return sentenceOf([&] { save(std::string(1 << 20, 'x'), "Talk.md"); });
            }),
            subject +
                "could not be written, because it would be larger than the system allows, so nothing was "
                "changed. Make it smaller, or raise the limit (ulimit -f).");
  EXPECT_EQ(story("Talk.md"), "words");
  EXPECT_THAT(history.problems(), IsEmpty());
  save("more", "Talk.md");
  EXPECT_EQ(story("Talk.md"), "words more");
}

TEST_F(HistoryFailures, aFullDiskLeavesTheHistoryAsItWas) {
  // A mount of the child's own, which goes with it.
  const std::string answer = inChild([this]() -> std::string {
    const bool isMounted = ::unshare(CLONE_NEWNS) == 0 &&
                           ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                           ::mount("tmpfs", root.c_str(), "tmpfs", 0, "size=512k") == 0;
    if (!isMounted) return "not mounted";
    save("words", "Talk.md");
    const std::string sentence = sentenceOf([&] { save(std::string(1 << 20, 'x'), "Talk.md"); });
    const std::string kept = story("Talk.md") + ", " + std::to_string(history.problems().size()) + " problems, ";
    std::ofstream(root / "filler") << std::string(1 << 20, 'x');  // as much of it as fits
    const std::string full = sentenceOf([&] { save("more", "Talk.md"); });
    std::filesystem::remove(root / "filler");
    save("more", "Talk.md");
    return sentence + '\n' + kept + '\n' + full + '\n' + story("Talk.md");
  });
  if (answer == "not mounted") GTEST_SKIP() << "A small disk of its own can only be mounted by root.";
  const std::string sentence = subject +
                               "could not be written, because the disk is full, so nothing was changed. Free "
                               "some space and try again.";
  EXPECT_EQ(answer, sentence + "\nwords, 0 problems, \n" + sentence + "\nwords more");
}

// What cannot be staged here: SQLite reports it as a failed write, with the system's reason.
TEST_F(HistoryFailures, theSystemsReasonForAFailedWriteIsReported) {
  const std::pair<int, const char*> reasons[] = {
      {EDQUOT, "the disk quota is used up, so nothing was changed. Free some space and try again."},
      {ENOSPC, "the disk is full, so nothing was changed. Free some space and try again."},
      {EROFS, "the disk is read-only, so nothing was changed. Make the disk writable and try again."},
      {EIO, "the disk reports an error, so nothing was changed. Check the disk."},
  };
  for (const auto& [reason, sentence] : reasons) {
    const sqlite::Error error(SQLITE_IOERR_WRITE, reason, "disk I/O error");
    EXPECT_EQ(HistoryFailure::of(error, HistoryUse::writing, patience).what(),
              subject + "could not be written, because " + sentence);
  }
  const sqlite::Error unexplained(SQLITE_IOERR_WRITE, 0, "disk I/O error");
  EXPECT_EQ(HistoryFailure::of(unexplained, HistoryUse::writing, patience).what(),
            subject + "could not be used (SQLite says: disk I/O error), so nothing was changed. Check the disk.");
}

TEST_F(HistoryFailures, aSystemThatCannotLockIsNoOtherProgramThatUsesTheHistory) {
  startAfresh();
  history.snapshot("words", root / "Talk.md", "");
  const auto kinds = kelvane::tests::kindsOfCalls();
  const auto control =
      std::find_if(kinds.begin(), kinds.end(), [](const auto& kind) { return kind.name == "control"; });
  if (control == kinds.end()) GTEST_SKIP() << "the system does not let calls fail";
  EXPECT_EQ(inChild([&]() -> std::string {
              if (!FailingSystemCalls::begin(*control, 1, ENOLCK)) return "the system does not let calls fail";
              return sentenceOf([&] { history.snapshot("more words", root / "Talk.md", ""); });
            }),
            subject +
                "could not be written, because the system has no more locks for files, so nothing was changed. Close "
                "some programs and try again.");
}

TEST_F(HistoryFailures, aLibraryWhosePathIsTooLongForSQLiteHasAHistory) {
  std::filesystem::path deep = root;
  for (int i = 0; i < 4; ++i) deep /= std::string(200, 'x');
  std::filesystem::create_directories(deep);
  History far(deep);
  far.snapshot("words", deep / "Talk.md", "");
  EXPECT_EQ(story(far, "Talk.md"), "words");
}

TEST_F(HistoryFailures, aRenameThatCannotBeRecordedIsRefused) {
  startAfresh();
  sqlite::Connection other = openedDatabase(database, sqlite::Connection::Access::writing, patience);
  other.runAll("BEGIN IMMEDIATE");
  EXPECT_EQ(
      sentenceOf([&] { history.willRename("Talk.md", "Speech.md").done(); }),
      subject + "has been in use by another program for 1 second, so nothing was changed. Try again in a moment.");
}

}  // namespace
}  // namespace quorvel
