#include "program/Call.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "program/LibraryOptions.h"
#include "program/Nearest.h"
#include "program/Process.h"
#include "protocol/Tool.h"

namespace kelvane {
namespace {

constexpr std::string_view help =
    R"(Runs one tool on a folder of scripts, as an AI client would, and prints the text that it answers with.

Usage: kelvane call TOOL [NAME=VALUE ...] [--library DIR] [--allow-writes]

  TOOL              The tool's name, such as list_scripts or read_script.
  NAME=VALUE        An argument of the tool. All that stands behind the first "=" is the value, as it is.
  --library DIR     The folder that holds the scripts; without it, the one of the settings.
  --allow-writes    Let the tools that change scripts be run too.
  -h, --help        Print this.

The text is printed as it is, and a line feed behind it where its last line has none. When the tool fails, what it says
goes to standard error. The status is 0 when the tool succeeded, 1 when it failed, and 2 for a tool or an argument that
there is not.

  kelvane call list_scripts --library ~/Scripts
  kelvane call read_script id="Talks/Opening.md" --library ~/Scripts
)";

struct CallOptions {
  std::string tool;
  std::vector<std::string> arguments;
  LibraryOptions library;
};

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
    throw UsageError("The tool \"" + name + "\" changes scripts and needs --allow-writes.");
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
      throw UsageError("\"" + argument + "\" is not an argument for a tool: write NAME=VALUE, such as id=Opening.md.");
    }
    const std::string name = argument.substr(0, equals);
    if (std::find(names.begin(), names.end(), name) == names.end()) {
      throw UsageError("The tool \"" + tool.name() + "\" takes no \"" + name + "\"." + suggestion(name, names) +
                       (names.empty() ? " It takes no arguments." : " It takes " + listed(names) + "."));
    }
    if (arguments.find(name)) throw UsageError("\"" + name + "\" is given twice.");
    arguments.set(name, argument.substr(equals + 1));
  }
  return arguments;
}

int call(const CallOptions& options) {
  if (options.tool.empty()) throw UsageError("Say which tool to run, such as list_scripts.");
  const ScriptTools scripts = options.library.open().tools();
  const std::vector<Tool> tools = scripts.tools(options.library.allowsWrites);
  const Tool* tool = find(options.tool, tools);
  if (tool == nullptr) refuseTool(options.tool, scripts);
  const JSON::Object arguments = argumentsFor(*tool, options.arguments);
  std::string text;
  try {
    text = tool->run(arguments);
  } catch (const std::bad_alloc&) {
    throw;  // which says nothing that a person could read, and the program does
  } catch (const std::exception& failure) {
    complain(failure.what());
    return failed;
  }
  if (!text.empty() && text.back() != '\n') text.push_back('\n');
  print(text);
  return done;
}

}  // namespace

void addCall(CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<CallOptions>();
  CLI::App& command = addCommand(program, "call", help, chosen, [options] { return call(*options); });
  command.add_option("TOOL", options->tool);
  command.add_option("NAME=VALUE", options->arguments);
  options->library.addTo(command);
}

}  // namespace kelvane
