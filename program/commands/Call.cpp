#include <algorithm>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "program/Nearest.h"
#include "program/OpenedLibrary.h"
#include "program/Process.h"
#include "program/commands/Commands.h"
#include "protocol/Tool.h"

namespace kelvane::commands {
namespace {

constexpr Word words[] = {
    {"TOOL", "The tool's name, such as list_scripts or read_script."},
    {"NAME=VALUE", "An argument of the tool. Everything after the first \"=\" is the value, as it is."},
};
constexpr Option allowWrites = {"--allow-writes", "Allow the tools that change scripts too."};
constexpr Option options[] = {libraryOption, allowWrites};

using Names = std::vector<std::string>;

std::string listed(const Names& names) {
  std::string list;
  for (const std::string& name : names) list.append(list.empty() ? "" : ", ").append(name);
  return list;
}

Names namesOf(const std::vector<Tool>& tools) {
  Names names;
  for (const Tool& tool : tools) names.push_back(tool.name());
  return names;
}

// What the tool's schema says that it takes.
Names argumentNamesOf(const Tool& tool) {
  Names names;
  for (const JSON::Member& property : *tool.schema()["properties"]->object()) names.emplace_back(property.key());
  return names;
}

const Tool* find(const std::string& name, const std::vector<Tool>& tools) {
  const auto found = std::find_if(tools.begin(), tools.end(), [&](const Tool& each) { return each.name() == name; });
  return found == tools.end() ? nullptr : &*found;
}

[[noreturn]] void refuseTool(const std::string& name, const ScriptTools& scripts) {
  const Names all = namesOf(scripts.tools(true));
  if (std::find(all.begin(), all.end(), name) != all.end()) {
    throw UsageError("The tool \"" + name + "\" changes scripts. Add --allow-writes.");
  }
  const auto firstThatWrites = all.begin() + static_cast<std::ptrdiff_t>(scripts.tools(false).size());
  throw UsageError("There is no tool \"" + name + "\"." + suggestion(name, all) + " The tools are " +
                   listed({all.begin(), firstThatWrites}) + " and, with --allow-writes, " +
                   listed({firstThatWrites, all.end()}) + ".");
}

JSON::Object argumentsFor(const Tool& tool, const std::vector<std::string>& typed) {
  const Names names = argumentNamesOf(tool);
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
    arguments.set(name, argument.substr(equals + 1));
  }
  return arguments;
}

int run(const Arguments& arguments) {
  const std::string name = arguments.word(0);
  if (name.empty()) throw UsageError("Say which tool to run, such as list_scripts.");
  const ScriptTools scripts = openLibraryOf(arguments).tools();
  const std::vector<Tool> tools = scripts.tools(arguments.has(allowWrites));
  const Tool* tool = find(name, tools);
  if (tool == nullptr) refuseTool(name, scripts);
  const JSON::Object given = argumentsFor(*tool, {arguments.words.begin() + 1, arguments.words.end()});
  std::string text;
  try {
    text = tool->run(given);
  } catch (const std::bad_alloc&) {
    throw;  // the program says it in a sentence
  } catch (const std::exception& failure) {
    complain(failure.what());
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
    .usage = "TOOL [NAME=VALUE ...]",
    .mostWords = Command::anyNumber,
    .words = words,
    .options = options,
    .notes =
        "The text is printed as it is, with a line feed added if its last line has none. If the tool fails, its "
        "message goes to standard error. The exit status is 0 if the tool succeeds, 1 if it fails, and 2 for an "
        "unknown tool or argument.\n\n"
        "  kelvane call list_scripts --library ~/Scripts\n"
        "  kelvane call read_script id=\"Talks/Opening.md\" --library ~/Scripts",
    .run = run,
};

}  // namespace kelvane::commands
