#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <iomanip>
#include <regex>
#include <sstream>
#include <thread>

#include "quorvel/files/FNV1a.h"
#include "tests/end-to-end/Home.h"

namespace kelvane::tests {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

// The history at hand: its list, one version's bytes, and putting one back.
class HistoryCommands : public Home {
 protected:
  HistoryCommands() { printed({"settings", "library", at("Scripts")}); }

  void put(std::string_view text) const { home.put("Scripts/Talk.md", text); }
  std::string present() const { return home.bytes("Scripts/Talk.md"); }

  // Lets a tool replace the text.
  void replace(const std::string& text, const std::string& note, const std::string& id = "Talk.md") const {
    printed({"call", "update_script", "id=" + id, "text=" + text, "note=" + note, "--allow-writes"});
  }

  // What is printed, with "MOMENT" for each moment.
  std::string list(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "history");
    static const std::regex moment("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}");
    return std::regex_replace(printed(std::move(arguments)), moment, "MOMENT");
  }
};

TEST_F(HistoryCommands, listsTheVersionsOfAScriptNewestFirst) {
  put("one two three\n");
  replace("four five", "Shorter");
  replace("six", "Two\nlines \x1B[31m\xC2\x9B\xE2\x80\xAE\xE2\x80\xA8");
  put("");
  replace("empty before", "Kept nothing");
  put("six");
  replace("seven eight nine ten", "Longer");
  const std::string expected =
      "3 versions of \"Talk.md\", newest first\n\n"
      "version                saved  words  bytes  change  label\n"
      "    now  MOMENT      4     20     +17\n"
      "      3  MOMENT      1      3      -6  Before — Longer\n"
      "      2  MOMENT      2      9      -5  Before — Two\xEF\xBF\xBDlines "
      "\xEF\xBF\xBD[31m\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\n"
      "      1  MOMENT      3     14          Before — Shorter\n";
  for (const std::string& typed : std::vector<std::string>{"Talk.md", "Talk", "./Talk"}) {
    EXPECT_EQ(list({typed}), expected) << typed;
  }
}

TEST_F(HistoryCommands, showsMomentsInThePersonsTimeZone) {
  put("one");
  replace("two", "n");
  Start here = start({"history", "Talk"});
  Start there = here;
  there.environment = {"TZ=UTC"};
  const auto moment = [](const std::string& text) {
    std::smatch found;
    std::regex_search(text, found, std::regex("([0-9]{2}):([0-9]{2}):[0-9]{2}"));
    return std::stoi(found[1]) * 60 + std::stoi(found[2]);
  };
  const int difference = moment(run(here).output) - moment(run(there).output);
  EXPECT_EQ((difference + 24 * 60) % (24 * 60), 5 * 60 + 30);
}

TEST_F(HistoryCommands, listsWhatWasSavedOfAllScriptsAndMarksThoseThatAreGone) {
  EXPECT_EQ(list({}), "This library has no saved versions yet.\n");
  put("one");
  home.put("Scripts/Talks/Other.md", "one");
  home.put("Scripts/Talks/Never changed.md", "one");
  replace("two words", "n");
  replace("three", "longer");
  replace("two", "n", "Talks/Other.md");
  std::filesystem::remove(home / "Scripts/Talks/Other.md");
  EXPECT_EQ(list({}),
            "              saved  version  words  change  script                 label\n"
            "MOMENT        1      1          Talks/Other.md (gone)  Before — n\n"
            "MOMENT        2      2      +1  Talk.md                Before — longer\n"
            "MOMENT        1      1          Talk.md                Before — n\n");
  EXPECT_EQ(list({"Talks/Never changed"}), "\"Talks/Never changed.md\" has no saved versions yet.\n");
}

TEST_F(HistoryCommands, listsOnlyWhatIsAskedFor) {
  put("one");
  for (const char* note : {"a", "b", "c"}) replace(std::string("text ") + note, note);
  const std::string heading = "3 versions of \"Talk.md\", newest first\n\n";
  const std::string labels = "version                saved  words  bytes  change  label\n";
  const std::string now = "    now  MOMENT      2      6      +0\n";
  const std::string newest = "      3  MOMENT      2      6      +0  Before — c\n";
  EXPECT_EQ(list({"Talk", "-n", "1"}), heading + labels + now + newest);
  EXPECT_THAT(list({"Talk", "-n", "2"}), HasSubstr("Before — b\n"));
  EXPECT_THAT(list({"Talk", "--since", "1 hour", "-n", "1"}), HasSubstr(newest));
  EXPECT_EQ(list({"Talk", "--since", "2100-01-01"}), heading + labels + now);
  EXPECT_EQ(list({"--since", "2100-01-01"}), "Nothing was saved since then.\n");
  EXPECT_THAT(list({"-n", "1"}), MatchesRegex("[^\n]*\n[^\n]*Before — c\n"));
  EXPECT_THAT(list({"--since", "yesterday"}), HasSubstr("Before — a\n"));
}

TEST_F(HistoryCommands, listsTheVersionsOfAScriptThatCannotBeRead) {
  put("one");
  replace("two", "n");
  std::filesystem::resize_file(home / "Scripts/Talk.md", std::uintmax_t{300} << 20);
  EXPECT_THAT(list({"Talk"}), HasSubstr("    now       cannot be read\n      1  MOMENT"));
}

TEST_F(HistoryCommands, tellsTimesInUTCIfAsked) {
  put("one");
  replace("two", "n");
  Start there = start({"history", "Talk"});
  there.environment = {"TZ=UTC"};
  EXPECT_EQ(printed({"history", "Talk", "--utc"}), run(there).output);
  there.arguments = {"history"};
  EXPECT_EQ(printed({"history", "--utc"}), run(there).output);
}

TEST_F(HistoryCommands, printsJSONForOtherPrograms) {
  EXPECT_EQ(printed({"history", "--json"}), "[]\n");
  put("one \"two\"");
  replace("three", "n");
  static const std::regex moment("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z");
  const std::string expected =
      R"([{"bytes":9,"id":"Talk.md","label":"Before — n","saved":"MOMENT","version":"1","words":2}])"
      "\n";
  EXPECT_EQ(std::regex_replace(printed({"history", "Talk", "--json"}), moment, "MOMENT"), expected);
  EXPECT_EQ(std::regex_replace(printed({"history", "--json", "-n", "1"}), moment, "MOMENT"), expected);
  EXPECT_EQ(printed({"history", "Talk", "--json", "--since", "2100-01-01"}), "[]\n");
}

TEST_F(HistoryCommands, showsAVersionsExactBytes) {
  const std::string texts[] = {"one",
                               "line\n",
                               "CR LF\r\n\r\n",
                               std::string("NUL \0 and \xFF\xFE", 11),
                               "\xEF\xBB\xBFmark",
                               std::string(300'000, 'x')};
  int number = 0;
  for (const std::string& text : texts) {
    put(text);
    replace("next", "n");
    ++number;
    EXPECT_EQ(kelvane({"show", "Talk", std::to_string(number)}), (Outcome{0, text, ""}));
  }
}

TEST_F(HistoryCommands, restoresAVersionAndKeepsWhatThatReplaces) {
  put("first\r\n\xFF");
  replace("second", "n");
  EXPECT_EQ(printed({"restore", "Talk", "1"}),
            "\"Talk.md\" is restored to version 1.\nThe replaced text is version 2.\n");
  EXPECT_EQ(present(), "first\r\n\xFF");
  EXPECT_THAT(list({"Talk"}), HasSubstr("2  MOMENT      1      6      -2  Before — restoring version 1\n"));
  EXPECT_EQ(printed({"restore", "Talk.md", "2"}),
            "\"Talk.md\" is restored to version 2.\nThe replaced text is version 3.\n");
  EXPECT_EQ(present(), "second");
}

// What a writer that died had taken out of the script's place is kept by the next one, behind what that keeps itself.
TEST_F(HistoryCommands, namesTheVersionThatItKeptAmongOthersThatAreFound) {
  put("first");
  replace("second", "n");
  std::ostringstream name;
  name << "Scripts/.kelvane-" << std::hex << std::setfill('0') << std::setw(16) << quorvel::fnv1a("Talk.md")
       << "-0123456789abcdef-0";
  home.put(name.str(), "left over");
  home.put("Scripts/.kelvane/lock", "");  // as a writer of an earlier version leaves it, without a note
  EXPECT_THAT(printed({"restore", "Talk", "1"}), HasSubstr("The replaced text is version 2.\n"));
  EXPECT_EQ(printed({"show", "Talk", "2"}), "second");
  EXPECT_EQ(printed({"show", "Talk", "3"}), "left over");
}

TEST_F(HistoryCommands, restoringWhatIsThereChangesNothing) {
  put("first");
  replace("second", "n");
  put("first");
  const auto before = home.census();
  EXPECT_EQ(printed({"restore", "Talk", "1"}), "\"Talk.md\" is the same as version 1. No change is needed.\n");
  EXPECT_EQ(home.census(), before);
}

TEST_F(HistoryCommands, restoringOverAnEmptyTextKeepsNoneOfIt) {
  put("first");
  replace("second", "n");
  put("");
  EXPECT_EQ(printed({"restore", "Talk", "1"}), "\"Talk.md\" is restored to version 1.\n");
  EXPECT_EQ(present(), "first");
  EXPECT_THAT(list({"Talk"}), StartsWith("1 version of"));
}

TEST_F(HistoryCommands, putsBackAScriptThatIsGoneWithItsFolders) {
  home.put("Scripts/Talks/Old/Talk.md", "first");
  replace("second", "n", "Talks/Old/Talk.md");
  std::filesystem::remove_all(home / "Scripts/Talks");
  EXPECT_THAT(list({"Talks/Old/Talk"}),
              StartsWith("1 version of \"Talks/Old/Talk.md\", which is gone, newest first\n"));
  EXPECT_EQ(printed({"show", "Talks/Old/Talk", "1"}), "first");
  EXPECT_EQ(printed({"restore", "Talks/Old/Talk", "1"}),
            "\"Talks/Old/Talk.md\" was gone. It is restored to version 1.\n");
  EXPECT_EQ(home.bytes("Scripts/Talks/Old/Talk.md"), "first");
  EXPECT_THAT(list({"Talks/Old/Talk"}), StartsWith("1 version of \"Talks/Old/Talk.md\", newest first\n"));
}

TEST_F(HistoryCommands, reachesScriptsThatHadTheSameNameEarlier) {
  put("first");
  replace("second", "n");
  std::filesystem::remove(home / "Scripts/Talk.md");
  printed({"call", "create_script", "name=Talk", "text=another", "--allow-writes"});
  EXPECT_EQ(list({"Talk"}),
            "1 version of \"Talk.md\", newest first\n\n"
            "version                saved  words  bytes  change  label\n"
            "    now  MOMENT      1      7        \n"
            "    1.1  MOMENT      1      5          Before — n\n");
  EXPECT_EQ(list({}),
            "              saved  version  words  change  script          label\n"
            "MOMENT      1.1      1          Talk.md (gone)  Before — n\n");
  EXPECT_EQ(printed({"show", "Talk", "1.1"}), "first");
  EXPECT_EQ(printed({"restore", "Talk", "1.1"}),
            "\"Talk.md\" is restored to version 1.1.\nThe replaced text is version 1.\n");
  EXPECT_EQ(present(), "first");
  EXPECT_EQ(printed({"show", "Talk", "1"}), "another");
}

TEST_F(HistoryCommands, listsTheLatestOfTheEarlierScriptsFirst) {
  for (const char* text : {"first", "second", "third"}) {
    printed({"call", "create_script", "name=Talk", std::string("text=") + text, "--allow-writes"});
    replace("x", text);
    std::filesystem::remove(home / "Scripts/Talk.md");
  }
  EXPECT_THAT(list({"Talk"}),
              MatchesRegex("3 versions of \"Talk.md\", which is gone, newest first\n\n[^\n]*\n"
                           "      1  MOMENT .* third\n    2.1  MOMENT .* second\n    1.1  MOMENT .* first\n"));
}

TEST_F(HistoryCommands, keepsNumbersWhateverIsAddedMeanwhile) {
  put("first");
  replace("second", "n");
  replace("third", "n");
  EXPECT_EQ(printed({"show", "Talk", "1"}), "first");
  replace("fourth", "n");
  EXPECT_EQ(printed({"show", "Talk", "1"}), "first");
  EXPECT_EQ(printed({"show", "Talk", "2"}), "second");
}

TEST_F(HistoryCommands, followsARename) {
  put("first");
  replace("second", "n");
  printed({"call", "rename", "id=Talk.md", "name=Speech", "--allow-writes"});
  EXPECT_THAT(list({"Speech"}), StartsWith("1 version of \"Speech.md\", newest first"));
  EXPECT_THAT(list({}), Not(HasSubstr("Talk.md")));
  EXPECT_THAT(list({}), HasSubstr("Speech.md"));
}

TEST_F(HistoryCommands, prefersTheNameAsItIsTyped) {
  put("first");
  home.put("Scripts/Talk.md.md", "other");
  replace("x", "plain");
  replace("y", "double", "Talk.md.md");
  EXPECT_EQ(printed({"show", "Talk", "1"}), "first");
  EXPECT_EQ(printed({"show", "Talk.md", "1"}), "first");
  EXPECT_EQ(printed({"show", "Talk.md.md", "1"}), "other");
  std::filesystem::remove(home / "Scripts/Talk.md");
  EXPECT_EQ(printed({"show", "Talk.md", "1"}), "other") << "the script that is there comes before one that is gone";
}

TEST_F(HistoryCommands, refusesWhatIsNotThereAndChangesNothing) {
  put("first");
  replace("second", "n");
  std::filesystem::create_directory(home / "Scripts/Folder.md");
  const std::string list = " To list what was saved, run: kelvane history\n";
  const std::string numbers = ". To list them, run: kelvane history SCRIPT\n";
  const struct {
    std::vector<std::string> arguments;
    int status;
    std::string sentence;
  } cases[] = {
      {{"history", "Other"}, 1, "Nothing at \"Other.md\"." + list},
      {{"history", "../Talk"}, 1, "\"../Talk.md\" is not inside the library." + list},
      {{"history", "Folder"}, 1, "\"Folder.md\" is a folder, not a script." + list},
      {{"history", "a", "b"}, 2, "\"kelvane history\" does not take \"b\". Run: kelvane history --help\n"},
      {{"history", "-n", "0"}, 2, "\"0\" is not a number of versions. Type -n 10, for example.\n"},
      {{"history", "-n", "x"}, 2, "\"x\" is not a number of versions. Type -n 10, for example.\n"},
      {{"history", "-n", "99999999999999999999"},
       2,
       "\"99999999999999999999\" is not a number of versions. Type -n 10, for example.\n"},
      {{"history", "--since", "soon"},
       2,
       "\"soon\" is not a time. Type --since \"2 hours\", --since yesterday or --since 2026-11-21, for example.\n"},
      {{"diff"}, 2, "Say which script, such as \"Talks/Opening\".\n"},
      {{"diff", "Talk", "x"}, 2, "\"x\" is not a version's number" + numbers},
      {{"diff", "Talk", "1", "0"}, 2, "\"0\" is not a version's number" + numbers},
      {{"diff", "Talk", "2"}, 1, "\"Talk.md\" has no version 2. To list its versions, run: kelvane history SCRIPT\n"},
      {{"diff", "Other"}, 1, "Nothing at \"Other.md\"." + list},
      {{"undo", "Other"}, 1, "Nothing at \"Other.md\"." + list},
      {{"show", "Talk", "2"}, 1, "\"Talk.md\" has no version 2. To list its versions, run: kelvane history SCRIPT\n"},
      {{"show", "Talk", "1.1"},
       1,
       "\"Talk.md\" has no version 1.1. To list its versions, run: kelvane history SCRIPT\n"},
      {{"show", "Talk", "first"}, 2, "\"first\" is not a version's number" + numbers},
      {{"show", "Talk", "0"}, 2, "\"0\" is not a version's number" + numbers},
      {{"show", "Talk", "99999999999999999999"}, 2, "\"99999999999999999999\" is not a version's number" + numbers},
      {{"show", "Talk"}, 2, "Say which version. To list them, run: kelvane history SCRIPT\n"},
      {{"show"}, 2, "Say which script and which version, such as \"Talks/Opening\" 3.\n"},
      {{"show", "", "1"}, 2, "Say which script and which version, such as \"Talks/Opening\" 3.\n"},
      {{"restore"}, 2, "Say which script and which version, such as \"Talks/Opening\" 3.\n"},
      {{"restore", "Talk", "7"},
       1,
       "\"Talk.md\" has no version 7. To list its versions, run: kelvane history SCRIPT\n"},
      {{"restore", "Other", "1"}, 1, "Nothing at \"Other.md\"." + list},
      {{"restore", "Talk", "-1"}, 2, "\"-1\" is not a version's number" + numbers},
  };
  for (const auto& [arguments, status, sentence] : cases) {
    EXPECT_EQ(kelvane(arguments), (Outcome{status, "", sentence})) << testing::PrintToString(arguments);
  }
  EXPECT_EQ(present(), "second");
  EXPECT_THAT(this->list({"Talk"}), StartsWith("1 version of"));
}

TEST_F(HistoryCommands, doesNotRestoreOverSomethingElse) {
  put("first");
  replace("second", "n");
  std::filesystem::remove(home / "Scripts/Talk.md");
  std::filesystem::create_directory(home / "Scripts/Talk.md");
  const Outcome outcome = kelvane({"restore", "Talk", "1"});
  EXPECT_EQ(outcome,
            (Outcome{1, "", "\"Talk.md\" could not be put back, because something with that name is there.\n"}));
  EXPECT_EQ(printed({"show", "Talk", "1"}), "first");
}

// Another program lets each call that flushes fail from one on, as a disk does that dies.
TEST_F(HistoryCommands, saysWhatIsThereWhenTheDiskDiesWhileWhatIsGoneIsPutBack) {
  const std::filesystem::path tracer = "/usr/bin/strace";
  put("first");
  replace("second", "n");
  bool isDone = false;
  int standing = 0;
  for (int first = 1; first < 20 && !isDone; ++first) {
    std::filesystem::remove(home / "Scripts/Talk.md");
    Start dying = start({"restore", "Talk", "1"});
    const std::string how = "inject=fsync,fdatasync:error=EIO:when=" + std::to_string(first) + "+";
    const std::vector<std::string> tracing = {"-f", "-o", "/dev/null", "-e", how, dying.program};
    dying.arguments.insert(dying.arguments.begin(), tracing.begin(), tracing.end());
    dying.program = tracer;
    const Outcome outcome = std::filesystem::exists(tracer) ? run(dying) : Outcome{127, "", ""};
    if (outcome.status != 0 && outcome.errors.find("disk reports an error") == std::string::npos)
      GTEST_SKIP() << "no program is here that lets calls fail: " << outcome;
    isDone = outcome.status == 0;
    const bool stands = outcome.errors.find("is in its place") != std::string::npos;
    standing += stands;
    const bool isThere = std::filesystem::exists(home / "Scripts/Talk.md");
    const bool isSaidToBeEmpty = outcome.errors.find("empty") != std::string::npos;
    EXPECT_EQ(isThere, isDone || stands || isSaidToBeEmpty) << outcome;
    if (isThere) {
      EXPECT_EQ(present(), isSaidToBeEmpty ? "" : "first") << outcome;
    }
  }
  EXPECT_TRUE(isDone);
  EXPECT_GT(standing, 0);
}

TEST_F(HistoryCommands, isReadButNotRestoredInALibraryThatMayOnlyBeRead) {
  put("first");
  replace("second", "n");
  home.giveToNobody();
  for (const char* name : {"Scripts", "Scripts/.kelvane"}) {
    std::filesystem::permissions(home / name, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  }
  for (const char* name : {"Scripts/Talk.md", "Scripts/.kelvane/history.sqlite", "Scripts/.kelvane/lock"}) {
    std::filesystem::permissions(home / name, std::filesystem::perms::owner_read);
  }
  const auto asNobody = [&](std::vector<std::string> arguments) {
    Start asking = start(std::move(arguments));
    asking.asNobody = true;
    return run(asking);
  };
  EXPECT_EQ(asNobody({"show", "Talk", "1"}), (Outcome{0, "first", ""}));
  const Outcome outcome = asNobody({"restore", "Talk", "1"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "");
  EXPECT_THAT(outcome.errors, HasSubstr("the system does not permit it"));
  EXPECT_EQ(present(), "second");
  for (const char* name : {"Scripts", "Scripts/.kelvane"}) {
    std::filesystem::permissions(home / name, std::filesystem::perms::owner_all);
  }
}

TEST_F(HistoryCommands, waitsForTheLibrarysLockToRestore) {
  put("first");
  replace("second", "n");
  const int lock = ::open(at("Scripts/.kelvane/lock").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(lock, 0);
  ASSERT_EQ(::flock(lock, LOCK_EX), 0);
  Program restoring(start({"restore", "Talk", "1"}));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(present(), "second");
  put("what the one with the lock wrote");
  ::close(lock);
  EXPECT_EQ(restoring.finish(), (Outcome{0,
                                         "\"Talk.md\" is restored to version 1.\n"
                                         "The replaced text is version 2.\n",
                                         ""}));
  EXPECT_EQ(printed({"show", "Talk", "2"}), "what the one with the lock wrote");
}

}  // namespace
}  // namespace kelvane::tests
