#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/end-to-end/ClientHome.h"

namespace kelvane::tests {
namespace {

namespace fs = std::filesystem;

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
TEST(ConnectPermissions, aFileThatWeMayNotWriteIsLeftForTheSameReasonAsInADryRun) {
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
TEST(ConnectPermissions, aDryRunEndsLikeTheChange) {
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

TEST(ConnectPermissions, aFileThatNeedsNoChangeNeedsNoPermission) {
  const Nobody nobody;
  const ClientHome home;
  home.put(claudeFile, claudeLines(nobody.program()));
  fs::permissions(home / claudeFile, fs::perms(0444));
  home.giveToNobody();
  EXPECT_EQ(nobody.run(home, {"connect", "claude"}), (Outcome{0, home.connectedAlready(claudeFile), ""}));
}

TEST(ConnectPermissions, aFileThatWeMayNotReadIsLeft) {
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

}  // namespace
}  // namespace kelvane::tests
