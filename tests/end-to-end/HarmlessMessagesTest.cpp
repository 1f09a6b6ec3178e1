#include "tests/end-to-end/ClientHome.h"
#include "tests/end-to-end/Home.h"

namespace kelvane::tests {
namespace {

using testing::HasSubstr;
using Words = std::vector<std::string>;

// A line break, an escape sequence, a control character of two bytes, a mark of direction; and how they are shown.
const std::string evil = "a\nok forged\x1B[2J\xC2\x9B\xE2\x80\xAE";
const std::string harmless = "a\uFFFDok forged\uFFFD[2J\uFFFD\uFFFD";

/// What a person at a terminal reads: names and paths are other people's, and none of them steers it or forges a line.
class HarmlessMessages : public Home {
 protected:
  void expectHarmless(const Outcome& outcome) const {
    const std::string all = outcome.output + outcome.errors;
    EXPECT_THAT(all, HasSubstr(harmless));
    EXPECT_EQ(all.find("\nok forged"), std::string::npos) << all;
    for (const char* byte : {"\x1B", "\xC2\x9B", "\xE2\x80\xAE", "\r", "\t"}) {
      EXPECT_EQ(all.find(byte), std::string::npos) << all;
    }
  }
};

TEST_F(HarmlessMessages, areAllThatQuoteWhatWasTyped) {
  home.put("Scripts/Talk.md", "hello");
  const std::string missing = at(evil);
  const Words cases[] = {
      {evil},
      {"--" + evil},
      {"settings", evil},
      {"settings", "library", missing},
      {"serve", "--library", missing},
      {"serve", evil},
      {"doctor", "--library", missing},
      {"connect", evil},
      {"connect", "codex", "--config", missing + "/config.toml"},
      {"connect", "codex", "--config", missing + "/config.toml", "--dry-run"},
      {"disconnect", "codex", "--config", missing + "/config.toml"},
      {"call", evil, "--library", at("Scripts")},
      {"call", "read_script", evil + "=x", "--library", at("Scripts")},
      {"call", "read_script", evil, "--library", at("Scripts")},
      {"call", "read_script", "id=" + evil, "--library", at("Scripts")},
      {"history", evil, "--library", at("Scripts")},
      {"show", evil, "1", "--library", at("Scripts")},
      {"show", "Talk", evil, "--library", at("Scripts")},
      {"restore", evil, "1", "--library", at("Scripts")},
  };
  for (const Words& words : cases) {
    SCOPED_TRACE(testing::PrintToString(words));
    expectHarmless(kelvane(words));
  }
}

TEST_F(HarmlessMessages, areAllThatQuoteWhatIsOnTheDisk) {
  home.put(evil + "/Talk.md", "hello");
  printed({"settings", "enable"});
  expectHarmless(kelvane({"settings", "library", at(evil)}));
  expectHarmless(kelvane({"settings"}));
  expectHarmless(kelvane({"doctor"}));
  std::filesystem::rename(home / evil, home / "gone");
  expectHarmless(run(start({})));
  expectHarmless(kelvane({"serve"}));
  expectHarmless(kelvane({"doctor"}));
  home.put(evil, "a file");
  expectHarmless(kelvane({"settings", "library", at(evil)}));
}

TEST_F(HarmlessMessages, areAllThatQuoteTheHome) {
  Start asking = start({"settings"});
  asking.home = home / evil;
  home.put(evil + "/" + settingsFile, "{oops");
  home.put(evil + "/.claude.json", "{oops");
  home.put(evil + "/.codex/config.toml", "oops");
  for (const Words& words : {Words{"settings"}, Words{"connect", "claude"}, Words{"connect", "codex"},
                             Words{"disconnect", "claude"}, Words{"disconnect", "codex"}, Words{"doctor"}, Words{},
                             Words{"settings", "enable"}, Words{"settings", "disable"}}) {
    SCOPED_TRACE(testing::PrintToString(words));
    asking.arguments = words;
    expectHarmless(run(asking));
  }
}

// There they are escaped as the file wants them, so that they can be pasted.
TEST_F(HarmlessMessages, areTheLinesToPasteToo) {
  const std::string folder = "a\xC2\x9B\xE2\x80\xAE\x7F";
  copyProgramTo(home / folder / "kelvane");
  home.put(".claude.json", "{oops");
  home.put(".codex/config.toml", "oops");
  for (const char* client : {"claude", "codex"}) {
    Start connecting = start({"connect", client});
    connecting.program = home / folder / "kelvane";
    EXPECT_THAT(run(connecting).errors, HasSubstr("\"" + home.text() + R"(/a\u009b\u202e\u007f/kelvane")"));
  }
}

TEST_F(HarmlessMessages, areWhatAChangeWouldTakeOut) {
  home.put(".claude.json", "{\t\"mcpServers\": {\"kelvane\": {\"note\": \"\xC2\x9Bx\"}}}\r\n");
  const Outcome outcome = kelvane({"disconnect", "claude", "--dry-run"});
  EXPECT_EQ(outcome.output.find("\xC2\x9B"), std::string::npos) << outcome;
  EXPECT_THAT(outcome.output, HasSubstr("\n-{\t\"mcpServers\": {\"kelvane\": {\"note\": \"\\u009bx\"}}}\r\n"));
}

// A client gets the bytes that it sent.
TEST_F(HarmlessMessages, areNotWhatAClientGets) {
  Client client(at("Scripts"));
  EXPECT_EQ(client.call("read_script", {{"id", evil}}), failure("Nothing at \"" + evil + "\""));
  client.finish();
}

}  // namespace
}  // namespace kelvane::tests
