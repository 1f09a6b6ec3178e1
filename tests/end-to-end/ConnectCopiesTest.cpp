#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include "quorvel/files/FNV1a.h"
#include "tests/end-to-end/ClientHome.h"

namespace kelvane::tests {
namespace {

namespace fs = std::filesystem;

TEST(ConnectCopies, theFirstCopyStaysWhileOurEntryIsThere) {
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

TEST(ConnectCopies, aRefusedChangeMakesNoCopy) {
  const ClientHome home;
  home.put(claudeFile, "{ // mine\n}");
  const auto census = home.census();
  EXPECT_EQ(home.kelvane({"connect", "claude"}).status, 1);
  EXPECT_EQ(home.census(), census);
}

TEST(ConnectCopies, aCopyNeverReplacesAFile) {
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

TEST(ConnectCopies, theNextChangeDeletesHiddenFilesAndNamesThoseWhoseTextIsNowhereElse) {
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

TEST(ConnectCopies, theDoctorAlsoLooksForHiddenFilesBesideTheSettings) {
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

}  // namespace
}  // namespace kelvane::tests
