#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <iomanip>
#include <sstream>

#include "quorvel/files/FNV1a.h"
#include "tests/end-to-end/Home.h"

namespace kelvane::tests {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

/// What a tool changed: seen, and undone.
class Changes : public Home {
 protected:
  Changes() { printed({"settings", "library", at("Scripts")}); }

  void put(std::string_view text, const std::string& id = "Talk.md") const { home.put("Scripts/" + id, text); }
  std::string present(const std::string& id = "Talk.md") const { return home.bytes("Scripts/" + id); }

  void replace(const std::string& text, const std::string& note, const std::string& id = "Talk.md") const {
    printed({"call", "update_script", "id=" + id, "text=" + text, "note=" + note, "--allow-writes"});
  }

  static std::string undone(const std::string& note, int version, int saved, const std::string& id = "Talk.md") {
    return "Undone: the change \"" + note + "\" of \"" + id + "\", made [-0-9]+ [:0-9]+\\.\nThe text is version " +
           std::to_string(version) + " again\\.\nTo take this back, run: kelvane restore " + id + " " +
           std::to_string(saved) + "\n";
  }

  const std::string nothing = "There is no change to undo. To list what was saved, run: kelvane history\n";
};

TEST_F(Changes, areUndoneOneAfterTheOther) {
  EXPECT_EQ(kelvane({"undo"}), (Outcome{1, "", nothing}));
  put("first\r\n\xFF");
  replace("second", "a");
  replace("third", "b");
  EXPECT_THAT(printed({"undo"}), MatchesRegex(undone("b", 2, 3)));
  EXPECT_EQ(present(), "second");
  EXPECT_THAT(printed({"undo"}), MatchesRegex(undone("a", 1, 4)));
  EXPECT_EQ(present(), "first\r\n\xFF");
  EXPECT_EQ(kelvane({"undo"}), (Outcome{1, "", nothing}));
  EXPECT_EQ(present(), "first\r\n\xFF");
  EXPECT_EQ(printed({"restore", "Talk.md", "3"}),
            "\"Talk.md\" is restored to version 3.\nThe replaced text is version 5.\n");
  EXPECT_EQ(present(), "third");
}

TEST_F(Changes, thatComeAfterAnUndoAreUndoneFirst) {
  put("first");
  replace("second", "a");
  replace("third", "b");
  printed({"undo"});
  replace("fourth", "c");
  EXPECT_THAT(printed({"undo"}), MatchesRegex(undone("c", 4, 5)));
  EXPECT_EQ(present(), "second");
  EXPECT_THAT(printed({"undo"}), MatchesRegex(undone("a", 1, 6)));
  EXPECT_EQ(present(), "first");
}

TEST_F(Changes, areUndoneInTheScriptThatChangedLastOrInTheOneThatIsNamed) {
  put("a1", "A.md");
  put("b1", "B.md");
  replace("a2", "in A", "A.md");
  replace("b2", "in B", "B.md");
  replace("a3", "in A again", "A.md");
  EXPECT_THAT(printed({"undo", "B"}), MatchesRegex(undone("in B", 1, 2, "B.md")));
  EXPECT_EQ(present("A.md") + present("B.md"), "a3b1");
  EXPECT_THAT(printed({"undo"}), MatchesRegex(undone("in A again", 2, 3, "A.md")));
  EXPECT_THAT(printed({"undo"}), MatchesRegex(undone("in A", 1, 4, "A.md")));
  EXPECT_EQ(kelvane({"undo"}), (Outcome{1, "", nothing}));
  EXPECT_EQ(kelvane({"undo", "B"}),
            (Outcome{1, "", "There is no change of \"B.md\" to undo. To list what was saved, run: kelvane history\n"}));
  EXPECT_EQ(present("A.md") + present("B.md"), "a1b1");
}

TEST_F(Changes, thatAPersonWentBackBehindAreNotUndoneAgain) {
  put("first");
  replace("second", "a");
  replace("third", "b");
  printed({"restore", "Talk", "1"});
  EXPECT_EQ(kelvane({"undo"}), (Outcome{1, "", nothing}));
  EXPECT_EQ(present(), "first");
}

TEST_F(Changes, areThoseOfToolsAndNotSavedVersions) {
  put("first");
  printed({"call", "save_version", "id=Talk.md", "note=mine", "--allow-writes"});
  EXPECT_EQ(kelvane({"undo"}), (Outcome{1, "", nothing}));
  replace("second", "a");
  printed({"call", "save_version", "id=Talk.md", "note=yours", "--allow-writes"});
  EXPECT_THAT(printed({"undo"}), MatchesRegex(undone("a", 2, 4)));
  EXPECT_EQ(present(), "first");
}

TEST_F(Changes, ofAScriptThatIsGoneAreNotUndone) {
  put("first");
  replace("second", "a");
  std::filesystem::remove(home / "Scripts/Talk.md");
  EXPECT_EQ(kelvane({"undo"}), (Outcome{1, "", nothing}));
  EXPECT_FALSE(std::filesystem::exists(home / "Scripts/Talk.md"));
}

// A client can give any note, also one that looks like a label of this program.
TEST_F(Changes, areFoundWhateverNotesSay) {
  put("first");
  replace("second", "a");
  replace("third", "restoring version 1");
  EXPECT_THAT(printed({"undo"}), MatchesRegex(undone("restoring version 1", 2, 3)));
  EXPECT_EQ(present(), "second");
  EXPECT_THAT(printed({"undo"}), MatchesRegex(undone("a", 1, 4)));
  EXPECT_EQ(present(), "first");
}

TEST_F(Changes, areNotTakenForUndoneIfTheUndoFailed) {
  put("first", "Talks/Talk.md");
  replace("second", "a", "Talks/Talk.md");
  replace("third", "b", "Talks/Talk.md");
  home.giveToNobody();
  const auto undo = [&] {
    Start asking = start({"undo"});
    asking.asNobody = true;
    return run(asking);
  };
  const std::filesystem::path folder = home / "Scripts/Talks";
  std::filesystem::permissions(folder, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  EXPECT_EQ(undo().status, 1);
  std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
  EXPECT_EQ(present("Talks/Talk.md"), "third");
  EXPECT_THAT(undo().output, StartsWith("Undone: the change \"b\" of "));
  EXPECT_EQ(present("Talks/Talk.md"), "second");
}

TEST_F(Changes, areNoTextsThatWereFoundAfterADeath) {
  put("first");
  replace("second", "a");
  std::ostringstream name;
  name << "Scripts/.kelvane-" << std::hex << std::setfill('0') << std::setw(16) << quorvel::fnv1a("Talk.md")
       << "-0123456789abcdef-0";
  home.put(name.str(), "left over");
  home.put("Scripts/.kelvane/lock", "");  // nobody knows where a writer died
  replace("third", "b");
  EXPECT_THAT(printed({"history", "Talk"}), HasSubstr("found after an interrupted change"));
  EXPECT_THAT(printed({"undo"}), StartsWith("Undone: the change \"b\" of "));
  EXPECT_THAT(printed({"undo"}), StartsWith("Undone: the change \"a\" of "));
  EXPECT_EQ(present(), "first");
}

TEST_F(Changes, areUndoneWithWhatWasEditedAfterThem) {
  put("first");
  replace("second", "a");
  put("second, and edited");
  const auto later = std::filesystem::last_write_time(home / "Scripts/Talk.md") + std::chrono::hours(1);
  std::filesystem::last_write_time(home / "Scripts/Talk.md", later);
  EXPECT_THAT(printed({"undo"}), HasSubstr("What was edited after that change is undone, too. It is in version 2.\n"));
  EXPECT_EQ(printed({"show", "Talk", "2"}), "second, and edited");
}

// What is printed is pasted into a shell, and names are other people's.
TEST_F(Changes, areTakenBackByTheCommandThatIsPrinted) {
  for (const std::string& id :
       std::vector<std::string>{"$(touch ran).md", "`touch ran`.md", "it's \"q\".md", "-dash.md", "a b.md",
                                "a;touch ran.md", "plain.md", "Ü.md", "~.md", "*.md"}) {
    SCOPED_TRACE(id);
    put("first", id);
    replace("second", "a", id);
    for (const std::string& library : {std::string(), at("Scripts")}) {
      std::vector<std::string> undo = {"undo", "--", id};
      if (!library.empty()) undo.insert(undo.begin() + 1, {"--library", library});
      const std::string said = printed(undo);
      EXPECT_EQ(present(id), "first");
      const std::string mark = "To take this back, run: kelvane ";
      ASSERT_THAT(said, HasSubstr(mark));
      std::string command = said.substr(said.find(mark) + mark.size());
      Start shell = start({"-c", "cd \"$HOME\"; \"$0\" " + command, KELVANE_PROGRAM});
      shell.program = "/bin/sh";
      EXPECT_EQ(run(shell).status, 0);
      EXPECT_EQ(present(id), "second");
      EXPECT_FALSE(std::filesystem::exists(home / "ran"));
    }
  }
}

TEST_F(Changes, ofAnotherLibraryAreTakenBackThere) {
  home.put("Other/Talk.md", "first");
  printed({"call", "update_script", "id=Talk.md", "text=second", "note=n", "--allow-writes", "--library", at("Other")});
  EXPECT_THAT(printed({"undo", "--library", at("Other")}),
              HasSubstr("run: kelvane restore --library " + at("Other") + " Talk.md 2\n"));
}

TEST_F(Changes, thatAreNoneLeaveNoTrace) {
  std::filesystem::create_directory(home / "Empty");
  EXPECT_EQ(kelvane({"undo", "--library", at("Empty")}).status, 1);
  EXPECT_EQ(kelvane({"restore", "Nope", "1", "--library", at("Empty")}).status, 1);
  EXPECT_TRUE(std::filesystem::is_empty(home / "Empty"));
}

TEST_F(Changes, ofAnEmptyTextAreUndoneWithoutSavingIt) {
  put("first");
  replace("second", "a");
  put("");
  EXPECT_THAT(printed({"undo"}), testing::EndsWith("What it replaced was empty.\n"));
  EXPECT_EQ(present(), "first");
}

TEST_F(Changes, areShownByLinesAndWords) {
  put("# Hello\n\nGood evening to you.\n");
  replace("# Hello\n\nGood morning to you.\n\nWelcome.", "a");
  const std::string lines =
      "@@ line 1 @@\n # Hello\n \n-Good [-evening-] to you.\n+Good {+morning+} to you.\n+\n+Welcome.\n"
      "\\ No line break at the end\n";
  EXPECT_EQ(printed({"diff", "Talk"}), "Talk.md: version 1 and now\n" + lines);
  EXPECT_EQ(printed({"diff", "Talk.md", "1"}), "Talk.md: version 1 and now\n" + lines);
  replace("all new", "b");
  EXPECT_EQ(printed({"diff", "Talk", "1", "2"}), "Talk.md: version 1 and version 2\n" + lines);
  EXPECT_THAT(printed({"diff", "Talk", "2", "1"}), HasSubstr("-Good [-morning-] to you.\n"));
  EXPECT_EQ(printed({"diff", "Talk", "2", "2"}), "Talk.md: version 2 and version 2 are the same.\n");
  EXPECT_THAT(printed({"diff", "Talk"}), StartsWith("Talk.md: version 2 and now\n"));
}

TEST_F(Changes, areComparedWithTheNewestTextThatDiffers) {
  put("first");
  EXPECT_EQ(printed({"diff", "Talk"}), "\"Talk.md\" has no saved version that differs from the present text.\n");
  replace("second", "a");
  printed({"call", "save_version", "id=Talk.md", "note=mine", "--allow-writes"});
  EXPECT_THAT(printed({"diff", "Talk"}), StartsWith("Talk.md: version 1 and now\n"));
}

TEST_F(Changes, ofAScriptThatIsGoneAreShownBetweenTwoVersions) {
  put("first");
  replace("second", "a");
  replace("third", "b");
  std::filesystem::remove(home / "Scripts/Talk.md");
  EXPECT_EQ(kelvane({"diff", "Talk", "1"}),
            (Outcome{1, "",
                     "\"Talk.md\" is gone, so there is no present text. Give two versions. To list them, run: kelvane "
                     "history SCRIPT\n"}));
  EXPECT_THAT(printed({"diff", "Talk", "1", "2"}), HasSubstr("-first\n"));
}

TEST_F(Changes, steerNoTerminal) {
  put("a \x1B[31m b");
  replace("a \xC2\x9B b", "x");
  EXPECT_THAT(printed({"diff", "Talk"}), testing::Not(testing::AnyOf(HasSubstr("\x1B"), HasSubstr("\xC2\x9B"))));
}

/// What a program prints at a terminal.
std::string atTerminal(Start start) {
  const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (terminal < 0 || ::grantpt(terminal) != 0 || ::unlockpt(terminal) != 0) return "no terminal";
  const int end = ::open(::ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
  start.output = end;
  const Outcome outcome = run(start);
  ::close(end);
  std::string text = outcome.errors;
  char buffer[4096];
  for (ssize_t count; (count = ::read(terminal, buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(count));
  }
  ::close(terminal);
  return text;
}

TEST_F(Changes, areColouredAtATerminalOnly) {
  put("one two");
  replace("one three", "a");
  const struct {
    const char* what;
    std::vector<std::string> variables;
    const char* line;
  } cases[] = {
      {"a terminal", {"TERM=xterm", "PAGER=cat"}, "\x1B[31m-one \x1B[7mtwo\x1B[27m\x1B[0m"},
      {"no colours wanted", {"TERM=xterm", "PAGER=cat", "NO_COLOR=1"}, "-one [-two-]"},
      {"an empty NO_COLOR counts for nothing", {"TERM=xterm", "PAGER=cat", "NO_COLOR="}, "\x1B[31m-one"},
      {"a terminal without colours", {"TERM=dumb", "PAGER=cat"}, "-one [-two-]"},
      {"a terminal that is not known", {"PAGER=cat"}, "-one [-two-]"},
      {"no pager", {"TERM=xterm", "PAGER=/nonexistent/pager"}, "\x1B[31m-one"},
      {"the person's pager", {"TERM=xterm", "PAGER=sed s/one/1/"}, "\x1B[31m-1 "},
  };
  for (const auto& [what, variables, line] : cases) {
    Start how = start({"diff", "Talk"});
    how.environment = variables;
    how.environment.emplace_back("PATH=/usr/bin:/bin");
    const std::string shown = atTerminal(how);
    if (shown == "no terminal") GTEST_SKIP() << "this machine has no terminals to give";
    EXPECT_THAT(shown, HasSubstr(line)) << what;
  }
}

TEST_F(Changes, areShownByAPagerOnlyWhereOneWorks) {
  put("one two");
  replace("one three", "a");
  home.put("bin/less", "#!/bin/sh\nread -r line && echo \"paged $*: $line\"\n");
  std::filesystem::permissions(home / "bin/less", std::filesystem::perms::owner_all);
  const std::string plain =
      "Talk.md: version 1 and now\r\n@@ line 1 @@\r\n-one [-two-]\r\n\\ No line break at the end\r\n"
      "+one {+three+}\r\n\\ No line break at the end\r\n";
  const std::string paged = "paged -FRX: Talk.md: version 1 and now\r\n";
  const std::string withLess = "PATH=/nonexistent:" + at("bin");
  const struct {
    const char* what;
    std::vector<std::string> variables;
    std::string shown;
  } cases[] = {
      {"a terminal", {"TERM=xterm", withLess}, paged},
      {"no less", {"TERM=xterm", "PATH=/nonexistent"}, plain},
      {"no path", {"TERM=xterm", "PATH="}, plain},
      {"a dumb terminal", {"TERM=dumb", withLess}, plain},
      {"a dumb terminal, and a pager", {"TERM=dumb", "PAGER=cat >/dev/null", withLess}, plain},
      {"a terminal that is not known", {withLess}, plain},
  };
  for (const auto& [what, variables, shown] : cases) {
    Start how = start({"diff", "Talk"});
    how.environment = variables;
    how.environment.emplace_back("NO_COLOR=1");
    const std::string seen = atTerminal(how);
    if (seen == "no terminal") GTEST_SKIP() << "this machine has no terminals to give";
    EXPECT_EQ(seen, shown) << what;
  }
}

}  // namespace
}  // namespace kelvane::tests
