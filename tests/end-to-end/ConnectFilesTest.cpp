#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/end-to-end/ClientHome.h"

namespace kelvane::tests {
namespace {

namespace fs = std::filesystem;

struct LinkCase {
  const char* description;
  std::vector<std::pair<const char*, const char*>> links;  // from, to; "real/f" is the file
};

const LinkCase links[] = {
    {"relative", {{".claude.json", "real/f"}}},
    {"two hops", {{"real/g", "f"}, {".claude.json", "real/g"}}},
    {"by a folder that is one", {{"d", "real"}, {".claude.json", "d/f"}}},
};

TEST(ConnectFiles, aLinkStaysALinkAndItsTargetIsChanged) {
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

TEST(ConnectFiles, aFileThatTwoPathsLeadToIsEditedOnce) {
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

TEST(ConnectFiles, aFolderAndAPipeAreRefusedAndLeftAsTheyAre) {
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

}  // namespace
}  // namespace kelvane::tests
