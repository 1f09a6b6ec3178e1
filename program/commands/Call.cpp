#include <algorithm>
#include <exception>
#include <filesystem>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "program/Environment.h"
#include "program/LibraryItems.h"
#include "program/Nearest.h"
#include "program/OpenedLibrary.h"
#include "program/Process.h"
#include "program/ToolPages.h"
#include "program/WholeInput.h"
#include "program/commands/Commands.h"
#include "protocol/Tool.h"

namespace kelvane::commands {
namespace {

constexpr Word words[] = {
    {"TOOL", "The tool's name, such as list_scripts or read_script. Without one, the tools are listed."},
    {"NAME=VALUE", "An argument of the tool. Everything after the first \"=\" is the value, as it is."},
    {"NAME=@FILE", "The value is what the file contains."},
    {"NAME=-", "The value is what standard input contains."},
    {"NAME==VALUE", "The value may begin with \"@\", or be \"-\"."},
};
constexpr Option allowWrites = {"--allow-writes",
                                "Allow the tools that change scripts too. KELVANE_ALLOW_WRITES=1 does the same.",
                                {},
                                {},
                                allowWritesVariable};
constexpr Option options[] = {libraryOption, allowWrites};

// The value that stands behind the first "=" of an argument.
std::string valueOf(std::string_view typed) {
  if (typed.starts_with('=')) return std::string(typed.substr(1));
  if (typed.starts_with('@')) return contentsOf(std::filesystem::path(typed.substr(1)));
  if (typed == "-") return standardInput();
  return std::string(typed);
}

JSON::Object argumentsFor(const Tool& tool, std::span<const std::string> typed) {
  std::vector<std::string> names;
  for (const ToolArgument& argument : argumentsOf(tool)) names.push_back(argument.name);
  std::sort(names.begin(), names.end());
  JSON::Object arguments;
  for (const std::string& argument : typed) {
    const std::size_t equals = argument.find('=');
    if (equals == std::string::npos) {
      throw UsageError("\"" + argument + "\" is not a tool's argument. Write NAME=VALUE, such as id=Opening.md.");
    }
    const std::string name = argument.substr(0, equals);
    if (std::find(names.begin(), names.end(), name) == names.end()) {
      throw UsageError("The tool \"" + tool.name() + "\" has no argument \"" + name + "\"." + suggestion(name, names) +
                       (names.empty() ? " It takes no arguments." : " It takes " + listed(names) + "."));
    }
    if (arguments.find(name)) throw UsageError("\"" + name + "\" is given twice. Give it once.");
    arguments.set(name, valueOf(std::string_view(argument).substr(equals + 1)));
  }
  return arguments;
}

const Tool& toolToRun(const std::string& name, const std::vector<DescribedTool>& every,
                      const std::vector<Tool>& allowed) {
  const auto found =
      std::find_if(allowed.begin(), allowed.end(), [&](const Tool& each) { return each.name() == name; });
  if (found != allowed.end()) return *found;
  for (const DescribedTool& each : every) {
    if (each.tool.name() == name) throw UsageError("The tool \"" + name + "\" changes scripts. Add --allow-writes.");
  }
  refuseUnknownTool(name);
}

// The tools' message `Nothing at "x"` is the one that a person can be helped with: x is a name that was typed.
std::string whatIsNear(std::string_view message, const quorvel::ScriptLibrary& library) {
  constexpr std::string_view begin = "Nothing at \"";
  if (!message.starts_with(begin) || !message.ends_with('"')) return {};
  message.remove_prefix(begin.size());
  message.remove_suffix(1);
  const std::string suggestion = suggestedItem(message, library);
  return suggestion.empty() ? suggestion : '.' + suggestion;
}

int run(const Arguments& arguments) {
  const std::string name = arguments.word(0);
  if (name.empty()) {
    print(helpOnTools());
    return done;
  }
  const OpenedLibrary opened = openLibraryOf(arguments);
  const std::vector<Tool> allowed = opened.tools().tools(arguments.has(allowWrites));
  const Tool& tool = toolToRun(name, everyTool(), allowed);
  const JSON::Object given = argumentsFor(tool, std::span(arguments.words).subspan(1));
  std::string text;
  try {
    text = tool.run(given);
  } catch (const std::bad_alloc&) {
    throw;  // the program says it in a sentence
  } catch (const std::exception& failure) {
    complain(failure.what() + whatIsNear(failure.what(), *opened.library));
    return failed;
  }
  if (!text.empty() && text.back() != '\n') text.push_back('\n');
  print(text);
  return done;
}

}  // namespace

constinit const Command callCommand = {
    .name = "call",
    .summary = "Run one tool and print its text.",
    .about = "Runs one tool on a folder of scripts, as an AI client would, and prints the text that it answers with.",
    .usage = "[TOOL [NAME=VALUE ...]]",
    .mostWords = Command::anyNumber,
    .words = words,
    .options = options,
    .notes =
        "The text is printed as it is, with a line feed added if its last line has none. If the tool fails, its "
        "message goes to standard error. The exit status is 0 if the tool succeeds, 1 if it fails, and 2 for an "
        "unknown tool or argument. For a tool's arguments, run: kelvane call TOOL --help\n\n"
        "  kelvane call list_scripts --library ~/Scripts\n"
        "  kelvane call read_script id=Talks/Opening.md\n"
        "  kelvane call update_script id=Talks/Opening.md text=@new.md note=\"shorter\" \\\n"
        "    --allow-writes",
    .run = run,
    .helpOnTopic = helpOnTool,
};

}  // namespace kelvane::commands
