#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "protocol/JSON.h"
#include "tests/end-to-end/ClientHome.h"

namespace kelvane::tests {
namespace {

namespace fs = std::filesystem;

const std::string claudeFile = ".claude.json";
const std::string copyOfClaudeFile = ".claude.json.before-kelvane";

/// A program that everybody may run, and its outcome for somebody who is not root.
class Nobody {
 public:
  Nobody() {
    copyProgramTo(folder_ / "kelvane");
    fs::permissions(folder_.path(), fs::perms(0755));
  }
  std::string program() const { return (folder_ / "kelvane").native(); }
  Outcome run(const ClientHome& home, std::vector<std::string> words) const {
    Start start = home.start(std::move(words));
    start.program = folder_ / "kelvane";
    start.asNobody = true;
    return tests::run(start);
  }

 private:
  Folder folder_;
};

struct LinkCase {
  const char* description;
  std::vector<std::pair<const char*, const char*>> links;  // from, to; "real/f" is the file
};

const LinkCase links[] = {
    {"relative", {{".claude.json", "real/f"}}},
    {"two hops", {{"real/g", "f"}, {".claude.json", "real/g"}}},
    {"by a folder that is one", {{"d", "real"}, {".claude.json", "d/f"}}},
};

TEST(ConnectFiles, thatAreLinksStayLinks) {
  for (const bool isThere : {true, false}) {
    for (const LinkCase& row : links) {
      SCOPED_TRACE(std::string(row.description) + (isThere ? "" : ", dangling"));
      const ClientHome home;
      fs::create_directory(home / "real");
      if (isThere) home.put("real/f", "{}\n");
      for (const auto& [from, to] : row.links) fs::create_symlink(to, home / from);
      const std::string kept = isThere ? home.keptBeside(claudeFile) : "";

      EXPECT_EQ(home.kelvane({"connect", "claude"}), (Outcome{0, home.connected("Claude", claudeFile) + kept, ""}));
      for (const auto& [from, to] : row.links) EXPECT_EQ(fs::read_symlink(home / from), to);
      EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(home / "real/f")));
      EXPECT_EQ(home.bytes("real/f"), claudeLines());
      EXPECT_EQ(fs::exists(home / copyOfClaudeFile), isThere);
      EXPECT_EQ(home.kelvane({"connect", "claude"}), (Outcome{0, home.connectedAlready(claudeFile), ""}));

      EXPECT_EQ(home.kelvane({"disconnect", "claude"}),
                (Outcome{0, home.disconnected("Claude", claudeFile) + home.keptBeside(claudeFile), ""}));
      for (const auto& [from, to] : row.links) EXPECT_EQ(fs::read_symlink(home / from), to);
      EXPECT_EQ(home.bytes("real/f"), "{\n  \"mcpServers\": {}\n}\n");
    }
  }
}

TEST(ConnectFiles, ofWhichTwoAreOneAreEditedOnce) {
  const ClientHome home;
  const std::string desktop = ".config/Claude/claude_desktop_config.json";
  home.put(desktop, "{}\n");
  fs::create_symlink(desktop, home / claudeFile);
  EXPECT_EQ(
      home.kelvane({"connect", "claude"}),
      (Outcome{0, home.connected("Claude", claudeFile) + home.keptBeside(claudeFile) + home.connectedAlready(desktop),
               ""}));
  EXPECT_EQ(home.bytes(desktop), claudeLines());
}

TEST(ConnectFiles, keepTheirModeAndOwner) {
  for (const mode_t mode : {0600U, 0640U, 0644U, 0664U}) {
    const ClientHome home;
    home.put(claudeFile, "{}\n");
    fs::permissions(home / claudeFile, fs::perms(mode));
    if (::geteuid() == 0) {
      ASSERT_EQ(::chown((home / claudeFile).c_str(), 65534, 65533), 0);
    }
    for (const char* command : {"connect", "disconnect"}) {
      EXPECT_EQ(home.kelvane({command, "claude"}).status, 0);
      struct stat status {};
      ASSERT_EQ(::stat((home / claudeFile).c_str(), &status), 0);
      EXPECT_EQ(status.st_mode & 07777U, mode);
      EXPECT_EQ(home.mode(copyOfClaudeFile), 0600U);
      if (::geteuid() == 0) {
        EXPECT_EQ(status.st_uid, 65534U);
        EXPECT_EQ(status.st_gid, 65533U);
      }
    }
  }
}

struct UnwritableCase {
  const char* description;
  void (*prepare)(const ClientHome& home);
  std::string unwritable;  // the file that the sentence names
};

TEST(ConnectFiles, thatMayNotBeWrittenAreLeft) {
  const UnwritableCase cases[] = {
      {"a file to be read only",
       [](const ClientHome& home) {
         home.put(claudeFile, "{}\n");
         fs::permissions(home / claudeFile, fs::perms(0444));
       },
       claudeFile},
      {"a folder to be read only",
       [](const ClientHome& home) {
         home.put(claudeFile, "{}\n");
         fs::permissions(home.path(), fs::perms(0555));
       },
       claudeFile},
      {"a link into a folder to be read only",
       [](const ClientHome& home) {
         home.put("closed/f", "{}\n");
         fs::create_symlink("closed/f", home / claudeFile);
         fs::permissions(home / "closed", fs::perms(0555));
       },
       claudeFile},
      {"a dangling link into a folder to be read only",
       [](const ClientHome& home) {
         fs::create_directory(home / "closed");
         fs::create_symlink("closed/f", home / claudeFile);
         fs::permissions(home / "closed", fs::perms(0555));
       },
       claudeFile},
      {"no file in a folder to be read only",
       [](const ClientHome& home) { fs::permissions(home.path(), fs::perms(0555)); }, claudeFile},
      {"a place where no copy can be kept",
       [](const ClientHome& home) {
         home.put(claudeFile, "{}\n");
         fs::create_directory(home / copyOfClaudeFile);
       },
       copyOfClaudeFile},
  };
  const Nobody nobody;
  for (const UnwritableCase& row : cases) {
    SCOPED_TRACE(row.description);
    const ClientHome home;
    row.prepare(home);
    home.giveToNobody();
    const auto census = home.census();
    const bool isFolder = row.unwritable == copyOfClaudeFile;
    const std::string because = isFolder ? "a folder has its name. Move it away and try again."
                                         : "the system does not permit it. Check who may read and write there.";
    EXPECT_EQ(nobody.run(home, {"connect", "claude"}),
              (Outcome{1, "",
                       refused(home.quoted(row.unwritable) + " could not be written, because " + because,
                               claudeLines(nobody.program()))}));
    // The folder's own times may tell of a temporary file that came and went.
    auto afterwards = home.census();
    EXPECT_EQ(afterwards.size(), census.size());
    for (const auto& [path, state] : census) {
      if (!fs::is_directory(path)) {
        EXPECT_EQ(afterwards[path], state) << path;
      }
    }
    fs::permissions(home.path(), fs::perms(0700));
    if (fs::exists(home / "closed")) fs::permissions(home / "closed", fs::perms(0700));
  }
}

TEST(ConnectFiles, thatMayNotBeWrittenAndNeedNotBeAreFine) {
  const Nobody nobody;
  const ClientHome home;
  home.put(claudeFile, claudeLines(nobody.program()));
  fs::permissions(home / claudeFile, fs::perms(0444));
  home.giveToNobody();
  EXPECT_EQ(nobody.run(home, {"connect", "claude"}), (Outcome{0, home.connectedAlready(claudeFile), ""}));
}

TEST(ConnectFiles, thatMayNotBeReadAreLeft) {
  const Nobody nobody;
  const ClientHome home;
  home.put(claudeFile, "{}\n");
  fs::permissions(home / claudeFile, fs::perms(0200));
  home.giveToNobody();
  const auto census = home.census();
  const std::string sentence =
      home.quoted(claudeFile) +
      " could not be read, because the system does not permit it. Check who may read and write there.";
  for (const char* option : {"", "--dry-run"}) {
    std::vector<std::string> words = {"connect", "claude"};
    if (*option != '\0') words.emplace_back(option);
    EXPECT_EQ(nobody.run(home, words), (Outcome{1, "", refused(sentence, claudeLines(nobody.program()))}));
  }
  EXPECT_EQ(nobody.run(home, {"disconnect", "claude"}), (Outcome{1, "", sentence + '\n'}));
  EXPECT_EQ(home.census(), census);
}

TEST(ConnectFiles, thatAreNoneAreLeft) {
  const ClientHome home;
  fs::create_directory(home / claudeFile);
  ASSERT_EQ(::mkfifo((home / "pipe").c_str(), 0600), 0);
  const auto census = home.census();
  EXPECT_EQ(home.kelvane({"connect", "claude"}),
            (Outcome{1, "",
                     refused(home.quoted(claudeFile) + " is not a file. Move it away and try again.", claudeLines())}));
  EXPECT_EQ(
      home.kelvane({"connect", "codex", "--config", (home / "pipe").native()}),
      (Outcome{1, "", home.quoted("pipe") + " is not a file: give the client's configuration file with --config.\n"}));
  EXPECT_EQ(home.census(), census);
}

// A program that saves in place is half-way through for a moment, with the file open.
TEST(ConnectFiles, thatAreBeingSavedAreWaitedFor) {
  const ClientHome home;
  home.put(claudeFile, "{\"old\": 1}\n");
  const int saving = ::open((home / claudeFile).c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  ASSERT_GE(saving, 0);
  Program connecting(home.start({"connect", "claude"}));
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  const std::string text = "{\"new\": 2}\n";
  ASSERT_EQ(::write(saving, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  ::close(saving);
  EXPECT_EQ(connecting.finish().status, 0);
  EXPECT_THAT(home.bytes(claudeFile), testing::HasSubstr("\"new\": 2"));
  EXPECT_EQ(home.bytes(copyOfClaudeFile), text);
}

TEST(ConnectFiles, areCopiedOverAnOlderCopyAndNeverThroughALink) {
  const ClientHome home;
  home.put(claudeFile, "{\"a\": 1}");
  home.put(copyOfClaudeFile, "an older copy");
  fs::permissions(home / copyOfClaudeFile, fs::perms(0666));
  EXPECT_EQ(home.kelvane({"connect", "claude"}).status, 0);
  EXPECT_EQ(home.bytes(copyOfClaudeFile), "{\"a\": 1}");
  EXPECT_EQ(home.mode(copyOfClaudeFile), 0600U);

  home.put("victim", "another's");
  fs::remove(home / copyOfClaudeFile);
  fs::create_symlink("victim", home / copyOfClaudeFile);
  const std::string connected = home.bytes(claudeFile);
  EXPECT_EQ(home.kelvane({"disconnect", "claude"}).status, 0);
  EXPECT_EQ(home.bytes("victim"), "another's");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(home / copyOfClaudeFile)));
  EXPECT_EQ(home.bytes(copyOfClaudeFile), connected);
  EXPECT_EQ(home.mode(copyOfClaudeFile), 0600U);
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

TEST(ConnectFiles, thatAnotherProgramWritesAllTheTimeLoseNothingOfIt) {
  const ClientHome home;
  const std::string keepsWriting =
      refused(home.quoted(claudeFile) +
                  " was left as it is, because another program keeps writing it. Close that program and try again.",
              claudeLines());
  bool wasRefused = false;
  for (int attempt = 0; attempt < 200 && !wasRefused; ++attempt) {
    home.put(claudeFile, "{\"n\": 0}");
    Rewriter other(home);
    const Outcome outcome = home.kelvane({"connect", "claude"});
    const JSON last(other.stop());
    const std::string text = home.bytes(claudeFile);
    if (outcome.status != 0 && outcome.errors != keepsWriting) {
      // The other program wrote between our two exchanges: its text is beside the file, and that is said.
      const std::string saying =
          "Another program wrote " + home.quoted(claudeFile) + " at the same moment. What it wrote is now in \"";
      ASSERT_EQ(outcome.errors.rfind(saying, 0), 0U) << outcome;
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
