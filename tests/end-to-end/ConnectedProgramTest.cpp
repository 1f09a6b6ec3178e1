#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/end-to-end/ClientHome.h"

namespace kelvane::tests {
namespace {

const std::string commandLine = ".claude.json";

TEST(ConnectedProgram, isWhereItRunsFromWithEveryLinkResolved) {
  const ClientHome home;
  copyProgramTo(home / "real/kelvane");
  std::filesystem::create_directory_symlink("real", home / "apps");
  std::filesystem::create_symlink("apps/kelvane", home / "kelvane");
  Start start = home.start({"connect", "codex"});
  start.program = home / "kelvane";
  EXPECT_EQ(run(start), (Outcome{0, home.connected("Codex", ".codex/config.toml"), ""}));
  EXPECT_EQ(home.bytes(".codex/config.toml"), codexLines((home / "real/kelvane").native()));

  // A newer one at another place takes over.
  EXPECT_EQ(home.kelvane({"connect", "codex"}),
            (Outcome{0, home.connected("Codex", ".codex/config.toml") + home.keptBeside(".codex/config.toml"), ""}));
  EXPECT_EQ(home.bytes(".codex/config.toml"), codexLines());
}

TEST(ConnectedProgram, whosePathNeedsEscapesIsRefusedInTOML) {
  const struct {
    const char* folder;
    const char* json;  // the folder as the two formats escape it
  } cases[] = {{"my \"best\" apps", R"(my \"best\" apps)"},
               {"back\\slash", R"(back\\slash)"},
               {"a\x01"
                "b",
                R"(a\u0001b)"}};
  for (const auto& row : cases) {
    const ClientHome home;
    copyProgramTo(home / row.folder / "kelvane");
    Start start = home.start({"connect", "codex"});
    start.program = home / row.folder / "kelvane";
    const auto census = home.census();
    const std::string lines = home.text() + "/" + row.json + "/kelvane";
    for (const bool isDryRun : {true, false}) {
      start.arguments = {"connect", "codex"};
      if (isDryRun) start.arguments.emplace_back("--dry-run");
      EXPECT_EQ(run(start),
                (Outcome{1, "",
                         refused(home.quoted(".codex/config.toml") +
                                     ": The path of this program contains a quote, a backslash or a control character, "
                                     "which must be escaped in this file. Move the program to "
                                     "another folder, or paste the lines by hand.",
                                 codexLines(lines))}));
      EXPECT_EQ(home.census(), census);
    }
    start.arguments = {"connect", "claude"};
    EXPECT_EQ(run(start), (Outcome{0, home.connected("Claude", commandLine), ""}));
    EXPECT_EQ(home.bytes(commandLine), claudeLines(lines));
    EXPECT_EQ(run(start), (Outcome{0, home.connectedAlready(commandLine), ""}));
  }
}

TEST(ConnectedProgram, whosePathIsNotUTF8IsRefused) {
  const ClientHome home;
  copyProgramTo(home / "a\xFF" / "kelvane");
  const auto census = home.census();
  Start start = home.start({"connect", "claude"});
  start.program = home / "a\xFF" / "kelvane";
  EXPECT_EQ(run(start), (Outcome{1, "",
                                 home.quoted(commandLine) +
                                     ": The path of this program is not UTF-8, so no JSON file can hold it. Move the "
                                     "program to another folder.\n"}));
  start.arguments = {"connect", "codex"};
  EXPECT_EQ(run(start), (Outcome{1, "",
                                 home.quoted(".codex/config.toml") +
                                     ": The path of this program is not UTF-8, so no TOML file can hold it. Move the "
                                     "program to another folder.\n"}));
  EXPECT_EQ(home.census(), census);
}

TEST(ConnectedProgram, isNotRegisteredWhenItIsGone) {
  const ClientHome home;
  copyProgramTo(home / "old");
  const int program = ::open((home / "old").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(program, 0);
  std::filesystem::remove(home / "old");
  home.put(commandLine, claudeLines());
  const auto census = home.census();
  Start start = home.start({"connect", "codex"});
  start.program = "/proc/self/fd/" + std::to_string(program);
  EXPECT_EQ(run(start),
            (Outcome{1, "", "This program was moved or replaced after it started. Run the command again.\n"}));
  EXPECT_EQ(home.census(), census);
  start.arguments = {"disconnect", "claude"};
  EXPECT_EQ(run(start), (Outcome{0, home.disconnected("Claude", commandLine) + home.keptBeside(commandLine), ""}));
  ::close(program);
}

TEST(ConnectedProgram, isToldWhatIsMissingBeforeItServes) {
  const std::string folder = "No script folder is set. Run: kelvane settings library DIR\n";
  const std::string off = "The server is switched off. Run: kelvane settings enable\n";
  const struct {
    const char* description;
    const char* settings;
    std::string said;
  } cases[] = {
      {"nothing set", nullptr, folder + off},
      {"the switch alone", R"({"mcpEnabled": true})", folder},
      {"the folder alone", R"({"libraryFolder": "/s"})", off},
      {"both", R"({"libraryFolder": "/s", "mcpEnabled": true})", ""},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.description);
    const ClientHome home;
    const std::string settings = ".config/kelvane/org.quorvel.Quorvel.json";
    std::filesystem::remove(home / settings);
    if (row.settings != nullptr) home.put(settings, row.settings);
    EXPECT_EQ(home.kelvane({"connect", "claude"}), (Outcome{0, home.connected("Claude", commandLine) + row.said, ""}));
    EXPECT_EQ(home.kelvane({"connect", "claude"}), (Outcome{0, home.connectedAlready(commandLine) + row.said, ""}));
    EXPECT_EQ(home.kelvane({"disconnect", "claude"}),
              (Outcome{0, home.disconnected("Claude", commandLine) + home.keptBeside(commandLine), ""}));
  }
}

}  // namespace
}  // namespace kelvane::tests
