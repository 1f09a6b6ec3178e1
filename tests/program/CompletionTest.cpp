#include "program/Completion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "program/ManualPage.h"
#include "program/commands/Commands.h"

namespace kelvane::tests {
namespace {

using Words = std::vector<std::string>;

// What a table's word stands for, and what was typed before it.
Words wordsFor(std::string_view word, const Command& command, const Arguments& before) {
  std::string all(command.name);
  for (const std::string& each : before.words) all += "," + each;
  for (const Option& option : command.options) {
    if (before.has(option)) all.append(",").append(option.name).append("=").append(before.value(option));
  }
  return {"<" + std::string(word) + " of " + all + ">"};
}

TEST(Completion, isMadeFromTheTableOfCommands) {
  const struct {
    const char* what;
    Words typed;
    Words completions;
  } cases[] = {
      {"a command", {"hi"}, {"history"}},
      {"several commands", {"se"}, {"setup", "settings", "serve"}},
      {"what only shells call is not shown", {"compl"}, {"completions"}},
      {"an option of the program", {"--v"}, {"--version"}},
      {"an unknown command", {"hsitory", ""}, {}},
      {"a command after help", {"help", "un"}, {"undo"}},
      {"an option", {"history", "--s"}, {"--since"}},
      {"an option behind a word", {"history", "Talk", "--j"}, {"--json"}},
      {"a folder as a value", {"serve", "--library", ""}, {"@files"}},
      {"a value of another kind", {"setup", "--client", ""}, {"<NAME of setup>"}},
      {"a folder behind an equals sign", {"serve", "--library=Scri"}, {"@files"}},
      {"another value behind one", {"setup", "--client=<"}, {"--client=<NAME of setup>"}},
      {"a switch takes no value", {"history", "--json="}, {}},
      {"a word of the person's", {"history", ""}, {"<SCRIPT of history>"}},
      {"the second word", {"restore", "Talk", ""}, {"<VERSION of restore,Talk>"}},
      {"the third word", {"diff", "Talk", "1", ""}, {"<VERSION of diff,Talk,1>"}},
      {"an option's value before it", {"history", "--library", "/x", ""}, {"<SCRIPT of history,--library=/x>"}},
      {"words that are typed as they are", {"settings", "al"}, {"allow-writes"}},
      {"what follows such a word", {"settings", "library", ""}, {"@files"}},
      {"a mistake before it", {"history", "--zzz", ""}, {"<SCRIPT of history>"}},
      {"the first argument of a tool", {"call", "read_script", ""}, {"<NAME=VALUE of call,read_script>"}},
      {"the second one", {"call", "read_chapter", "id=x", ""}, {"<NAME=@FILE of call,read_chapter,id=x>"}},
  };
  for (const auto& [what, typed, expected] : cases) {
    EXPECT_EQ(completions(typed, commands::all(), wordsFor), expected) << what;
  }
}

TEST(ManualPage, tellsOfEachCommandAndOption) {
  const std::string page = manualPage(commands::all());
  for (const Command* command : commands::all()) {
    if (command == nullptr || command->summary.empty()) continue;
    EXPECT_THAT(page, testing::HasSubstr("\n.SS " + std::string(command->name) + "\n"));
    EXPECT_FALSE(command->about.empty()) << command->name;
  }
  EXPECT_THAT(page, testing::Not(testing::HasSubstr(".SS complete\n")));
  EXPECT_THAT(page, testing::HasSubstr("\n.TP\n.B \\-\\-library DIR\n"));
  // A line that begins with a dot or an apostrophe is a request to roff: only those of the macros may be there.
  for (std::size_t at = 0; (at = page.find("\n.", at)) != std::string::npos; ++at) {
    const std::string request = page.substr(at + 1, page.find_first_of(" \n", at + 1) - at - 1);
    EXPECT_THAT(request, testing::AnyOf(".TH", ".SH", ".SS", ".PP", ".TP", ".B", ".I", ".nf", ".fi")) << at;
  }
  EXPECT_EQ(page.find("\n'"), std::string::npos);
}

}  // namespace
}  // namespace kelvane::tests
