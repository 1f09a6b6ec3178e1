#include "program/CommandLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "program/HelpPages.h"
#include "program/Process.h"

namespace kelvane::tests {
namespace {

using Words = std::vector<std::string>;

constexpr Option since = {"--since", "Only what is newer than this.", "WHEN", "a time"};
constexpr Option most = {"-n", "At most this many.", "N", "a number"};
constexpr Option json = {"--json", "Print JSON."};
constexpr Option also = {"--also", "More.", "NAME", "a name", {}, true};
constexpr Option options[] = {since, most, json, also};
constexpr Word words[] = {
    {"SCRIPT", "The script. This explanation is so long that it does not fit on one line of the page."},
    {"all", "Every script."},
};

int answer(const Arguments&) {
  return 42;
}

constexpr Command list = {
    .name = "list",
    .summary = "List versions.",
    .about = "Lists versions in a paragraph that is longer than one line of a page may be at a terminal.\n\nAnd more.",
    .usage = "[SCRIPT...]",
    .mostWords = 2,
    .words = words,
    .options = options,
    .notes = "Such as:\n\n  kelvane list   Talk",
    .run = answer,
};
constexpr Command quit = {.name = "quit", .summary = "Quit.", .about = "Quits."};
constexpr const Command* table[] = {&list, nullptr, &quit};

Request understood(const Words& typed) {
  std::vector<const char*> pointers;
  for (const std::string& argument : typed) pointers.push_back(argument.c_str());
  return understand(pointers, table);
}

/// What was understood, on one line: the words and then the options, or the sentence that refuses it.
std::string outcome(const Words& typed) {
  try {
    const Request request = understood(typed);
    std::string text(request.command != nullptr ? request.command->name : "-");
    if (request.wantsHelp) text += " help";
    if (!request.topic.empty()) text += " on " + request.topic;
    if (request.wantsVersion) text += " version";
    for (const std::string& word : request.arguments.words) text += " [" + word + "]";
    for (const Option& option : options) {
      if (!request.arguments.has(option)) continue;
      for (const std::string& value : request.arguments.values(option)) {
        text.append(" ").append(option.name).append("=").append(value);
      }
    }
    return text;
  } catch (const UsageError& error) {
    return error.what();
  }
}

TEST(CommandLine, theTableTakesItApart) {
  const struct {
    const char* what;
    Words typed;
    const char* outcome;
  } cases[] = {
      {"nothing", {}, "-"},
      {"two dashes alone", {"--"}, "-"},
      {"a command", {"quit"}, "quit"},
      {"words", {"list", "a", "b"}, "list [a] [b]"},
      {"an empty word", {"list", ""}, "list []"},
      {"a dash and a negative number are words", {"list", "-", "-5"}, "list [-] [-5]"},
      {"options before, between and behind words",
       {"list", "--json", "a", "-n", "3", "b"},
       "list [a] [b] -n=3 --json="},
      {"a value behind the equals sign", {"list", "--since=a=b"}, "list --since=a=b"},
      {"a value that looks like an option", {"list", "--since", "--json"}, "list --since=--json"},
      {"a switch twice", {"list", "--json", "--json"}, "list --json= --json="},
      {"an option that may be repeated", {"list", "--also", "a", "--also=b"}, "list --also=a --also=b"},
      {"words behind two dashes", {"list", "--json", "--", "--json", "--"}, "list [--json] [--] --json="},
      {"two dashes before the command", {"--", "list", "a"}, "list [a]"},
      {"help on the program", {"--help"}, "- help"},
      {"the short form", {"-h"}, "- help"},
      {"help on a command, asked before", {"-h", "list"}, "list help"},
      {"help on a command, asked behind", {"list", "--json", "--help"}, "list help"},
      {"help in place of a value", {"list", "--since", "-h"}, "list help"},
      {"help in spite of mistakes", {"list", "--zzz", "a", "b", "c", "-h"}, "list help"},
      {"help behind two dashes is a word", {"list", "--", "-h"}, "list [-h]"},
      {"the word help", {"help"}, "- help"},
      {"the word help, of a command", {"help", "list"}, "list help"},
      {"the word help, of itself", {"help", "help"}, "- help"},
      {"help behind a command is a word", {"list", "help"}, "list [help]"},
      {"help on a topic of a command", {"list", "a", "b", "-h"}, "list help on a"},
      {"help on a topic, asked before", {"help", "list", "a"}, "list help on a"},
      {"an option's value is no topic", {"list", "--since", "a", "-h"}, "list help"},
      {"the version", {"--version"}, "- version"},
      {"the version, whatever follows", {"--version", "quti"}, "- version"},
  };
  for (const auto& row : cases) EXPECT_EQ(outcome(row.typed), row.outcome) << row.what;
}

TEST(CommandLine, whatDoesNotFitIsRefusedWithWhatToTypeInstead) {
  const struct {
    const char* what;
    Words typed;
    const char* sentences;
  } cases[] = {
      {"an unknown command", {"x"}, "There is no command \"x\". Run: kelvane --help"},
      {"a misspelt command", {"lsit"}, "There is no command \"lsit\". Did you mean \"list\"?"},
      {"a misspelt help", {"hepl"}, "There is no command \"hepl\". Did you mean \"help\"?"},
      {"a misspelt command, with help", {"lsit", "-h"}, "There is no command \"lsit\". Did you mean \"list\"?"},
      {"an option of the program", {"--x", "list"}, "\"kelvane\" has no option \"--x\". Run: kelvane --help"},
      {"an unknown option", {"list", "-x"}, "\"kelvane list\" has no option \"-x\". Run: kelvane list --help"},
      {"a misspelt option",
       {"list", "--snice=1"},
       "\"kelvane list\" has no option \"--snice=1\". Did you mean \"--since\"?"},
      {"another command's option",
       {"quit", "--json"},
       "\"kelvane quit\" has no option \"--json\". Run: kelvane quit --help"},
      {"a word too many", {"list", "a", "b", "c"}, "\"kelvane list\" does not take \"c\". Run: kelvane list --help"},
      {"a missing value", {"list", "--since"}, "--since needs a time: --since WHEN."},
      {"an empty value", {"list", "-n", ""}, "-n needs a number: -n N."},
      {"an empty value behind the equals sign", {"list", "--since=", "x"}, "--since needs a time: --since WHEN."},
      {"a value twice", {"list", "-n", "1", "-n", "2"}, "-n is given twice. Give it once."},
      {"a value for a switch", {"list", "--json=no"}, "--json takes no value. Leave out \"=no\"."},
      {"the first of two mistakes", {"list", "--json=", "--zzz"}, "--json takes no value. Leave out \"=\"."},
  };
  for (const auto& row : cases) EXPECT_EQ(outcome(row.typed), row.sentences) << row.what;
}

TEST(CommandLine, theCommandsFunctionIsRun) {
  const Request request = understood({"list"});
  EXPECT_EQ(request.command->run(request.arguments), 42);
}

TEST(HelpPages, aCommandsPageIsMadeFromTheTable) {
  EXPECT_EQ(helpOn(list),
            "Lists versions in a paragraph that is longer than one line of a page may be at\n"
            "a terminal.\n"
            "\n"
            "And more.\n"
            "\n"
            "Usage: kelvane list [SCRIPT...] [--since WHEN] [-n N] [--json] [--also NAME\n"
            "    ...]\n"
            "\n"
            "  SCRIPT         The script. This explanation is so long that it does not fit\n"
            "                 on one line of the page.\n"
            "  all            Every script.\n"
            "  --since WHEN   Only what is newer than this.\n"
            "  -n N           At most this many.\n"
            "  --json         Print JSON.\n"
            "  --also NAME    More.\n"
            "  -h, --help     Print this.\n"
            "\n"
            "Such as:\n"
            "\n"
            "  kelvane list   Talk\n");
  EXPECT_EQ(helpOn(quit), "Quits.\n\nUsage: kelvane quit\n\n  -h, --help   Print this.\n");
}

TEST(HelpPages, theProgramsPageListsTheCommandsInTheirGroups) {
  EXPECT_THAT(helpOn(table), testing::HasSubstr("\n\n  list             List versions.\n\n  quit             Quit.\n\n"
                                                "  help [COMMAND]   Explain the program or a command.\n"
                                                "  -h, --help       Print this.\n"
                                                "  --version        Print the version.\n\n"));
}

}  // namespace
}  // namespace kelvane::tests
