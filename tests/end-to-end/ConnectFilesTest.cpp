#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "protocol/JSON.h"
#include "quorvel/files/FNV1a.h"
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

      EXPECT_EQ(
          home.kelvane({"disconnect", "claude"}),
          (Outcome{0, home.disconnected("Claude", claudeFile) + home.keptBeside(claudeFile, isThere ? 2 : 1), ""}));
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
  std::string client;
  void (*prepare)(const ClientHome& home);
  std::string happened;  // what could not be done, with a path in the home in quotes
  std::string because = "the system does not permit it. Check who may read and write there.";
};

void makeClosed(const ClientHome& home, const char* folder) {
  fs::create_directory(home / folder);
  fs::permissions(home / folder, fs::perms(0555));
}

// The same reason by the change and by --dry-run, which shows nothing then.
TEST(ConnectFiles, thatMayNotBeWrittenAreLeft) {
  const UnwritableCase cases[] = {
      {"a file to be read only", "claude",
       [](const ClientHome& home) {
         home.put(claudeFile, "{}\n");
         fs::permissions(home / claudeFile, fs::perms(0444));
       },
       R"(".claude.json" could not be written)"},
      {"a folder to be read only", "claude",
       [](const ClientHome& home) {
         home.put(claudeFile, "{}\n");
         fs::permissions(home.path(), fs::perms(0555));
       },
       R"(".claude.json" could not be written)"},
      {"a link into a folder to be read only", "claude",
       [](const ClientHome& home) {
         home.put("closed/f", "{}\n");
         fs::create_symlink("closed/f", home / claudeFile);
         fs::permissions(home / "closed", fs::perms(0555));
       },
       R"(".claude.json" could not be written)"},
      {"a dangling link into a folder to be read only", "claude",
       [](const ClientHome& home) {
         makeClosed(home, "closed");
         fs::create_symlink("closed/f", home / claudeFile);
       },
       R"(".claude.json" could not be written)"},
      {"no file in a folder to be read only", "claude",
       [](const ClientHome& home) { fs::permissions(home.path(), fs::perms(0555)); },
       R"(".claude.json" could not be written)"},
      {"a link from a folder where no copy can be kept", "claude",
       [](const ClientHome& home) {
         home.put("open/f", "{}\n");
         fs::create_symlink("open/f", home / claudeFile);
         fs::permissions(home.path(), fs::perms(0555));
       },
       R"(".claude.json.before-kelvane" could not be written)"},
      {"no folder where none can be made", "codex",
       [](const ClientHome& home) { fs::permissions(home.path(), fs::perms(0555)); },
       R"(The folder ".codex" could not be made)"},
      {"a file of another owner", "claude",
       [](const ClientHome& home) {
         home.put(claudeFile, "{}\n");
         fs::permissions(home / claudeFile, fs::perms(0666));
       },
       R"(".claude.json" could not be written)",
       "it belongs to another user and would become yours. Run this as its owner."},
      {"a file of another group", "claude",
       [](const ClientHome& home) {
         home.put(claudeFile, "{}\n");
         fs::permissions(home / claudeFile, fs::perms(0660));
       },
       R"(".claude.json" could not be written)", "its group would change. Run this as a member of that group."},
  };
  const Nobody nobody;
  for (const UnwritableCase& row : cases) {
    const ClientHome home;
    row.prepare(home);
    home.giveToNobody();
    const bool isOfAnotherOwner = row.because.starts_with("it belongs");
    const bool isOfAnotherGroup = row.because.starts_with("its group");
    if (isOfAnotherOwner || isOfAnotherGroup) {
      if (::geteuid() != 0) continue;  // only root can give a file away
      ASSERT_EQ(::chown((home / claudeFile).c_str(), isOfAnotherOwner ? 1234 : 65534, 4321), 0);
    }
    const auto census = home.census();
    std::string sentence = row.happened + ", because " + row.because;
    sentence.insert(sentence.find('"') + 1, home.text() + '/');
    const std::string lines = row.client == "claude" ? claudeLines(nobody.program()) : codexLines(nobody.program());
    for (const bool isDryRun : {true, false}) {
      SCOPED_TRACE(std::string(row.description) + (isDryRun ? ", tried" : ""));
      std::vector<std::string> words = {"connect", row.client};
      if (isDryRun) words.emplace_back("--dry-run");
      EXPECT_EQ(nobody.run(home, words), (Outcome{1, "", refused(sentence, lines)}));
      // The folder's own times may tell of a temporary file that came and went.
      auto afterwards = home.census();
      EXPECT_EQ(afterwards.size(), census.size());
      for (const auto& [path, state] : census) {
        if (isDryRun || !fs::is_directory(path)) {
          EXPECT_EQ(afterwards[path], state) << path;
        }
      }
    }
    fs::permissions(home.path(), fs::perms(0700));
    if (fs::exists(home / "closed")) fs::permissions(home / "closed", fs::perms(0700));
  }
}

// Nothing is shown as a change that then is refused, nor the other way round.
TEST(ConnectFiles, areTriedAndChangedWithTheSameOutcome) {
  struct {
    const char* description;
    void (*prepare)(const ClientHome& home);
  } const cases[] = {
      {"no file", [](const ClientHome&) {}},
      {"a file", [](const ClientHome& home) { home.put(claudeFile, "{}"); }},
      {"a connected one", [](const ClientHome& home) { home.put(claudeFile, R"({"mcpServers":{"kelvane":{}}})"); }},
      {"a folder", [](const ClientHome& home) { fs::create_directory(home / claudeFile); }},
      {"a pipe", [](const ClientHome& home) { ASSERT_EQ(::mkfifo((home / claudeFile).c_str(), 0600), 0); }},
      {"a link to itself", [](const ClientHome& home) { fs::create_symlink(claudeFile, home / claudeFile); }},
      {"a dangling link", [](const ClientHome& home) { fs::create_symlink("none/f", home / claudeFile); }},
      {"a link below a file",
       [](const ClientHome& home) {
         home.put("file", "");
         fs::create_symlink("file/f", home / claudeFile);
       }},
      {"a file that is not JSON", [](const ClientHome& home) { home.put(claudeFile, "{"); }},
  };
  const Nobody nobody;
  for (const auto& row : cases) {
    for (const char* command : {"connect", "disconnect"}) {
      SCOPED_TRACE(std::string(command) + ", " + row.description);
      const ClientHome home;
      row.prepare(home);
      home.giveToNobody();
      const auto census = home.census();
      const Outcome tried = nobody.run(home, {command, "claude", "--dry-run"});
      EXPECT_EQ(home.census(), census);
      const Outcome made = nobody.run(home, {command, "claude"});
      EXPECT_EQ(tried.status, made.status);
      EXPECT_EQ(tried.errors, made.errors);
      EXPECT_EQ(tried.output.find("would change") != std::string::npos,
                made.output.find("starts") != std::string::npos);
    }
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
      (Outcome{1, "", home.quoted("pipe") + " is not a file. Give the client's configuration file: --config FILE.\n"}));
  EXPECT_EQ(home.census(), census);
}

// A program that saves in place is half-way through for a moment, with the file open.
TEST(ConnectFiles, thatAreBeingSavedAreWaitedFor) {
#if defined(KELVANE_PORTABLE)
  GTEST_SKIP() << "no disk is asked who has a file open";
#endif
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

TEST(ConnectFiles, areKeptInTheFirstCopyForAsLongAsOurEntryIsThere) {
  const ClientHome home;
  const std::string first = R"({"mcpServers":{"kelvane":{"command":"/old","env":{"TOKEN":"s"}}}})";
  home.put(claudeFile, first);
  copyProgramTo(home / "other/kelvane");
  Start other = home.start({"connect", "claude"});
  other.program = home / "other/kelvane";
  const auto kept = [&](int number) { return home.keptBeside(claudeFile, number); };
  const auto connected = [&](int number) { return home.connected("Claude", claudeFile) + kept(number); };
  const auto disconnected = [&](int number) { return home.disconnected("Claude", claudeFile) + kept(number); };

  EXPECT_EQ(home.kelvane({"connect", "claude"}),
            (Outcome{0, connected(1) + droppedLines({R"(The entry had "env": {"TOKEN":"s"})"}), ""}));
  EXPECT_EQ(home.bytes(copyOfClaudeFile), first);
  const std::string ours = home.bytes(claudeFile);
  EXPECT_EQ(run(other), (Outcome{0, connected(2), ""}));
  EXPECT_EQ(home.bytes(copyOfClaudeFile + "-2"), ours);
  EXPECT_EQ(home.kelvane({"connect", "claude"}).output, connected(3));
  // Texts that are in a copy need no other.
  EXPECT_EQ(home.kelvane({"disconnect", "claude"}).output, disconnected(2));
  EXPECT_EQ(home.kelvane({"connect", "claude"}).output, connected(4));
  EXPECT_EQ(home.kelvane({"disconnect", "claude"}).output, disconnected(2));
  EXPECT_EQ(home.kelvane({"connect", "claude"}).output, connected(4));
  EXPECT_EQ(home.bytes(copyOfClaudeFile), first);
  for (const char* number : {"", "-2", "-3", "-4"}) EXPECT_EQ(home.mode(copyOfClaudeFile + number), 0600U);
  EXPECT_FALSE(fs::exists(home / (copyOfClaudeFile + "-5")));
}

TEST(ConnectFiles, areNotCopiedByAChangeThatIsRefused) {
  const ClientHome home;
  home.put(claudeFile, "{ // mine\n}");
  const auto census = home.census();
  EXPECT_EQ(home.kelvane({"connect", "claude"}).status, 1);
  EXPECT_EQ(home.census(), census);
}

TEST(ConnectFiles, areNeverCopiedOverAFileThatHasTheNameAlready) {
  const ClientHome home;
  home.put(claudeFile, "{\"a\": 1}");
  home.put(copyOfClaudeFile, "a person's own");
  home.put("victim", "another's");
  fs::create_symlink("victim", home / (copyOfClaudeFile + "-2"));
  EXPECT_EQ(home.kelvane({"connect", "claude"}),
            (Outcome{0, home.connected("Claude", claudeFile) + home.keptBeside(claudeFile, 3), ""}));
  EXPECT_EQ(home.bytes(copyOfClaudeFile), "a person's own");
  EXPECT_EQ(home.bytes("victim"), "another's");
  EXPECT_EQ(home.bytes(copyOfClaudeFile + "-3"), "{\"a\": 1}");
  EXPECT_EQ(home.mode(copyOfClaudeFile + "-3"), 0600U);
}

/// The name of a file that a killed change took out of a file's place (quorvel/files/TemporaryName.h).
std::string nameOfTakenFile(char digit, std::string_view file = claudeFile) {
  char hash[17];
  std::snprintf(hash, sizeof hash, "%016llx", static_cast<unsigned long long>(quorvel::fnv1a(file)));
  return std::string(".kelvane-").append(hash).append("-").append(16, digit).append("-0");
}

TEST(ConnectFiles, ofWhichAKilledChangeLeftHiddenOnesAreRidOfThem) {
  const ClientHome home;
  const std::string harmless = nameOfTakenFile('1');
  const std::string precious = nameOfTakenFile('2');
  home.put(claudeFile, claudeLines());
  home.put(harmless, claudeLines());
  home.put(precious, "{\"saved\": 1}");
  const std::string nowhereElse = home.quoted(precious) + " holds text that was in " + home.quoted(claudeFile) +
                                  " when a change of it was interrupted. It is nowhere else. Put back what is "
                                  "missing, then delete " +
                                  home.quoted(precious) + ".\n";
  const auto census = home.census();
  const Outcome doctor = home.kelvane({"doctor"});
  EXPECT_EQ(doctor.status, 1);
  EXPECT_THAT(doctor.output, testing::HasSubstr("note   Interrupted changes of " + home.quoted(claudeFile) +
                                                " left 1 hidden file: " + home.quoted(harmless) + ". Delete it.\n"));
  EXPECT_THAT(doctor.output, testing::HasSubstr("wrong  " + nowhereElse));
  EXPECT_EQ(home.census(), census);

  EXPECT_EQ(home.kelvane({"connect", "claude"}), (Outcome{0, home.connectedAlready(claudeFile) + nowhereElse, ""}));
  EXPECT_FALSE(fs::exists(home / harmless));
  EXPECT_EQ(home.bytes(precious), "{\"saved\": 1}");
  fs::remove(home / precious);
  EXPECT_EQ(home.kelvane({"doctor"}).status, 0);
}

TEST(ConnectFiles, andTheSettingsAreLookedAtByTheDoctorForHiddenOnes) {
  const ClientHome home;
  home.kelvane({"connect", "claude"});
  const std::string folder = ".config/kelvane/";
  const std::string settings = folder + "org.quorvel.Quorvel.json";
  const std::string hidden[] = {folder + nameOfTakenFile('1', "org.quorvel.Quorvel.json"),
                                folder + nameOfTakenFile('2', "org.quorvel.Quorvel.json")};
  for (const std::string& name : hidden) home.put(name, home.bytes(settings));
  const Outcome doctor = home.kelvane({"doctor"});
  EXPECT_EQ(doctor.status, 0);
  EXPECT_THAT(doctor.output,
              testing::HasSubstr("note   Interrupted changes of " + home.quoted(settings) + " left 2 hidden files: "));
  EXPECT_THAT(doctor.output, testing::HasSubstr(". Delete them.\n"));
  for (const std::string& name : hidden) EXPECT_THAT(doctor.output, testing::HasSubstr(home.quoted(name)));
  EXPECT_EQ(home.kelvane({"settings", "enable"}).status, 0);
  for (const std::string& name : hidden) EXPECT_FALSE(fs::exists(home / name));
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
